// Silence of the library's log while the device says itself, in one line, what is wrong.
#pragma once

#include <hybase/hlog.h>

namespace hydevice {

class QuietLog {
  public:
    QuietLog() {
        hlog_regirst([](const char*, int32_t) {});
    }
    ~QuietLog() { hlog_regirst(nullptr); }
    QuietLog(const QuietLog&) = delete;
    QuietLog& operator=(const QuietLog&) = delete;
};

}  // namespace hydevice
