#include "output.h"

#include <errno.h>
#include <hybase/hlog.h>
#include <unistd.h>

namespace hyrpc {
namespace {

void LogToStderr(const char* text, int32_t len) {
    fwrite(text, 1, static_cast<size_t>(len), stderr);
}
void DropLog(const char*, int32_t) {}

}  // namespace

bool Output::Open(bool verbose) {
    m_file = fdopen(dup(STDOUT_FILENO), "w");
    if (m_file == nullptr) return false;
    if (verbose) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        setvbuf(stdout, nullptr, _IOLBF, 0);
    } else if (freopen("/dev/null", "w", stdout) == nullptr) {
        return false;
    }
    hlog_regirst(verbose ? LogToStderr : DropLog);
    return true;
}

bool Output::Write(const std::string& text) {
    if (m_error != 0) return false;
    const bool written = fwrite(text.data(), 1, text.size(), m_file) == text.size();
    if (written && fflush(m_file) == 0) return true;
    m_error = errno;
    return false;
}

}  // namespace hyrpc
