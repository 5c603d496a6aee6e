// The context: its life, its memory, its method tables, and the way of a message in and out.

#include "hybase/grpc.h"

#include <errno.h>
#include <malloc.h>
#include <stddef.h>
#include <stdlib.h>

#include <memory>
#include <new>

#include "grpc_private.h"
#include "hybase/cjson_value.h"
#include "hybase/print.h"
#include "hyplatform/utl_md5.h"

using namespace grpc_engine;

#if UINTPTR_MAX == UINT32_MAX
// Applications on the device are built against these layouts.
static_assert(offsetof(_grpc_t, json) == 8 && offsetof(_grpc_t, errmsg) == 16);
static_assert(offsetof(_grpc_t, conn) == 272 && offsetof(_grpc_t, buf) == 340);
static_assert(offsetof(_grpc_t, send) == 348 && offsetof(_grpc_t, recv) == 352);
static_assert(offsetof(_grpc_t, c_methods) == 356 && offsetof(_grpc_t, s_methods) == 360);
static_assert(offsetof(_grpc_t, mem_list) == 364 && offsetof(_grpc_t, c_account) == 368);
static_assert(offsetof(_grpc_t, s_accounts) == 532 && offsetof(_grpc_t, s_user) == 5780);
static_assert(offsetof(_grpc_t, s_account_cnt) == 5812 && offsetof(_grpc_t, get_passwd) == 5816);
static_assert(offsetof(_grpc_t, lock) == 5820 && offsetof(_grpc_t, send_bin) == 5824);
static_assert(offsetof(_grpc_t, recv_bin) == 5832 && offsetof(_grpc_t, timeout_enable) == 5840);
static_assert(offsetof(_grpc_t, pending) == 5844 && offsetof(_grpc_t, pending_lock) == 5848);
static_assert(offsetof(_grpc_t, timeout_thread) == 5852 && sizeof(_grpc_t) == 5860);
static_assert(offsetof(grpcParam_t, send) == 8 && offsetof(grpcParam_t, s_methods) == 16);
static_assert(offsetof(grpcParam_t, c_methods) == 20 && sizeof(grpcParam_t) == 28);
static_assert(offsetof(grpcMethod_t, func) == 4 && sizeof(grpcMethod_t) == 12);
static_assert(sizeof(grpcMem_t) == 12);
#endif
static_assert(offsetof(grpcAccount_t, level) == 160 && sizeof(grpcAccount_t) == 164);
static_assert(offsetof(grpcConnInfo_t, proto) == 52 && sizeof(grpcConnInfo_t) == 68);

