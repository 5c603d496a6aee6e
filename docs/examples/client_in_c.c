// docs/examples/client_in_c.c
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

static int32_t Send(_grpc_t* ctx, const char* data, int32_t len) {
    return (int32_t)send(*(int*)ctx->userparam, data, (size_t)len, MSG_NOSIGNAL);
}

static int32_t Receive(_grpc_t* ctx, char* buf, int32_t size, void* opaque) {
    (void)opaque;
    return (int32_t)recv(*(int*)ctx->userparam, buf, (size_t)size, 0);
}

// client_in_c SERVER [ARGUMENT]...: starts the server as a process of its own and calls it.
int main(int argc, char** argv) {
    int ends[2];
    if (argc < 2 || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return 1;
    if (fork() == 0) {
        dup2(ends[1], 0);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    close(ends[1]);

    grpcParam_t param = {.userparam = &ends[0], .send = Send, .recv = Receive};
    _grpc_t* ctx = grpc_new();
    if (grpc_init(ctx, &param) != 0) return 1;
    ctx->json = cJSON_Parse("{\"method\": \"add\", \"param\": {\"a\": 40, \"b\": 2}}");
    int failed = grpc_c_send(ctx) <= 0;
    grpc_end(ctx);
    if (!failed) failed = grpc_c_recv(ctx) != 0 || ctx->errcode != 0;
    if (!failed) printf("40 + 2 = %d\n", cJSON_GetObjectValueInt(ctx->json, "sum"));
    grpc_delete(ctx);
    return failed;
}
