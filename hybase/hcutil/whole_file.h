// Files that are read into memory as a whole.
#ifndef HYBASE_HCUTIL_WHOLE_FILE_H
#define HYBASE_HCUTIL_WHOLE_FILE_H

#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

class WholeFile {
  public:
    enum Kind {
        kRegular,   // nothing else
        kReadable,  // also a pipe, whose writer is waited for, and a folder, where Read fails
    };

    // Opens a file that can be read to an end. Devices, which may have none, are refused, and so is
    // what is longer than kMaxSize, so that whatever is counted in a file fits 32 bits. What is
    // refused is not opened: that alone may wait, or move a device.
    WholeFile(const char* path, Kind kind) {
        struct stat status;
        if (path == nullptr || stat(path, &status) != 0 || !Accepts(status, kind)) return;
        // It may be another file by now.
        const int no_wait = kind == kRegular ? O_NONBLOCK : 0;
        m_fd = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | no_wait);
        if (m_fd < 0) return;
        if (fstat(m_fd, &status) == 0 && Accepts(status, kind)) {
            m_size = static_cast<size_t>(status.st_size);
            return;
        }
        const int error = errno;
        close(m_fd);
        m_fd = -1;
        errno = error;
    }
    ~WholeFile() {
        if (m_fd >= 0) close(m_fd);
    }
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    // False with the reason in errno.
    bool IsOpen() const { return m_fd >= 0; }

    // Bytes when the file was opened; 0 for a pipe. It may have grown or shrunk since.
    size_t Size() const { return m_size; }

    // Reads the next `room` bytes, fewer only at the end of the file. -1 with the reason in errno.
    ssize_t Read(char* buf, size_t room) const {
        size_t size = 0;
        while (size < room) {
            const ssize_t got = read(m_fd, buf + size, room - size);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return -1;
            if (got == 0) break;
            size += static_cast<size_t>(got);
        }
        return static_cast<ssize_t>(size);
    }

    static constexpr size_t kMaxSize = INT32_MAX - 1;

  private:
    // False with the reason in errno.
    static bool Accepts(const struct stat& status, Kind kind) {
        const bool device = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
        if (device || (kind == kRegular && !S_ISREG(status.st_mode))) {
            errno = ENOTSUP;
            return false;
        }
        errno = EFBIG;
        return status.st_size <= static_cast<off_t>(kMaxSize);
    }

    int m_fd = -1;
    size_t m_size = 0;
};

#endif
