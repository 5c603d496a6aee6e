// Serving one request in memory: parsed, its digest checked, the method called, the response
// printed. Beside it the least that any server of such requests has to do.
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hyplatform/utl_md5.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "compare.h"

namespace {

constexpr char kWhat[] = "serving one request in memory";
constexpr char kSigned[] = "guestaddguest-secret";  // name, method, password

std::string g_sent;  // the last response

std::string Md5Hex(const char* text) {
    utl_md5_ctx_t md5;
    unsigned char digest[16];
    utl_md5_init(&md5);
    utl_md5_update(&md5, text, strlen(text));
    utl_md5_final(&md5, digest);
    char hex[sizeof digest * 2 + 1];
    for (size_t i = 0; i < sizeof digest; ++i) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

std::string MakeRequest() {
    return R"({"method":"add","param":{"a":40,"b":2},"sentcnt":7,"user":{"name":"guest","digest":")" +
           Md5Hex(kSigned) + R"("}})";
}

int32_t Add(_grpc_t* ctx) {
    const cJSON* param = cJSON_GetObjectItem(ctx->json, "param");
    const int sum = cJSON_GetObjectValueInt(param, "a") + cJSON_GetObjectValueInt(param, "b");
    cJSON_AddNumberToObject(ctx->json, "sum", sum);
    return 0;
}

int32_t Keep(_grpc_t*, const char* data, int32_t len) {
    g_sent.assign(data, static_cast<size_t>(len));
    return len;
}

void Hybase(benchmark::State& state, const std::string& request) {
    grpcMethod_t methods[] = {{"add", Add, 2}, {nullptr, nullptr, 0}};
    const grpcAccount_t guest = {"guest", "guest-secret", 2};
    grpcParam_t param = {};
    param.send = Keep;
    param.s_methods = methods;
    _grpc_t* ctx = grpc_new();
    grpc_init(ctx, &param);
    grpc_s_account_add(ctx, &guest);
    for (auto _ : state)
        grpc_s_serve_direct(ctx, request.c_str(), static_cast<int32_t>(request.size()));
    grpc_delete(ctx);
    const char* right = R"("sum":42,"error":{"errorcode":0}})";
    Require(state, g_sent.find(right) != std::string::npos, "wrong response");
}

void Least(benchmark::State& state, const std::string& request) {
    for (auto _ : state) {
        cJSON* tree = cJSON_Parse(request.c_str());
        char* text = cJSON_PrintUnformatted(tree);
        cJSON_Delete(tree);
        g_sent.assign(text);
        cJSON_free(text);
        utl_md5_ctx_t md5;
        unsigned char digest[16];
        utl_md5_init(&md5);
        utl_md5_update(&md5, kSigned, sizeof kSigned - 1);
        utl_md5_final(&md5, digest);
        benchmark::DoNotOptimize(digest);
    }
    Require(state, g_sent == request, "wrong text");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string request = MakeRequest();
    Compare(kWhat, kOurs, [&](benchmark::State& state) { Hybase(state, request); });
    Compare(
        kWhat, "(limit) cJSON parse, print, free; MD5",
        [&](benchmark::State& state) { Least(state, request); }, 1.25);
    return RunComparisons(argc, argv);
}
