// The serving side: accounts, and the way of a request through look-up, check and handler to its
// response.

#include "grpc_private.h"
#include "hybase/cjson_value.h"
#include "hybase/grpc.h"
#include "hybase/print.h"

using namespace grpc_engine;

namespace {

// A mutex of the platform, taken and given back by hand; the destructor gives back what is held.
// Null: nothing to take.
class OptionalLock {
  public:
    explicit OptionalLock(arch_mutex_t mutex) : mutex_(mutex) {}
    ~OptionalLock() { Unlock(); }
    OptionalLock(const OptionalLock&) = delete;
    OptionalLock& operator=(const OptionalLock&) = delete;

    void Lock() {
        if (mutex_ != nullptr) arch_mutex_lock(mutex_);
        held_ = mutex_ != nullptr;
    }
    void Unlock() {
        if (held_) arch_mutex_unlock(mutex_);
        held_ = false;
    }

  private:
    arch_mutex_t mutex_;
    bool held_ = false;
};

// This method gives a caller his account, so he cannot have one yet.
constexpr char kLoginMethod[] = "account_login";

// What serving a request came to: the result of the call, and the error object of the response.
struct Outcome {
    int32_t result;
    int32_t code;
    const char* message;  // null when the response needs none
};

constexpr Outcome kNoMethod = {-1, GRPC_ERR_METHOD, "Method not found"};
constexpr Outcome kNoUser = {GRPC_ERR_USER, GRPC_ERR_USER, "No User or Error Passwd"};
constexpr Outcome kNoPower = {GRPC_ERR_POWER, GRPC_ERR_POWER, "No Power"};

const grpcAccount_t* FindAccount(_grpc_t* ctx, const char* name) {
    for (int32_t i = 0; i < ctx->s_account_cnt && i < GRPC_ACCOUNT_MAX; i++) {
        if (strcmp(ctx->s_accounts[i].name, name) == 0) return &ctx->s_accounts[i];
    }

    // Required as it is: the last record is scratch space even if a 32nd account stands there, and
    // an unknown name is checked against an empty password at whatever level that record has.
    grpcAccount_t* scratch = &ctx->s_accounts[GRPC_ACCOUNT_MAX - 1];
    if (ctx->get_passwd != nullptr && ctx->get_passwd(name, scratch->passwd) == 0) {
        scratch->passwd[sizeof scratch->passwd - 1] = '\0';
        scratch->level = 0;
    } else {
        scratch->passwd[0] = '\0';
    }
    return scratch;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Decodes the first 32 characters; what follows them does not count. False for anything but digits
// and lower-case letters, an early end included.
bool DecodeDigest(const char* text, unsigned char (&digest)[16]) {
    for (unsigned char& byte : digest) {
        int high = HexValue(*text++);
        if (high < 0) return false;
        int low = HexValue(*text++);
        if (low < 0) return false;
        byte = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}

// Takes the same time wherever the two differ, so that nobody finds a digest byte by byte.
bool SameDigest(const unsigned char (&a)[16], const unsigned char (&b)[16]) {
    volatile unsigned char difference = 0;
    for (size_t i = 0; i < sizeof a; i++) difference = difference | (a[i] ^ b[i]);
    return difference == 0;
}

// What a request says about its caller; both null unless it says both.
struct Caller {
    explicit Caller(const cJSON* request) {
        const cJSON* user = cJSON_GetObjectItem(request, "user");
        const char* text = cJSON_GetObjectValueString(user, "digest");
        if (text != nullptr) name = cJSON_GetObjectValueString(user, "name");
        if (name != nullptr) digest = text;
    }

    const char* name = nullptr;
    const char* digest = nullptr;
};

bool ProvesItself(const Caller& caller, const char* method, const char* passwd) {
    unsigned char expected[16], given[16];
    AccountDigest(caller.name, method, passwd, expected);
    return DecodeDigest(caller.digest, given) && SameDigest(given, expected);
}

Outcome CallHandler(_grpc_t* ctx, const grpcMethod_t& method) {
    int32_t result = method.func(ctx);
    if (result == 0) return {0, 0, nullptr};
    return {result, ctx->errcode, ctx->errmsg};
}

// `lock` is held while the tables are read and the handler runs, not while the digest of a name as
// long as the message is computed, nor while a line is printed.
Outcome Dispatch(_grpc_t* ctx, OptionalLock& lock) {
    const char* name = cJSON_GetObjectValueString(ctx->json, "method");
    if (name == nullptr) return {-1, GRPC_ERR_REQUEST, "unknown method"};

    lock.Lock();
    grpcMethod_t method = FindMethod(&ctx->s_methods, name);
    if (method.func == nullptr) return kNoMethod;
    if (strcmp(method.name, kLoginMethod) == 0 || ctx->s_account_cnt <= 0)
        return CallHandler(ctx, method);

    const Caller caller(ctx->json);
    if (caller.name == nullptr) return kNoUser;
    grpcAccount_t account;
    CopyAccount(&account, *FindAccount(ctx, caller.name));
    lock.Unlock();

    if (!ProvesItself(caller, method.name, account.passwd)) return kNoUser;
    Print("leve;%d, %d\n", account.level, method.level);
    if (account.level > method.level) return kNoPower;

    lock.Lock();
    // Again: a handler that another one unbound meanwhile must not run any more, and the row that
    // takes its place may ask for more.
    method = FindMethod(&ctx->s_methods, name);
    if (method.func == nullptr) return kNoMethod;
    if (account.level > method.level) return kNoPower;
    CopyText(ctx->s_user, caller.name);
    return CallHandler(ctx, method);
}

bool AddError(cJSON* root, const Outcome& outcome) {
    cJSON* error = cJSON_AddObjectToObject(root, "error");
    if (cJSON_AddNumberToObject(error, "errorcode", outcome.code) == nullptr) return false;
    return outcome.message == nullptr ||
           cJSON_AddStringToObject(error, "message", outcome.message) != nullptr;
}

Outcome DispatchLocked(_grpc_t* ctx, arch_mutex_t mutex) {
    OptionalLock lock(mutex);
    return Dispatch(ctx, lock);
}

void DropMessage(_grpc_t* ctx) {
    cJSON_Delete(ctx->json);
    ctx->json = nullptr;
}

// Leaves the response in `json`. The handler's result.
int32_t Serve(_grpc_t* ctx, const char* text, int32_t length, arch_mutex_t mutex,
              StillWanted still_wanted) {
    DeliveryLock no_timeout = LockDelivery(ctx);
    if (!TakeMessage(ctx, text, length)) {
        Print("ERROR: Failed Parse Message:\n%s\n\n", text != nullptr ? text : "(null)");
        return -1;
    }
    if (!still_wanted(ctx)) {
        DropMessage(ctx);
        return -1;
    }
    Outcome outcome = DispatchLocked(ctx, mutex);
    if (!AddError(ctx->json, outcome)) {
        // Without its error object a response would read as success: rather none at all.
        DropMessage(ctx);
        return outcome.result;
    }
    cJSON_DeleteItemFromObject(ctx->json, "param");
    return outcome.result;
}

bool Always(_grpc_t*) { return true; }

}  // namespace

int32_t grpc_engine::ServeWhileWanted(_grpc_t* ctx, const char* text, int32_t len,
                                      arch_mutex_t mutex, StillWanted still_wanted) {
    const HeapTrim after_all(text);
    Serve(ctx, text, len, mutex, still_wanted);
    // Printing a large answer may take seconds; a small one is sent on the chance that it arrives.
    if (after_all.Large() && !still_wanted(ctx)) DropMessage(ctx);
    int32_t result = Send(ctx);
    grpc_end(ctx);
    return result;
}

int32_t grpc_s_account_add(_grpc_t* ctx, const grpcAccount_t* acc) {
    if (ctx == nullptr || acc == nullptr) return -1;
    if (ctx->s_account_cnt < 0 || ctx->s_account_cnt >= GRPC_ACCOUNT_MAX) {
        Print("error: too many user setted: %d\n", ctx->s_account_cnt);
        return -1;
    }
    CopyAccount(&ctx->s_accounts[ctx->s_account_cnt++], *acc);
    return 0;
}

int32_t grpc_s_account_clear(_grpc_t* ctx) {
    if (ctx == nullptr) return -1;
    ctx->s_account_cnt = 0;
    return 0;
}

int32_t grpc_s_serve_without_send(_grpc_t* ctx, const char* text, int32_t len) {
    return ctx != nullptr ? Serve(ctx, text, len, nullptr, Always) : -1;
}

int32_t grpc_s_serve_direct(_grpc_t* ctx, const char* text, int32_t len) {
    return grpc_s_serve_locked(ctx, text, len, nullptr);
}

int32_t grpc_s_serve_locked(_grpc_t* ctx, const char* text, int32_t len, arch_mutex_t mutex) {
    return ctx != nullptr ? ServeWhileWanted(ctx, text, len, mutex, Always) : -1;
}

int32_t grpc_s_serve(_grpc_t* ctx) {
    if (ctx == nullptr) return -1;
    int32_t received = Receive(ctx, nullptr);
    return received < 1 ? received : grpc_s_serve_direct(ctx, ctx->buf, received);
}
