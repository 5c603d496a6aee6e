// Holds the log records of a thread down to some a second, so that strangers cannot push
// everything else out of a small log.
#ifndef HYBASE_RECORD_QUOTA_H
#define HYBASE_RECORD_QUOTA_H

#include <stdint.h>

class RecordQuota {
  public:
    // `most`: records a second; 0: all.
    void SetPerSecond(int most) { most_ = most; }

    // Whether one more record may go out; counts it if not.
    bool Take();

    // How many were left out in seconds that are over, since the last call.
    int TakeLeftOut();

  private:
    int most_ = 0;
    int taken_ = 0;
    int left_out_ = 0;
    int64_t second_ = 0;
};

// While it lives, the calling thread's records go through `quota`; null: all go out.
class QuotaScope {
  public:
    explicit QuotaScope(RecordQuota* quota);
    ~QuotaScope();
    QuotaScope(const QuotaScope&) = delete;
    QuotaScope& operator=(const QuotaScope&) = delete;

    // Whether a record of the calling thread may go out now.
    static bool LetsThrough();

  private:
    RecordQuota* const outer_;
};

#endif
