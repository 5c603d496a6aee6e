#include "print.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>

#include "hybase/hlog.h"

namespace {

constexpr int kShortText = 512;

std::atomic<hlogPrintFunc> g_print{nullptr};  // null: standard output

// Most texts fit the stack. One that does not is cut there when memory is short.
void Format(hlogPrintFunc print, const char* format, va_list args) {
    char short_text[kShortText];
    va_list again;
    va_copy(again, args);
    int length = vsnprintf(short_text, sizeof(short_text), format, args);
    std::unique_ptr<char[]> long_text;
    if (length >= kShortText) long_text.reset(new (std::nothrow) char[size_t{1} + length]);
    if (long_text != nullptr) {
        vsnprintf(long_text.get(), size_t{1} + length, format, again);
        print(long_text.get(), length);
    } else if (length > 0) {
        print(short_text, std::min(length, kShortText - 1));
    }
    va_end(again);
}

}  // namespace

void Print(const char* format, ...) {
    const int error = errno;
    const hlogPrintFunc print = g_print.load(std::memory_order_acquire);
    va_list args;
    va_start(args, format);
    if (print == nullptr) {
        vprintf(format, args);
    } else if (print != hlog_print_nothing) {
        Format(print, format, args);
    }
    va_end(args);
    errno = error;
}

void hlog_set_print(hlogPrintFunc func) { g_print.store(func, std::memory_order_release); }

void hlog_print_nothing(const char*, int32_t) {}

void hlog_print_debug(const char* text, int32_t len) { HLOG_DEBUG("%.*s", len, text); }