namespace {

constexpr int32_t kReceiveBufferBytes = 131072;
constexpr size_t kLargeTextBytes = 1 << 20;

void AllocateBuffer(_grpc_t* ctx, int32_t size) {
    free(ctx->buf);
    ctx->buf = nullptr;
    ctx->buflen = size;
    errno = ENOMEM;
    // One byte more than a hook may fill, for the terminator.
    if (size >= 0) ctx->buf = static_cast<char*>(malloc(static_cast<size_t>(size) + 1));
    if (ctx->buf == nullptr) Print("malloc failed : %d\n", errno);
}

// Blocks may come from the owner's thread and from a time-out handler, so the list is only changed
// in single steps: put one in front, take all.
void PushBlock(_grpc_t* ctx, grpcMem_t* block) {
    block->next = __atomic_load_n(&ctx->mem_list, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(&ctx->mem_list, &block->next, block, true, __ATOMIC_RELEASE,
                                        __ATOMIC_RELAXED)) {
    }
}

bool HoldsTail(const grpcMem_t* block, const _grpc_t* ctx) {
    return reinterpret_cast<uintptr_t>(ctx->send_bin) - reinterpret_cast<uintptr_t>(block) <
           static_cast<uintptr_t>(block->size);
}

// A tail that was not sent is forgotten with its block; one that lies elsewhere waits on.
void FreeBlocks(_grpc_t* ctx) {
    grpcMem_t* block = __atomic_exchange_n(&ctx->mem_list, nullptr, __ATOMIC_ACQUIRE);
    while (block != nullptr) {
        if (HoldsTail(block, ctx)) grpc_set_send_bindata(ctx, nullptr, 0);
        grpcMem_t* next = block->next;
        free(block);
        block = next;
    }
}

bool AddCount(_grpc_t* ctx) {
    cJSON* item = cJSON_GetObjectItem(ctx->json, "sentcnt");
    if (item == nullptr)
        return cJSON_AddNumberToObject(ctx->json, "sentcnt", ctx->sentcnt) != nullptr;
    // Only the integer value: cJSON prints the floating one, and so a response carries the number
    // of its request, not the zero that a server counts.
    item->valueint = ctx->sentcnt;
    return true;
}

void WriteHex(const unsigned char (&digest)[16], char (&hex)[33]) {
    char* out = hex;
    for (unsigned char byte : digest) {
        *out++ = "0123456789abcdef"[byte >> 4];
        *out++ = "0123456789abcdef"[byte & 15];
    }
    *out = '\0';
}

bool AddUser(_grpc_t* ctx) {
    const grpcAccount_t& account = ctx->c_account;
    if (account.name[0] == '\0') return true;

    unsigned char digest[16];
    const char* method = cJSON_GetObjectValueString(ctx->json, "method");
    AccountDigest(account.name, method, account.passwd, digest);
    char hex[2 * sizeof digest + 1];
    WriteHex(digest, hex);

    cJSON* user = cJSON_AddObjectToObject(ctx->json, "user");
    return cJSON_AddStringToObject(user, "name", account.name) != nullptr &&
           cJSON_AddStringToObject(user, "digest", hex) != nullptr;
}

int32_t CallSendHook(_grpc_t* ctx, const char* data, int32_t length) {
    int32_t sent = 0;
    if (ctx->send != nullptr)
        sent = ctx->send(ctx, data, length);
    else
        Print("send error: send func not setted\n");
    if (sent != length)
        Print("send error  : %s, ret: %d, tosend: %d\n", strerror(errno), sent, length);
    return sent;
}

int32_t SendWithTail(_grpc_t* ctx, const char* text, size_t text_length, const void* tail,
                     int32_t tail_length) {
    size_t length = text_length + 1 + static_cast<size_t>(tail_length);
    if (length > INT32_MAX) return -1;
    std::unique_ptr<char[]> message(new (std::nothrow) char[length]);
    if (message == nullptr) return -1;
    memcpy(message.get(), text, text_length + 1);
    memcpy(message.get() + text_length + 1, tail, static_cast<size_t>(tail_length));
    return CallSendHook(ctx, message.get(), static_cast<int32_t>(length));
}

}  // namespace

