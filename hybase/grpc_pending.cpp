// Requests that wait for their response, and the thread that fails those that wait too long.

#include <stdlib.h>

#include <chrono>

#include "grpc_private.h"

namespace grpc_engine {
namespace {

constexpr int64_t kResponseTimeoutUs = 5000000;
constexpr std::chrono::seconds kPollInterval(1);

// The platform may copy thread names as blocks of 32 bytes.
constexpr char kThreadName[32] = "grpc timeout";
constexpr char kThreadOwnName[32] = "grpcTimeout";

// Takes out the request that `link` leads to.
void FreeRequest(Context* ctx, grpcPending_t** link) {
    grpcPending_t* request = *link;
    *link = request->next;
    if (ctx->pending_end == &request->next) ctx->pending_end = link;
    free(request);
}

void FailRequest(_grpc_t* ctx, const grpcPending_t& request) {
    grpcMethod_t method = FindMethod(&ctx->c_methods, request.method);
    if (method.func == nullptr) return;
    ctx->errcode = GRPC_ERR_NO_ANSWER;
    CopyText(ctx->errmsg, "Timeout");
    method.func(ctx);
}

// Entries stand in the order they were sent, so the first that is not yet due ends the walk.
void FailOverdueRequests(Context* ctx) {
    int64_t now = arch_gettimeofday();
    DeliveryLock no_delivery(ctx->delivery);
    MutexGuard guard(ctx->pending_lock);
    while (ctx->pending != nullptr && now - kResponseTimeoutUs >= ctx->pending->sent_time) {
        FailRequest(ctx, *ctx->pending);
        FreeRequest(ctx, &ctx->pending);
    }
}

bool Running(const _grpc_t* ctx) {
    return __atomic_load_n(&ctx->timeout_running, __ATOMIC_ACQUIRE) != 0;
}

void* RunTimeouts(void* param) {
    auto* ctx = static_cast<Context*>(param);
    arch_thread_setname(kThreadOwnName);
    while (Running(ctx)) {
        FailOverdueRequests(ctx);
        std::unique_lock<std::mutex> lock(ctx->stop_mutex);
        ctx->stop.wait_for(lock, kPollInterval, [ctx] { return !Running(ctx); });
    }
    return nullptr;
}

void TellToStop(Context* ctx) {
    std::lock_guard<std::mutex> lock(ctx->stop_mutex);
    __atomic_store_n(&ctx->timeout_running, 0, __ATOMIC_RELEASE);
    ctx->stop.notify_one();
}

}  // namespace

void StartTimeouts(_grpc_t* ctx) {
    ctx->pending_lock = arch_mutex_create();
    __atomic_store_n(&ctx->timeout_running, 1, __ATOMIC_RELEASE);
    // Without the lock the list would not be safe; the context then works without time-outs.
    if (ctx->pending_lock == nullptr) return;
    ctx->timeout_thread = arch_thread_create(kThreadName, RunTimeouts, Private(ctx));
}

void StopTimeouts(_grpc_t* ctx) {
    if (!ctx->timeout_enable) return;
    TellToStop(Private(ctx));
    if (ctx->timeout_thread != nullptr) arch_thread_join(ctx->timeout_thread, nullptr);
    ctx->timeout_thread = nullptr;
    while (ctx->pending != nullptr) FreeRequest(Private(ctx), &ctx->pending);
    if (ctx->pending_lock != nullptr) arch_mutex_delete(ctx->pending_lock);
    ctx->pending_lock = nullptr;
}

void RememberRequest(_grpc_t* ctx, const char* method) {
    if (ctx->timeout_thread == nullptr) return;
    auto* request = static_cast<grpcPending_t*>(malloc(sizeof(grpcPending_t)));
    if (request == nullptr) return;
    CopyText(request->method, method);
    request->sentcnt = ctx->sentcnt;
    request->next = nullptr;

    MutexGuard guard(ctx->pending_lock);
    request->sent_time = arch_gettimeofday();
    grpcPending_t**& end = Private(ctx)->pending_end;
    *end = request;
    end = &request->next;
}

void ForgetRequest(_grpc_t* ctx, const char* method, int32_t sentcnt) {
    if (method == nullptr) return;
    MutexGuard guard(ctx->pending_lock);
    for (grpcPending_t** link = &ctx->pending; *link != nullptr; link = &(*link)->next) {
        if ((*link)->sentcnt != sentcnt || strcmp((*link)->method, method) != 0) continue;
        return FreeRequest(Private(ctx), link);
    }
}

}  // namespace grpc_engine
