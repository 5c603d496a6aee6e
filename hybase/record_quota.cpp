#include "record_quota.h"

#include <hyplatform/arch.h>

#include <utility>

namespace {

thread_local RecordQuota* t_quota = nullptr;

int64_t Second() { return arch_getSystemStartupMs() / 1000; }

}  // namespace

bool RecordQuota::Take() {
    if (most_ <= 0) return true;
    const int64_t now = Second();
    if (now != second_) taken_ = 0;
    second_ = now;
    if (taken_ < most_) {
        taken_++;
        return true;
    }
    left_out_++;
    return false;
}

int RecordQuota::TakeLeftOut() {
    return left_out_ > 0 && Second() != second_ ? std::exchange(left_out_, 0) : 0;
}

QuotaScope::QuotaScope(RecordQuota* quota) : outer_(std::exchange(t_quota, quota)) {}

QuotaScope::~QuotaScope() { t_quota = outer_; }

bool QuotaScope::LetsThrough() { return t_quota == nullptr || t_quota->Take(); }