namespace grpc_engine {

HeapTrim::HeapTrim(const char* text)
    : large_(text != nullptr && strnlen(text, kLargeTextBytes) == kLargeTextBytes) {}

// No more often than that: it takes 3 to 10 ms for each MiB of text, a sixth of what the message
// itself took, and threads that share the heap wait as long when they allocate.
HeapTrim::~HeapTrim() {
#ifdef __GLIBC__
    if (large_) malloc_trim(0);
#endif
}

grpcMethod_t FindMethod(grpcMethod_t* const* field, const char* name) {
    const grpcMethod_t* table = __atomic_load_n(field, __ATOMIC_ACQUIRE);
    if (table == nullptr || name == nullptr) return {};
    for (const grpcMethod_t* row = table; row->name != nullptr; row++) {
        if (strcmp(row->name, name) != 0) continue;
        grpcMethodFunc func = __atomic_load_n(&row->func, __ATOMIC_ACQUIRE);
        if (func != nullptr) return {row->name, func, row->level};
    }
    return {};
}

void AccountDigest(const char* name, const char* method, const char* passwd,
                   unsigned char digest[16]) {
    utl_md5_ctx_t md5;
    utl_md5_init(&md5);
    utl_md5_update(&md5, name, strlen(name));
    if (method != nullptr) utl_md5_update(&md5, method, strlen(method));
    utl_md5_update(&md5, passwd, strlen(passwd));
    utl_md5_final(&md5, digest);
}

bool TakeMessage(_grpc_t* ctx, const char* text, int32_t length) {
    cJSON_Delete(ctx->json);
    ctx->json = cJSON_Parse(text);
    if (ctx->json == nullptr) return false;

    size_t text_bytes = strlen(text) + 1;
    if (length <= 0 || text_bytes >= static_cast<size_t>(length)) {
        // The previous message's tail stays noted: that is how the accessor is documented.
        return true;
    }
    ctx->recv_bin = const_cast<char*>(text) + text_bytes;
    ctx->recv_bin_len = length - static_cast<int32_t>(text_bytes);
    return true;
}

int32_t Receive(_grpc_t* ctx, void* opaque) {
    if (ctx->recv == nullptr) {
        Print("recv error: recv func not setted\n");
        return -1;
    }
    if (ctx->buf == nullptr) return -1;
    int32_t received = ctx->recv(ctx, ctx->buf, ctx->buflen, opaque);
    if (received <= 0) return received;
    // The hook may have replaced the buffer; whatever it claims, nothing lies behind the buffer.
    if (ctx->buf == nullptr) return -1;
    if (received > ctx->buflen) received = ctx->buflen;
    ctx->buf[received] = '\0';
    return received;
}

int32_t Send(_grpc_t* ctx) {
    // The tail belongs to this message even if there is none or it cannot be sent: its bytes may be
    // gone by the next.
    const void* tail = ctx->send_bin;
    int32_t tail_length = ctx->send_bin_len;
    if (tail_length > 0) grpc_set_send_bindata(ctx, nullptr, 0);

    if (ctx->json == nullptr || !AddCount(ctx) || !AddUser(ctx)) return -1;
    std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(ctx->json),
                                                      cJSON_free);
    if (text == nullptr) return -1;
    size_t length = strlen(text.get());
    if (length > INT32_MAX) return -1;
    if (tail != nullptr && tail_length > 0)
        return SendWithTail(ctx, text.get(), length, tail, tail_length);
    return CallSendHook(ctx, text.get(), static_cast<int32_t>(length));
}

}  // namespace grpc_engine

_grpc_t* grpc_new(void) { return new (std::nothrow) Context; }

int32_t grpc_init(_grpc_t* ctx, const grpcParam_t* param) {
    if (ctx == nullptr) return -1;
    if (param == nullptr) return 0;

    // A second call must not leave a thread behind that grpc_delete knows nothing of.
    StopTimeouts(ctx);
    ctx->timeout_enable = param->timeout_enable;
    ctx->userparam = param->userparam;
    ctx->send = param->send;
    ctx->recv = param->recv;
    __atomic_store_n(&ctx->s_methods, param->s_methods, __ATOMIC_RELEASE);
    __atomic_store_n(&ctx->c_methods, param->c_methods, __ATOMIC_RELEASE);
    grpc_set_connection_info(ctx, {});
    if (ctx->timeout_enable) StartTimeouts(ctx);
    AllocateBuffer(ctx, kReceiveBufferBytes);
    if (ctx->buf == nullptr) return -1;
    ctx->get_passwd = param->get_passwd;
    return 0;
}

void grpc_end(_grpc_t* ctx) {
    if (ctx == nullptr) return;
    cJSON_Delete(ctx->json);
    ctx->json = nullptr;
    if (!ctx->timeout_enable) return FreeBlocks(ctx);
    // Never waits: a handler on another thread may wait for this one. Its blocks are then freed by
    // the next call.
    DeliveryLock no_handler(Private(ctx)->delivery, std::try_to_lock);
    if (no_handler.owns_lock()) FreeBlocks(ctx);
}

int32_t grpc_delete(_grpc_t* ctx) {
    if (ctx == nullptr) return -1;
    // First, for a last time-out handler may still allocate.
    StopTimeouts(ctx);
    grpc_end(ctx);
    free(ctx->buf);
    if (ctx->lock != nullptr) arch_mutex_delete(ctx->lock);
    delete Private(ctx);
    return 0;
}

