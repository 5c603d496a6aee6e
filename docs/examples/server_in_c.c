// docs/examples/server_in_c.c
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <sys/socket.h>

static int32_t Add(_grpc_t* ctx) {
    const cJSON* param = cJSON_GetObjectItem(ctx->json, "param");
    int sum = cJSON_GetObjectValueInt(param, "a") + cJSON_GetObjectValueInt(param, "b");
    cJSON_AddNumberToObject(ctx->json, "sum", sum);
    return 0;
}

static int32_t Send(_grpc_t* ctx, const char* data, int32_t len) {
    return (int32_t)send(*(int*)ctx->userparam, data, (size_t)len, MSG_NOSIGNAL);
}

static int32_t Receive(_grpc_t* ctx, char* buf, int32_t size, void* opaque) {
    (void)opaque;
    return (int32_t)recv(*(int*)ctx->userparam, buf, (size_t)size, 0);
}

static grpcMethod_t g_methods[] = {{"add", Add, 0}, {NULL, NULL, 0}};

int main(void) {
    int fd = 0;  // standard input is a socket that keeps messages apart
    grpcParam_t param = {.userparam = &fd, .send = Send, .recv = Receive, .s_methods = g_methods};
    _grpc_t* ctx = grpc_new();
    if (grpc_init(ctx, &param) != 0) return 1;
    while (grpc_s_serve(ctx) > 0) continue;
    return grpc_delete(ctx);
}
