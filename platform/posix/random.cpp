#include <errno.h>
#include <sys/random.h>

#include "hyplatform/arch.h"

int arch_rand_bytes(void* buf, int len) {
    if (buf == nullptr || len < 0) return -1;
    auto* next = static_cast<unsigned char*>(buf);
    size_t missing = static_cast<size_t>(len);
    while (missing > 0) {
        ssize_t got = getrandom(next, missing, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return -1;
        next += got;
        missing -= static_cast<size_t>(got);
    }
    return 0;
}
