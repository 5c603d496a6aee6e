#include "hybase/hcutil/receive_buffer.h"

#include <stddef.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>
#include <new>

namespace {

constexpr size_t kSmallestMapping = 128 * 1024;

size_t Bytes(int size) { return static_cast<size_t>(std::max(size, 0)) + 1; }

bool IsMapping(int size) { return Bytes(size) >= kSmallestMapping; }

}  // namespace

char* NewReceiveBuffer(int size) {
    if (!IsMapping(size)) return new (std::nothrow) char[Bytes(size)];
    void* mapping =
        mmap(nullptr, Bytes(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return mapping != MAP_FAILED ? static_cast<char*>(mapping) : nullptr;
}

void DeleteReceiveBuffer(char* buffer, int size) {
    if (buffer == nullptr) return;
    if (IsMapping(size)) {
        munmap(buffer, Bytes(size));
    } else {
        delete[] buffer;
    }
}

char* ResizeReceiveBuffer(char* buffer, int size, int new_size, int kept) {
    char* resized = NewReceiveBuffer(new_size);
    if (resized == nullptr) return nullptr;
    if (kept > 0) memcpy(resized, buffer, static_cast<size_t>(kept));
    DeleteReceiveBuffer(buffer, size);
    return resized;
}
