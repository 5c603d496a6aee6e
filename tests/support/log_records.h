// Collects what the library logs, as "LEVEL function: message", while an object of this class
// lives.
#ifndef HYBASE_TESTS_LOG_RECORDS_H
#define HYBASE_TESTS_LOG_RECORDS_H

#include <hybase/hlog.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "support/loopback.h"

class LogRecords {
  public:
    LogRecords() {
        hlogParam_t param{};
        param.console_level = HLOG_LEVEL_INFO;
        hlog_set_param(&param);
        hlog_regirst(Append);
    }
    ~LogRecords() {
        hlog_regirst(nullptr);
        Take();
    }

    // The records since the last call.
    std::vector<std::string> Take() {
        std::vector<std::string> taken;
        const std::lock_guard<std::mutex> lock(mutex_);
        taken.swap(records_);
        return taken;
    }

    // Whether this record comes; those before it are taken.
    bool Comes(const std::string& record) {
        return Eventually([&] {
            const std::vector<std::string> lines = Take();
            return std::find(lines.begin(), lines.end(), record) != lines.end();
        });
    }

  private:
    // "[LEVEL][file:line][function] message"
    static void Append(const char* text, int32_t) {
        const std::string record = text;
        const size_t level_end = record.find("][");
        const size_t name = record.find("][", level_end + 1) + 2;
        const size_t name_end = record.find("] ", name);
        const std::lock_guard<std::mutex> lock(mutex_);
        records_.push_back(record.substr(1, level_end - 1) + " " +
                           record.substr(name, name_end - name) + ": " +
                           record.substr(name_end + 2));
    }

    static inline std::mutex mutex_;
    static inline std::vector<std::string> records_;
};

#endif
