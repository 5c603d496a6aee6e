// docs/examples/server.cpp
#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCTCPGrpcServer.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

static int32_t Add(_grpc_t* ctx) {
    const cJSON* param = cJSON_GetObjectItem(ctx->json, "param");
    int sum = cJSON_GetObjectValueInt(param, "a") + cJSON_GetObjectValueInt(param, "b");
    cJSON_AddNumberToObject(ctx->json, "sum", sum);
    return 0;
}

static grpcMethod_t g_methods[] = {{"add", Add, 2}, {nullptr, nullptr, 0}};

int main(int argc, char** argv) {
    int port = argc > 1 ? atoi(argv[1]) : 8600;
    signal(SIGPIPE, SIG_IGN);
    HCTCPGrpcServer server;
    grpcUser_t guest = {"guest", "guest-secret", 2};
    server.AddAccountItem(guest);
    if (server.StartService(g_methods, 10240, "127.0.0.1", port) != 0) return 1;
    pause();
}
