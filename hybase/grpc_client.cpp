// The calling side: sending requests, and taking their responses on the spot or as they come in.

#include "grpc_private.h"
#include "hybase/cjson_value.h"
#include "hybase/grpc.h"
#include "hybase/print.h"

using namespace grpc_engine;

namespace {

constexpr int kReceptions = 20;

// Sets `errcode` and `errmsg` from the response in `json`.
void TakeError(_grpc_t* ctx) {
    ctx->errcode = 0;
    ctx->errmsg[0] = '\0';
    const cJSON* error = cJSON_GetObjectItem(ctx->json, "error");
    if (!cJSON_IsObject(error)) return;
    CopyText(ctx->errmsg, cJSON_GetObjectValueString(error, "message"));
    ctx->errcode = cJSON_GetObjectValueInt(error, "errorcode");
    // Some peers name it "errcode". An "errorcode" of -1 looks as if it were missing, and so it is
    // looked for there, too.
    if (ctx->errcode == -1) ctx->errcode = cJSON_GetObjectValueInt(error, "errcode");
}

void CallResponseHandler(_grpc_t* ctx, const char* method_name) {
    grpcMethod_t method = FindMethod(&ctx->c_methods, method_name);
    if (method.func == nullptr) {
        Print("ERROR: grpc_c_resp_direct Failed find method: %s\n",
              method_name != nullptr ? method_name : "(null)");
        return;
    }
    int32_t result = method.func(ctx);
    // The row's name, for the handler may have replaced the tree that holds the other one.
    if (result != 0)
        Print("ERROR: grpc_c_resp_direct Failed in method: %s, with ret: %d\n", method.name,
              result);
}

}  // namespace

int32_t grpc_c_account_set(_grpc_t* ctx, const grpcAccount_t* acc) {
    if (ctx == nullptr || acc == nullptr) return -1;
    CopyAccount(&ctx->c_account, *acc);
    return 0;
}

grpcAccount_t grpc_c_account_get(_grpc_t* ctx) {
    return ctx != nullptr ? ctx->c_account : grpcAccount_t{};
}

int32_t grpc_c_send(_grpc_t* ctx) {
    if (ctx == nullptr) return -1;
    const char* method = cJSON_GetObjectValueString(ctx->json, "method");
    ctx->sentcnt = static_cast<int32_t>(static_cast<uint32_t>(ctx->sentcnt) + 1);
    // Before the send: its response may be faster than its return.
    if (ctx->timeout_enable && method != nullptr) RememberRequest(ctx, method);
    return Send(ctx);
}

int32_t grpc_c_recv(_grpc_t* ctx) {
    if (ctx == nullptr) return -1;
    int32_t transport_word = 0;
    for (int i = 0; i < kReceptions; i++) {
        int32_t received = Receive(ctx, &transport_word);
        if (received < 1) return received;

        DeliveryLock no_timeout = LockDelivery(ctx);
        if (!TakeMessage(ctx, ctx->buf, received)) {
            Print("ERROR: Failed parse json: %s\n", ctx->buf);
            return GRPC_ERR_PARSE;
        }
        if (cJSON_GetObjectValueInt(ctx->json, "sentcnt") == ctx->sentcnt) {
            TakeError(ctx);
            return 0;
        }
        cJSON_Delete(ctx->json);
        ctx->json = nullptr;
    }
    Print("ERROR: trycnt out json: %s\n", ctx->buf);
    return GRPC_ERR_NO_ANSWER;
}

int32_t grpc_c_resp_direct(_grpc_t* ctx, const char* text, int32_t len) {
    if (ctx == nullptr) return -1;
    const HeapTrim after_all(text);
    DeliveryLock no_timeout = LockDelivery(ctx);
    if (!TakeMessage(ctx, text, len)) {
        Print("ERROR: Failed Parse Message:\n%s\n\n", text != nullptr ? text : "(null)");
        return -1;
    }
    TakeError(ctx);
    const char* method = cJSON_GetObjectValueString(ctx->json, "method");
    int32_t sentcnt = cJSON_GetObjectValueInt(ctx->json, "sentcnt");
    if (ctx->timeout_enable) ForgetRequest(ctx, method, sentcnt);
    CallResponseHandler(ctx, method);
    grpc_end(ctx);
    return 0;
}
