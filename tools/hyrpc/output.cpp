#include "output.h"

#include <errno.h>
#include <fcntl.h>
#include <hybase/hlog.h>
#include <unistd.h>

namespace hyrpc {
namespace {

void LogToStderr(const char* text, int32_t len) {
    fwrite(text, 1, static_cast<size_t>(len), stderr);
}
void DropLog(const char*, int32_t) {}

// What is opened next takes the number of a standard stream that is closed: texts for that stream
// would go there, even to the device.
void FillStandardNumbers() {
    int file = 0;
    do file = open("/dev/null", O_RDWR);
    while (file >= 0 && file <= STDERR_FILENO);
    if (file >= 0) close(file);
}

}  // namespace

bool Output::Open(bool verbose) {
    m_file = fdopen(fcntl(STDOUT_FILENO, F_DUPFD, STDERR_FILENO + 1), "w");
    if (m_file == nullptr) return false;
    FillStandardNumbers();
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
