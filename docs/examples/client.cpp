// docs/examples/client.cpp
#include <hybase/cjson_value.h>
#include <hybase/hcutil/HCTCPGrpcClient.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static sem_t g_answered;
static int g_errcode;

// Runs on the connection's thread when the response is there.
static int32_t OnAdd(_grpc_t* ctx) {
    g_errcode = ctx->errcode;
    if (g_errcode == 0) printf("40 + 2 = %d\n", cJSON_GetObjectValueInt(ctx->json, "sum"));
    if (g_errcode != 0) printf("error %d: %s\n", g_errcode, ctx->errmsg);
    sem_post(&g_answered);
    return 0;
}

static grpcMethod_t g_methods[] = {{"add", OnAdd, 0}, {nullptr, nullptr, 0}};

int main(int argc, char** argv) {
    int port = argc > 1 ? atoi(argv[1]) : 8600;
    signal(SIGPIPE, SIG_IGN);
    sem_init(&g_answered, 0, 0);
    HCTCPGrpcClient client;
    client.Start(g_methods, 10240, "127.0.0.1", port, false);

    grpc_lock(client.m_pGrpc);
    grpcAccount_t guest = {"guest", "guest-secret", 2};
    grpc_c_account_set(client.m_pGrpc, &guest);
    client.m_pGrpc->json = cJSON_Parse("{\"method\": \"add\", \"param\": {\"a\": 40, \"b\": 2}}");
    bool sent = grpc_c_send(client.m_pGrpc) > 0;
    grpc_end(client.m_pGrpc);
    grpc_unlock(client.m_pGrpc);

    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 5;
    bool answered = sent && sem_timedwait(&g_answered, &deadline) == 0;
    if (!answered) puts("no answer");
    return answered && g_errcode == 0 ? 0 : 1;
}
