// What the sources of the RPC engine share: grpc.cpp (the context, its memory, sending and
// receiving), grpc_server.cpp, grpc_client.cpp, and grpc_pending.cpp (requests that wait for their
// response, and the thread that fails them).
#ifndef HYBASE_GRPC_PRIVATE_H
#define HYBASE_GRPC_PRIVATE_H

#include <stdint.h>
#include <string.h>

#include <condition_variable>
#include <mutex>

#include "hybase/grpc.h"

namespace grpc_engine {

// What grpc_new really makes. Order of the locks: `delivery`, then either `pending_lock` or the
// mutex that a server shares among its contexts.
struct Context : _grpc_t {
    Context() : _grpc_t{} {}

    // Held while a request is served, while a response is delivered and while overdue requests are
    // failed: `errcode`, `errmsg`, `json` and the handlers belong to one of them at a time.
    // Recursive, because a handler may call grpc_end, or fetch and deliver further messages itself.
    std::recursive_mutex delivery;

    // Where the next pending request is linked in: `pending`, or `next` of the youngest. Guarded by
    // `pending_lock`.
    grpcPending_t** pending_end = &pending;

    std::mutex conn_mutex;  // guards `conn`

    // Wakes the time-out thread from its wait when `timeout_running` was cleared under the mutex.
    std::mutex stop_mutex;
    std::condition_variable stop;
};

inline Context* Private(_grpc_t* ctx) { return static_cast<Context*>(ctx); }

using DeliveryLock = std::unique_lock<std::recursive_mutex>;

// Keeps the time-out thread's handlers away; a context without that thread needs no lock.
inline DeliveryLock LockDelivery(_grpc_t* ctx) {
    return ctx->timeout_enable ? DeliveryLock(Private(ctx)->delivery) : DeliveryLock();
}

class MutexGuard {
  public:
    explicit MutexGuard(arch_mutex_t mutex) : mutex_(mutex) { arch_mutex_lock(mutex_); }
    ~MutexGuard() { arch_mutex_unlock(mutex_); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

  private:
    arch_mutex_t mutex_;
};

// Gives the memory of freed trees back to the system at the end of a scope that handles a large
// text. A tree takes forty times the memory of its text, in pieces so small that the heap would
// keep them all.
class HeapTrim {
  public:
    explicit HeapTrim(const char* text);
    ~HeapTrim();
    HeapTrim(const HeapTrim&) = delete;
    HeapTrim& operator=(const HeapTrim&) = delete;
    bool Large() const { return large_; }

  private:
    bool large_;
};

// Copies what fits and terminates it; a null text gives an empty one. The two may overlap.
template <size_t kCapacity>
void CopyText(char (&out)[kCapacity], const char* text) {
    size_t length = text != nullptr ? strnlen(text, kCapacity - 1) : 0;
    if (length > 0) memmove(out, text, length);
    out[length] = '\0';
}

// Copies the whole record; only a text without its terminator is mended.
inline void CopyAccount(grpcAccount_t* out, const grpcAccount_t& account) {
    *out = account;
    out->name[sizeof out->name - 1] = '\0';
    out->passwd[sizeof out->passwd - 1] = '\0';
}

// The first row of that name that has a handler, in the table that a context's field points to; its
// `func` is null when there is none. A copy, so that grpc_set_method on another thread takes no
// handler away between look-up and call.
grpcMethod_t FindMethod(grpcMethod_t* const* field, const char* name);

// The MD5 that an account proves itself with. `method` may be null.
void AccountDigest(const char* name, const char* method, const char* passwd,
                   unsigned char digest[16]);

// Replaces `json` by the message in text[0..length-1] and notes its binary tail. False when it is
// no JSON; `json` is then null.
bool TakeMessage(_grpc_t* ctx, const char* text, int32_t length);

// Fills `buf` through the receive hook and terminates it. The hook's result, -1 without hook or
// buffer.
int32_t Receive(_grpc_t* ctx, void* opaque);

// Sends `json` through the send hook. The hook's result, 0 without a hook, -1 when there is nothing
// to send or no memory to do it.
int32_t Send(_grpc_t* ctx);

// Creates `pending_lock` and starts the time-out thread.
void StartTimeouts(_grpc_t* ctx);

// Joins the time-out thread, frees all pending requests and `pending_lock`.
void StopTimeouts(_grpc_t* ctx);

// Appends the request `sentcnt` to the pending ones. Without memory, or without a thread that would
// ever remove it again, it is left out.
void RememberRequest(_grpc_t* ctx, const char* method);

// Removes the pending request that this response answers, if there is one. `method` may be null.
void ForgetRequest(_grpc_t* ctx, const char* method, int32_t sentcnt);

// Asked between the steps of serving: whether the answer can still reach the caller.
using StillWanted = bool (*)(_grpc_t* ctx);

// grpc_s_serve_locked, but a message that is not wanted any more is not executed, and a large
// answer that is not wanted any more is not printed: either may take seconds.
int32_t ServeWhileWanted(_grpc_t* ctx, const char* text, int32_t len, arch_mutex_t mutex,
                         StillWanted still_wanted);

}  // namespace grpc_engine

#endif