int32_t grpc_set_method(grpcMethod_t* table, const char* name, grpcMethodFunc handler) {
    if (table == nullptr || name == nullptr) return -1;
    for (grpcMethod_t* row = table; row->name != nullptr; row++) {
        if (strcmp(row->name, name) != 0) continue;
        __atomic_store_n(&row->func, handler, __ATOMIC_RELEASE);
        return 0;
    }
    return -1;
}

void grpc_lock(_grpc_t* ctx) {
    if (ctx == nullptr) return;
    arch_mutex_t lock = __atomic_load_n(&ctx->lock, __ATOMIC_ACQUIRE);
    if (lock == nullptr) {
        arch_mutex_t created = arch_mutex_create();
        if (created == nullptr) {
            Print("arch_mutex_create() failed\n");
            return;
        }
        // Of two threads that come first one wins, and both take the winner's lock.
        if (__atomic_compare_exchange_n(&ctx->lock, &lock, created, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_ACQUIRE))
            lock = created;
        else
            arch_mutex_delete(created);
    }
    arch_mutex_lock(lock);
}

void grpc_unlock(_grpc_t* ctx) {
    if (ctx != nullptr) arch_mutex_unlock(__atomic_load_n(&ctx->lock, __ATOMIC_ACQUIRE));
}

int32_t grpc_set_connection_info(_grpc_t* ctx, grpcConnInfo_t info) {
    if (ctx == nullptr) return -1;
    std::lock_guard<std::mutex> lock(Private(ctx)->conn_mutex);
    ctx->conn = info;
    return 0;
}

grpcConnInfo_t grpc_get_connection_info(_grpc_t* ctx) {
    if (ctx == nullptr) return {};
    std::lock_guard<std::mutex> lock(Private(ctx)->conn_mutex);
    return ctx->conn;
}

void grpc_set_send_bindata(_grpc_t* ctx, const void* data, int32_t len) {
    if (ctx == nullptr) return;
    ctx->send_bin = data;
    ctx->send_bin_len = len;
}

void* grpc_get_recv_bindata(_grpc_t* ctx, int32_t* len) {
    if (len != nullptr) *len = ctx != nullptr ? ctx->recv_bin_len : 0;
    return ctx != nullptr ? ctx->recv_bin : nullptr;
}

void* grpc_malloc(_grpc_t* ctx, int32_t size) {
    constexpr int32_t kHeaderBytes = sizeof(grpcMem_t);
    if (ctx == nullptr || size <= 0 || size > INT32_MAX - kHeaderBytes) return nullptr;
    int32_t total = size + kHeaderBytes;
    auto* block = static_cast<grpcMem_t*>(malloc(static_cast<size_t>(total)));
    if (block == nullptr) return nullptr;
    block->magic = GRPC_MEM_MAGIC;
    block->size = total;
    PushBlock(ctx, block);
    return block + 1;
}

void* grpc_zalloc(_grpc_t* ctx, int32_t size) {
    void* bytes = grpc_malloc(ctx, size);
    if (bytes != nullptr) memset(bytes, 0, static_cast<size_t>(size));
    return bytes;
}

char* grpc_strdup(_grpc_t* ctx, const char* text) {
    if (text == nullptr) return nullptr;
    size_t bytes = strlen(text) + 1;
    if (bytes > INT32_MAX) return nullptr;
    void* copy = grpc_malloc(ctx, static_cast<int32_t>(bytes));
    if (copy != nullptr) memcpy(copy, text, bytes);
    return static_cast<char*>(copy);
}

void grpc_adjust_buffer_len(_grpc_t* ctx, int32_t len) {
    if (ctx != nullptr) AllocateBuffer(ctx, len);
}

int32_t grpc_s_set_error(_grpc_t* ctx, int32_t code, const char* msg) {
    if (ctx == nullptr) return -1;
    ctx->errcode = code;
    CopyText(ctx->errmsg, msg);
    return 0;
}
