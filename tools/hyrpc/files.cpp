#include "files.h"

#include <errno.h>
#include <stdint.h>
#include <stdio.h>

#include <memory>

namespace hyrpc {
namespace {

using File = std::unique_ptr<FILE, decltype(&fclose)>;

}  // namespace

bool ReadFile(const std::string& path, std::string& content) {
    File file(fopen(path.c_str(), "rb"), fclose);
    if (!file) return false;
    char block[65536];
    while (size_t got = fread(block, 1, sizeof block, file.get())) {
        content.append(block, got);
        if (content.size() <= INT32_MAX) continue;
        errno = EFBIG;  // the length of a packet has 31 bits
        return false;
    }
    return ferror(file.get()) == 0;
}

bool WriteFile(const std::string& path, const std::string& content) {
    File file(fopen(path.c_str(), "wb"), fclose);
    if (!file) return false;
    const bool written = fwrite(content.data(), 1, content.size(), file.get()) == content.size();
    return written && fflush(file.get()) == 0;
}

}  // namespace hyrpc
