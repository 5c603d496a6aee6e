// The methods of the device. Each gets the request in context->json, adds its results to the root of
// that tree and returns 0, or says what is wrong and returns non-zero.

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hyplatform/arch.h>
#include <hyplatform/utl_md5.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "device.h"

namespace hydevice {
namespace {

constexpr int32_t kBadParam = -1;
constexpr int32_t kRefused = -2;
constexpr int32_t kNoMemory = -3;
constexpr int kMaxDownload = 16 * 1024 * 1024;

Device* Owner(_grpc_t* context) {
    return static_cast<Device*>(HCTCPGrpcServer::GetUserparam(context));
}

const cJSON* Param(_grpc_t* context) { return cJSON_GetObjectItem(context->json, "param"); }

int32_t Fail(_grpc_t* context, int32_t code, const char* message) {
    grpc_s_set_error(context, code, message);
    return code;
}

void AddHex(cJSON* json, const char* key, const unsigned char (&digest)[16]) {
    char text[33];
    for (int i = 0; i < 16; i++) snprintf(text + 2 * i, 3, "%02x", digest[i]);
    cJSON_AddStringToObject(json, key, text);
}

int32_t DeviceInfo(_grpc_t* context) {
    char host[64] = "";
    gethostname(host, sizeof host - 1);
    grpcConnInfo_t peer = grpc_get_connection_info(context);
    cJSON_AddStringToObject(context->json, "model", "hydevice");
    cJSON_AddStringToObject(context->json, "host", host);
    cJSON_AddNumberToObject(context->json, "uptime_ms",
                            static_cast<double>(arch_getSystemStartupMs()));
    cJSON_AddNumberToObject(context->json, "served", Owner(context)->m_served);
    cJSON_AddStringToObject(context->json, "peer", peer.addr);
    return 0;
}

int32_t Add(_grpc_t* context) {
    const cJSON* a = cJSON_GetObjectItem(Param(context), "a");
    const cJSON* b = cJSON_GetObjectItem(Param(context), "b");
    if (!cJSON_IsNumber(a) || !cJSON_IsNumber(b))
        return Fail(context, kBadParam, "add takes the numbers a and b");
    cJSON_AddNumberToObject(context->json, "sum", a->valuedouble + b->valuedouble);
    return 0;
}

int32_t Upload(_grpc_t* context) {
    int32_t length = 0;
    const void* data = grpc_get_recv_bindata(context, &length);
    if (data == nullptr) return Fail(context, kBadParam, "upload takes binary data");
    utl_md5_ctx_t md5;
    unsigned char digest[16];
    utl_md5_init(&md5);
    utl_md5_update(&md5, data, static_cast<size_t>(length));
    utl_md5_final(&md5, digest);
    cJSON_AddNumberToObject(context->json, "size", length);
    AddHex(context->json, "md5", digest);
    return 0;
}

int32_t Download(_grpc_t* context) {
    int size = cJSON_GetObjectValueInt(Param(context), "size");
    if (size < 1 || size > kMaxDownload)
        return Fail(context, kBadParam, "download takes a size from 1 to 16777216");
    auto* data = static_cast<unsigned char*>(grpc_malloc(context, size));
    if (data == nullptr) return Fail(context, kNoMemory, "no memory");
    for (int i = 0; i < size; i++) data[i] = static_cast<unsigned char>(i);
    grpc_set_send_bindata(context, data, size);
    cJSON_AddNumberToObject(context->json, "size", size);
    return 0;
}

// Callable without a digest: it is how a user finds out whether his password is right.
int32_t AccountLogin(_grpc_t* context) {
    const char* name = cJSON_GetObjectValueString(Param(context), "name");
    const char* password = cJSON_GetObjectValueString(Param(context), "password");
    if (name == nullptr || password == nullptr)
        return Fail(context, kBadParam, "account_login takes name and password");
    const grpcUser_t* account = Owner(context)->FindAccount(name);
    if (account == nullptr || strcmp(account->passwd, password) != 0)
        return Fail(context, kRefused, "wrong name or password");
    cJSON_AddNumberToObject(context->json, "level", account->level);
    return 0;
}

int32_t ResetCounters(_grpc_t* context) {
    Owner(context)->m_served = 0;
    return 0;
}

// Counts what a handler serves.
template <grpcMethodFunc handler>
int32_t Counted(_grpc_t* context) {
    Owner(context)->m_served++;
    return handler(context);
}

grpcMethod_t g_methods[] = {
    {"device_info", Counted<DeviceInfo>, 2},
    {"add", Counted<Add>, 2},
    {"upload", Counted<Upload>, 2},
    {"download", Counted<Download>, 2},
    {"account_login", Counted<AccountLogin>, 2},
    {"reset_counters", Counted<ResetCounters>, 0},
    {nullptr, nullptr, 0},
};

}  // namespace

grpcMethod_t* Methods() { return g_methods; }

}  // namespace hydevice
