// The methods of the device. Each gets the request in context->json, adds its results to the root
// of that tree and returns 0, or says what is wrong and returns non-zero.

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hybase/hlog.h>
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

struct Info {
    char model[16];
    char name[32];
    char host[64];
    double uptime_ms;
    int32_t served;
    char peer[48];
};

const kinfo_t g_info_table[] = {
    KINFO_ROW(Info, model, KINFO_STRING),
    KINFO_ROW(Info, name, KINFO_STRING),
    KINFO_ROW(Info, host, KINFO_STRING),
    KINFO_ROW(Info, uptime_ms, KINFO_DOUBLE),
    KINFO_ROW(Info, served, KINFO_S32),
    KINFO_ROW(Info, peer, KINFO_STRING),
    KINFO_END,
};

int32_t DeviceInfo(_grpc_t* context) {
    Info info{};
    snprintf(info.model, sizeof info.model, "hydevice");
    snprintf(info.name, sizeof info.name, "%s", Owner(context)->GetConfig().name);
    gethostname(info.host, sizeof info.host - 1);
    info.uptime_ms = static_cast<double>(arch_getSystemStartupMs());
    info.served = Owner(context)->m_served;
    snprintf(info.peer, sizeof info.peer, "%s", grpc_get_connection_info(context).addr);
    cJSON_AddItemToObject(context->json, "info", cjson_object2json(g_info_table, &info));
    return 0;
}

int32_t ConfigGet(_grpc_t* context) {
    Config config = Owner(context)->GetConfig();
    cJSON_AddItemToObject(context->json, "config", cjson_object2json(g_config_table, &config));
    return 0;
}

int32_t ConfigSet(_grpc_t* context) {
    std::string error;
    if (!Owner(context)->SetConfig(Param(context), error))
        return Fail(context, kBadParam, error.c_str());
    return ConfigGet(context);
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

// Counts and logs what a handler serves.
template <grpcMethodFunc handler>
int32_t Served(_grpc_t* context) {
    Owner(context)->m_served++;
    const char* method = cJSON_GetObjectValueString(context->json, "method");
    if (Owner(context)->GetConfig().print_requests != 0)
        printf("%s by %s\n", method, context->s_user);
    const int32_t result = handler(context);
    HLOG_INFO("%s by %s from %s: %d\n", method, context->s_user,
              grpc_get_connection_info(context).addr, result);
    return result;
}

grpcMethod_t g_methods[] = {
    {"device_info", Served<DeviceInfo>, 2},
    {"add", Served<Add>, 2},
    {"upload", Served<Upload>, 2},
    {"download", Served<Download>, 2},
    {"account_login", Served<AccountLogin>, 2},
    {"config_get", Served<ConfigGet>, 2},
    {"config_set", Served<ConfigSet>, 0},
    {"reset_counters", Served<ResetCounters>, 0},
    {nullptr, nullptr, 0},
};

}  // namespace

grpcMethod_t* Methods() { return g_methods; }

}  // namespace hydevice
