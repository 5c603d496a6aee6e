// The methods of the device. Each gets the request in context->json, adds its results to the root
// of that tree and returns 0, or says what is wrong and returns non-zero.

#include <cjson/cJSON.h>
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hybase/hcutil/HCTLV.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <hyplatform/utl_md5.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "device.h"
#include "osd.h"

namespace hydevice {
namespace {

constexpr int32_t kBadParam = -1;
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

// Sends a copy of the bytes behind the response: that goes out when the handler has returned.
int32_t SendTail(_grpc_t* context, const void* data, int bytes) {
    void* tail = grpc_malloc(context, bytes);
    if (tail == nullptr) return Fail(context, kNoMemory, "no memory");
    memcpy(tail, data, static_cast<size_t>(bytes));
    grpc_set_send_bindata(context, tail, bytes);
    return 0;
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

// Callable without a digest: it is how a user shows that he knows his password, and gets a token.
int32_t AccountLogin(_grpc_t* context) {
    const char* name = cJSON_GetObjectValueString(Param(context), "name");
    const char* password = cJSON_GetObjectValueString(Param(context), "password");
    if (name == nullptr || password == nullptr)
        return Fail(context, kBadParam, "account_login takes name and password");
    if (strlen(name) >= sizeof(grpcUser_t::name))
        return Fail(context, kBadParam, "a name has at most 31 characters");
    Device& device = *Owner(context);
    const std::string peer = PeerOf(context);
    std::string token;
    std::string error;
    int level = 0;
    if (!device.LogIn(peer, name, password, token, level, error)) {
        if (!device.GetGuard().Blocked(peer, name).empty()) HangUp(context);
        return Fail(context, kRefused, error.c_str());
    }
    cJSON_AddStringToObject(context->json, "token", token.c_str());
    cJSON_AddNumberToObject(context->json, "level", level);
    return 0;
}

// The token of a call, or an empty text.
std::string Token(_grpc_t* context) {
    const char* token = cJSON_GetObjectValueString(Param(context), "token");
    return token != nullptr ? token : "";
}

int32_t Logout(_grpc_t* context) {
    if (Owner(context)->GetSessions().Delete(Token(context))) return 0;
    return Fail(context, kRefused, "no such token");
}

// For holders of a good token only.
int32_t SessionInfo(_grpc_t* context) {
    std::string name;
    if (!Owner(context)->GetSessions().Owner(Token(context), name))
        return Fail(context, kRefused, "the token is not good, log in again");
    cJSON_AddStringToObject(context->json, "name", name.c_str());
    return 0;
}

int32_t ChannelList(_grpc_t* context) {
    cJSON_AddItemToObject(context->json, "channels", Owner(context)->ListChannels());
    return 0;
}

// Types of the values in a status message.
enum StatusType {
    kStatusName = 1,
    kStatusUptime,
    kStatusServed,
    kStatusLoad,
    kStatusPicture,
    kStatusAreas
};

int32_t TlvStatus(_grpc_t* context) {
    HCTLV status("device.status");
    double load = 0;
    getloadavg(&load, 1);
    const TLVSize_t picture = {1920, 1080};
    const TLVRuleArea_t area = {1, 3, {{100, 100}, {800, 120}, {420, 700}}};
    status.AddStringValue(kStatusName, Owner(context)->GetConfig().name);
    status.AddUInt64Value(kStatusUptime, static_cast<uint64_t>(arch_getSystemStartupMs()));
    status.AddUInt32Value(kStatusServed, static_cast<unsigned int>(Owner(context)->m_served));
    status.AddFloatValue(kStatusLoad, static_cast<float>(load));
    status.AddSizeValue(kStatusPicture, &picture);
    status.AddRuleAreasValue(kStatusAreas, &area, 1);

    return SendTail(context, status.GetTLVBuffer(), status.GetTLVBytes());
}

// Draws a picture; the answer's binary data is a PNG.
int32_t OsdDraw(_grpc_t* context) {
    std::string png;
    std::string error;
    if (!DrawOverlay(Param(context), png, error)) return Fail(context, kBadParam, error.c_str());
    return SendTail(context, png.data(), static_cast<int>(png.size()));
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

// The same for callers whose digest is right; those that are blocked get nothing by that.
template <grpcMethodFunc handler>
int32_t Signed(_grpc_t* context) {
    const std::string blocked =
        Owner(context)->GetGuard().Judge(PeerOf(context), context->s_user, true);
    if (!blocked.empty()) return Fail(context, kRefused, blocked.c_str());
    return Served<handler>(context);
}

grpcMethod_t g_methods[] = {
    {"device_info", Signed<DeviceInfo>, 2},
    {"add", Signed<Add>, 2},
    {"upload", Signed<Upload>, 2},
    {"download", Signed<Download>, 2},
    {"account_login", Served<AccountLogin>, 2},
    {"logout", Signed<Logout>, 2},
    {"session_info", Signed<SessionInfo>, 2},
    {"channel_list", Signed<ChannelList>, 2},
    {"osd_draw", Signed<OsdDraw>, 2},
    {"tlv_status", Signed<TlvStatus>, 2},
    {"config_get", Signed<ConfigGet>, 2},
    {"config_set", Signed<ConfigSet>, 0},
    {"reset_counters", Signed<ResetCounters>, 0},
    {nullptr, nullptr, 0},
};

}  // namespace

grpcMethod_t* Methods() { return g_methods; }

}  // namespace hydevice
