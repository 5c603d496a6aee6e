#include <dlfcn.h>
#include <gtest/gtest.h>
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hybase/hlog.h>
#include <hyplatform/utl_md5.h>
#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <deque>
#include <functional>
#include <thread>

static std::atomic<int64_t> clock_us{0};
int64_t arch_gettimeofday(void) { return clock_us; }

// What happens around the mutex `watched`, one word each; null: nothing is noted.
static std::string trace;
static arch_mutex_t watched;
static std::function<void()> meanwhile;  // happens with every digest
static void Trace(const char* word) { trace += watched != nullptr ? word : ""; }

template <class Function>
static Function* Original(Function*, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
int arch_mutex_lock(arch_mutex_t mutex) {
    static auto* original = Original(arch_mutex_lock, "arch_mutex_lock");
    if (mutex == watched) Trace("(");
    return original(mutex);
}
int arch_mutex_unlock(arch_mutex_t mutex) {
    static auto* original = Original(arch_mutex_unlock, "arch_mutex_unlock");
    if (mutex == watched) Trace(")");
    return original(mutex);
}
void utl_md5_init(utl_md5_ctx_t* md5) {
    static auto* original = Original(utl_md5_init, "utl_md5_init");
    Trace("digest ");
    if (watched != nullptr) meanwhile();
    original(md5);
}
#ifdef __GLIBC__
static int trims;
__attribute__((visibility("default"))) int malloc_trim(size_t) noexcept {
    Trace("trim ");
    return trims++;
}
#endif
// Memory that the engine takes while it holds the mutex is work that others wait for.
static void* TracedMalloc(size_t size) {
    if (!trace.empty() && trace.back() == '(') Trace("malloc ");
    return malloc(size);
}

using namespace std::string_literals;

namespace {

std::atomic<int> calls, nap_us;
std::string seen;  // by the last handler, before and after its nap

std::string See(_grpc_t* ctx) {
    char thread[16] = "";
    pthread_getname_np(pthread_self(), thread, sizeof thread);
    return thread + " "s + std::to_string(ctx->errcode) + " " + ctx->errmsg + ";";
}
int32_t Note(_grpc_t* ctx) {
    const char* before = grpc_strdup(ctx, See(ctx).c_str());
    calls++;
    usleep(static_cast<useconds_t>(nap_us));
    seen = grpc_strdup(ctx, before) + See(ctx);
    return 0;
}
int32_t Echo(_grpc_t* ctx) {
    int32_t length = 0;
    const void* tail = grpc_get_recv_bindata(ctx, &length);
    grpc_set_send_bindata(ctx, tail, length);
    return 0;
}
// Whoever reports the failure must not look into the tree that is gone.
int32_t Fail(_grpc_t* ctx) {
    cJSON_Delete(std::exchange(ctx->json, cJSON_CreateObject()));
    return grpc_s_set_error(ctx, -5, "bad") + 3;
}
grpcMethod_t rows[] = {{"add", nullptr, 0},  {"add", Note, 1},  {"echo", Echo, 1},
                       {"top", Echo, 0},     {"fail", Fail, 1}, {"account_login", Echo, 0},
                       {nullptr, nullptr, 0}};
const char kAdd[] = R"({"method":"add"})";

// What `action` prints to standard output.
std::string Printed(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

// A context whose transport is memory: what it sends is kept, what it receives is laid out before.
struct Peer {
    explicit Peer(int32_t timeout = 0) {
        grpcParam_t param{timeout, this, Send, Receive, rows, rows, nullptr};
        grpc_init(ctx, &param);
        calls = nap_us = 0;
    }
    ~Peer() { grpc_delete(ctx); }
    static int32_t Send(_grpc_t* ctx, const char* data, int32_t len) {
        static_cast<Peer*>(ctx->userparam)->sent.assign(data, static_cast<size_t>(len));
        return len;
    }
    static int32_t Receive(_grpc_t* ctx, char* buf, int32_t size, void* opaque) {
        auto* peer = static_cast<Peer*>(ctx->userparam);
        peer->word = opaque != nullptr ? (*static_cast<int32_t*>(opaque))++ : -1;
        if (peer->inbox.empty()) return -7;
        std::string message = peer->inbox.front();
        peer->inbox.pop_front();
        message.copy(buf, static_cast<size_t>(size));
        return static_cast<int32_t>(message.size());
    }
    // What serving prints, its result, and the response.
    std::string Serve(const std::string& text) {
        return Printed([&] {
            printf("%d ", grpc_s_serve_without_send(ctx, text.c_str(), 0));
            char* response = cJSON_PrintUnformatted(ctx->json);
            if (response != nullptr) printf("%s", response);
            cJSON_free(response);
        });
    }
    std::string Request(const std::string& text) {
        ctx->json = cJSON_Parse(text.c_str());
        grpc_c_send(ctx);
        grpc_end(ctx);
        return sent;
    }
    int32_t Deliver(const std::string& text) { return grpc_c_resp_direct(ctx, text.c_str(), 0); }

    _grpc_t* ctx = grpc_new();
    std::string sent;               // the last message
    std::deque<std::string> inbox;  // when it is empty nothing comes, -7
    int32_t word = 0;  // what the last reception found at its opaque argument, -1 for none
};

TEST(JsonValue, GivesMembersOfTheRightTypeAndFallbacksForTheRest) {
    cJSON* root = cJSON_Parse(R"({"Num":7.5,"text":"5","yes":true,"nil":null})");
    cJSON_AddItemToObjectCS(root, "flagged", cJSON_CreateTrue());
    std::string values = Printed([&] {
        for (const char* key : {"num", "text", "yes", "nil", "flagged"})
            printf("%d,%g,%d,%s ", cJSON_GetObjectValueInt(root, key),
                   cJSON_GetObjectValueDouble(root, key), cJSON_GetObjectValueBool(root, key),
                   cJSON_GetObjectValueString(root, key));
    });
    EXPECT_EQ(values, "7,7.5,0,(null) -1,0,0,5 -1,0,1,(null) -1,0,0,(null) -1,0,0,(null) ");
    cJSON_Delete(root);
}

// The test suite of RFC 1321, appendix A.5: in one piece, and in pieces that blocks do not end
// with.
TEST(Md5, GivesTheDigestsOfRfc1321) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
        {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"},
    };
    for (const auto& [text, expected] : cases) {
        for (const size_t piece : {size_t{1000000}, size_t{7}}) {
            utl_md5_ctx_t md5;
            unsigned char digest[17] = {};
            utl_md5_init(&md5);
            utl_md5_update(&md5, "left over", 9);
            utl_md5_init(&md5);  // begins anew
            utl_md5_update(&md5, nullptr, 0);
            for (size_t at = 0; at < text.size(); at += piece)
                utl_md5_update(&md5, &text[at], std::min(piece, text.size() - at));
            utl_md5_final(&md5, digest);
            char hex[33];
            for (int i = 0; i < 16; i++) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
            EXPECT_STREQ(hex, expected) << text.size();
            EXPECT_EQ(digest[16], 0);
        }
    }
}

TEST(GrpcServer, AnswersWithTheRequestTreeAndAnErrorObject) {
    const char* cases[][2] = {
        {R"({"method":"add","param":{"a":[1]},"error":1,"sentcnt":7})",
         R"(0 {"method":"add","error":1,"sentcnt":7,"error":{"errorcode":0}})"},
        {R"([4])", R"(-1 [4,{"errorcode":-32600,"message":"unknown method"}])"},
        {R"({"method":"Add"})",
         R"(-1 {"method":"Add","error":{"errorcode":-32601,"message":"Method not found"}})"},
        {R"({"method":"fail"})", R"(3 {"error":{"errorcode":-5,"message":"bad"}})"},
        {"{oops", "ERROR: Failed Parse Message:\n{oops\n\n-1 "}};
    Peer server;
    for (const auto& c : cases) EXPECT_EQ(server.Serve(c[0]), c[1]);
}

TEST(GrpcServer, ChecksDigestsAndLevelsOfThirtyTwoAccounts) {
    const char kNo[] = R"(-32605 {"errorcode":-32605,"message":"No User or Error Passwd"}})";
    const char kNoPower[] = "leve;1, 0\n-32604 {\"errorcode\":-32604,\"message\":\"No Power\"}}";
    const char* cases[][4] = {
        {"account_login", "", "", R"(0 {"errorcode":0}})"},
        {"add", "bob", "f3a98cb36cffce7c2111deb193f1a98d", kNo},
        {"add", "bob", "F3A98CB36CFFCE7C2111DEB193F1A98C", kNo},
        {"add", "bob", "f3a98cb36cffce7c2111deb193f1a98", kNo},
        // Characters that plain arithmetic on four bits would take for the right ones.
        {"add", "bob", "v3a98cb36cffce7c2111deb193f1a98c", kNo},
        {"add", "bob", "f3a98cb36c:fce7c2111deb193f1a98c", kNo},
        {"add", "bob", "f3a98cb36cf:ce7c2111deb193f1a98c", kNo},
        {"add", "bob", "f3a98cb36cffce7c2111deb193f1a98c+", "leve;1, 1\n0 {\"errorcode\":0}}"},
        {"top", "bob", "0900b19b756330a463ca1afa90c38e81", kNoPower},
        // The last record is overwritten by look-ups, and keeps its level when they fail; the
        // password is then an empty one.
        {"add", "last", "5cd728960021f735a1c468964e06cfdf", "leve;1, 1\n0 {\"errorcode\":0}}"},
        {"top", "nobody", "77bc0418a6690741213d1cbbcac18d34", kNoPower},
        {"add", "last", "5cd728960021f735a1c468964e06cfdf", kNo},
        {"top", "hookpw", "ddbb3903ab2aa0285d74fcbd74662555", "leve;0, 0\n0 {\"errorcode\":0}}"},
        {"top", "nobody", "77bc0418a6690741213d1cbbcac18d34", "leve;0, 0\n0 {\"errorcode\":0}}"}};
    Peer server;
    server.ctx->get_passwd = [](const char* name, char* passwd) {
        return strcmp(name, strcpy(passwd, "hookpw"));  // the only one it knows
    };
    grpcAccount_t bob{"bob", "pw72", 1}, last{"last", "pw", 1};
    for (int i = 0; i < 32; i++)
        EXPECT_EQ(grpc_s_account_add(server.ctx, i < 31 ? &bob : &last), 0);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(grpc_s_account_add(server.ctx, &last), -1); }),
              "error: too many user setted: 32\n");
    for (const auto& c : cases) {
        std::string call = R"({"method":")"s.append(c[0]).append(R"(","user":{"name":")");
        call.append(c[1]).append(R"(","digest":")").append(c[2]).append("\"}}");
        std::string answer = server.Serve(call);
        size_t tree = answer.find('{');
        EXPECT_EQ(answer.erase(tree, answer.find("\"error\":") + 8 - tree), c[3]) << c[1] << c[2];
    }
    EXPECT_EQ(calls, 2);  // the accepted ones
    EXPECT_STREQ(server.ctx->s_user, "nobody");
    EXPECT_EQ(server.Serve(R"({"method":"add","user":{"name":"bob"}})").substr(0, 6), "-32605");
    grpc_s_account_clear(server.ctx);
    EXPECT_EQ(server.Serve(R"({"method":"add"})").substr(0, 2), "0 ");
}

TEST(GrpcServer, HoldsTheSharedMutexForTheAccountsAndTheHandlerOnly) {
    // The method, the caller, his digest; what happens, and the code of the response.
    const char* cases[][5] = {
        {"account_login", "carl", "-", "(handler )send ", "0"},
        {"odd", "carl", "-", "()send ", "-32601"},
        {"add", "carl", "-", "()digest send ", "-32605"},
        {"add", "carl", "20cbdb4fc0cddb55502d7519826fb298", "()digest print (handler )send ", "0"},
        {"top", "carl", "e18dac70a5ea945465d88bf2cfe20e31", "()digest print send ", "-32604"},
        {"add", "dora", "-", "(passwd )digest send ", "-32605"},
        // Unbound while the digest is computed; then another row of the name may take its place.
        {"gone", "carl", "41279e0ebc0b9eb5c416d162c5853ce0", "()digest print ()send ", "-32601"},
        {"moved", "carl", "7e8401186c12c06aab4556a946d522d4", "()digest print ()send ", "-32604"}};
    auto handler = [](_grpc_t*) { return Trace("handler "), 0; };
    grpcMethod_t table[] = {{"account_login", handler, 0}, {"add", handler, 1},
                            {"top", handler, 0},           {"gone", handler, 1},
                            {"moved", handler, 1},         {"moved", handler, 0},
                            {nullptr, nullptr, 0}};
    cJSON_Hooks traced{TracedMalloc, free};
    cJSON_InitHooks(&traced);
    Peer server;
    server.ctx->s_methods = table;
    server.ctx->get_passwd = [](const char*, char*) { return Trace("passwd "), -1; };
    server.ctx->send = [](_grpc_t* ctx, const char* data, int32_t len) {
        return Trace("send "), Peer::Send(ctx, data, len);
    };
    grpcAccount_t carl{"carl", "pw", 1};
    grpc_s_account_add(server.ctx, &carl);
    arch_mutex_t mutex = arch_mutex_create();
    auto bind = [&](grpcMethodFunc func) {
        for (const char* name : {"gone", "moved"}) grpc_set_method(table, name, func);
    };
    meanwhile = [&] { bind(nullptr); };
    for (const auto& c : cases) {
        std::string call = R"({"method":")"s + c[0] + R"(","user":{"name":")" + c[1] +
                           R"(","digest":")" + c[2] + "\"}}";
        trace.clear();
        bind(handler);
        watched = mutex;
        hlog_set_print([](const char*, int32_t) { Trace("print "); });
        grpc_s_serve_locked(server.ctx, call.c_str(), 0, mutex);
        hlog_set_print(nullptr);
        watched = nullptr;
        EXPECT_EQ(trace, c[3]) << call;
        EXPECT_NE(server.sent.find(R"("errorcode":)"s + c[4]), std::string::npos) << server.sent;
    }
    cJSON_InitHooks(nullptr);
    arch_mutex_delete(mutex);
}

#ifdef __GLIBC__
TEST(GrpcServer, LargeMessagesGiveTheMemoryOfTheirTreesBack) {
    Peer peer;
    auto trims_of = [&](int32_t (*take)(_grpc_t*, const char*, int32_t), size_t size, char end) {
        std::string text = R"({"method":"account_login","x":")";
        text.append(size - text.size() - 2, 'x').append("\"").push_back(end);
        trims = 0;
        Printed([&] { take(peer.ctx, text.c_str(), static_cast<int32_t>(size)); });
        return trims;
    };
    for (auto take : {grpc_s_serve_direct, grpc_c_resp_direct}) {
        EXPECT_EQ(trims_of(take, (1 << 20) - 1, '}'), 0);
        EXPECT_EQ(trims_of(take, 1 << 20, '}'), 1);
        EXPECT_EQ(trims_of(take, 1 << 20, '!'), 1);
    }
}
#endif

TEST(GrpcServer, BinaryTailsTravelBehindOneZeroByte) {
    const std::string text = R"({"method":"echo","sentcnt":4})", tail = "\0\0a\xff\0"s;
    const std::string answer = R"({"method":"echo","sentcnt":4,"error":{"errorcode":0}})";
    Peer server;
    // The last message has a terminator alone, which leaves the tail noted.
    server.inbox = {text, text + "\0"s, text + tail, text + "\0"s};
    for (const auto& expected : {answer, answer, answer + tail, answer + tail}) {
        EXPECT_EQ(grpc_s_serve(server.ctx), static_cast<int32_t>(expected.size()));
        EXPECT_EQ(server.sent, expected);
    }
    EXPECT_EQ(server.word, -1);
    EXPECT_EQ(grpc_s_serve_direct(server.ctx, "[]", 2), 51);  // nothing behind this one
}

TEST(GrpcServer, TailsDieWithTheirMessage) {
    Peer server;
    // A handler that takes the tree and leaves a tail: no response, and no tail for the next one.
    server.ctx->s_methods[0].func = [](_grpc_t* ctx) {
        cJSON_Delete(std::exchange(ctx->json, nullptr));
        return grpc_set_send_bindata(ctx, grpc_strdup(ctx, "tail"), 4), 0;
    };
    EXPECT_EQ(grpc_s_serve_direct(server.ctx, kAdd, 0), -1);
    EXPECT_EQ(grpc_s_serve_direct(server.ctx, "[]", 2), 51);
    // Freed with its block where the owner sends no response; what he set elsewhere waits on.
    grpc_s_serve_without_send(server.ctx, kAdd, 0);
    grpc_end(server.ctx);
    EXPECT_EQ(grpc_s_serve_direct(server.ctx, "[]", 2), 51);
    grpc_malloc(server.ctx, 9);
    grpc_set_send_bindata(server.ctx, "tail", 4);
    grpc_end(server.ctx);
    EXPECT_EQ(grpc_s_serve_direct(server.ctx, "[]", 2), 56);
    rows[0].func = nullptr;
}

TEST(GrpcServer, DeepTextsFitTheStackOfAThreadAndDeeperOnesAreRefused) {
    auto serve = [](void*) -> void* {
        Peer server;
        for (size_t depth : {998, 1000}) {
            std::string text = "{\"x\":" + std::string(depth, '[') + std::string(depth, ']');
            std::string expected = depth == 998 ? "-1 " + text : "ERROR: Failed Parse";
            EXPECT_EQ(server.Serve(text + "}").rfind(expected, 0), 0u);
        }
        return nullptr;
    };
    EXPECT_EQ(arch_thread_join(arch_thread_create("deep", serve, nullptr), nullptr), 0);
}

TEST(GrpcContext, SurvivesAFullBufferAndMissingHooksAndSaysSo) {
    Peer server;
    EXPECT_EQ(server.ctx->buflen, 131072);
    grpc_adjust_buffer_len(server.ctx, 17);
    server.inbox = {R"({"method":"echo"})", R"({"method":"echo"} and what does not fit)"};
    while (!server.inbox.empty()) EXPECT_EQ(grpc_s_serve(server.ctx), 53);
    server.ctx->send = nullptr;
    std::string printed = Printed([&] {
        grpc_adjust_buffer_len(server.ctx, -1);
        EXPECT_EQ(grpc_s_serve(server.ctx), -1);
        server.ctx->recv = nullptr;
        errno = 0;
        EXPECT_EQ(grpc_s_serve_direct(server.ctx, "[]", 2), 0);
        EXPECT_EQ(grpc_s_serve(server.ctx), -1);
    });
    EXPECT_EQ(printed,
              "malloc failed : 12\nsend error: send func not setted\n"
              "send error  : Success, ret: 0, tosend: 51\nrecv error: recv func not setted\n");
}

TEST(GrpcContext, KeepsWhatItIsGivenForItsLifeOrForTheCycle) {
    Peer peer;
    EXPECT_EQ(grpc_set_connection_info(peer.ctx, {"10.0.0.9", 81, "TCP"}), 0);
    EXPECT_EQ(grpc_init(peer.ctx, nullptr), 0);
    EXPECT_STREQ(grpc_get_connection_info(peer.ctx).proto, "TCP");
    EXPECT_EQ(grpc_get_connection_info(nullptr).port, 0);
    grpcMethod_t table[] = {{"x", nullptr, 0}, {"x", Note, 0}, {nullptr, nullptr, 0}};
    EXPECT_EQ(grpc_set_method(table, "x", Echo), 0);
    EXPECT_EQ(table[0].func, Echo);
    EXPECT_EQ(grpc_set_method(table, "nope", Echo), -1);

    for (int32_t size : {0, -1, INT_MAX}) EXPECT_EQ(grpc_malloc(peer.ctx, size), nullptr);
    grpc_s_set_error(peer.ctx, 4, grpc_strdup(peer.ctx, std::string(300, 'x').c_str()));
    EXPECT_EQ(peer.ctx->errmsg, std::string(255, 'x'));
    EXPECT_EQ(memcmp(grpc_zalloc(peer.ctx, 5), "\0\0\0\0", 5), 0);
    EXPECT_EQ(peer.ctx->mem_list->magic, 0xacac5c5cu);
    EXPECT_EQ(peer.ctx->mem_list->size, sizeof(void*) == 4 ? 17 : 21);
    grpc_end(peer.ctx);
    EXPECT_EQ(peer.ctx->mem_list, nullptr);
}

TEST(GrpcContext, AnyThreadMayReadAndWriteThePeer) {
    Peer peer;
    auto use = [&](char letter) {
        grpcConnInfo_t info{};
        memset(info.addr, letter, sizeof info.addr);
        for (int i = 0; i < 20000; i++) {
            grpc_set_connection_info(peer.ctx, info);
            grpcConnInfo_t other = grpc_get_connection_info(peer.ctx);
            ASSERT_EQ(other.addr[0], other.addr[sizeof other.addr - 1]);
        }
    };
    std::thread other(use, 'b');
    use('a');
    other.join();
}

TEST(GrpcContext, TwoThreadsMayComeFirstToTheLock) {
    for (int i = 0; i < 200; i++) {
        Peer peer;
        int value = 0;
        auto count = [&] { grpc_lock(peer.ctx), value++, grpc_unlock(peer.ctx); };
        std::thread other(count);
        count();
        other.join();
        EXPECT_EQ(value, 2);
    }
}

TEST(GrpcClient, NumbersAndSignsItsRequests) {
    Peer client;
    EXPECT_EQ(grpc_c_send(client.ctx), -1);  // nothing to send, counted all the same
    EXPECT_EQ(client.Request(kAdd), R"({"method":"add","sentcnt":2})");
    grpcAccount_t account{"bob", "secret", 2};
    EXPECT_EQ(grpc_c_account_set(client.ctx, &account), 0);
    EXPECT_STREQ(grpc_c_account_get(client.ctx).passwd, "secret");
    client.ctx->sentcnt = INT_MAX;
    grpc_set_send_bindata(client.ctx, "\0b", 2);
    const std::string user = R"("user":{"name":"bob","digest":")";
    EXPECT_EQ(client.Request(kAdd), R"({"method":"add","sentcnt":-2147483648,)" + user +
                                        "ea8823690334ce862888fd16ef98a70c\"}}\0\0b"s);
    EXPECT_EQ(client.Request("{}"),
              R"({"sentcnt":-2147483647,)" + user + "de3d9451c238b5949ad3597a6a682628\"}}");
}

TEST(GrpcClient, TakesTheRightResponseOfTwentyAndReportsWhatItCannotUse) {
    const char* cases[][2] = {{R"({"errorcode":-5,"message":"bad"})", "-5 bad;"},
                              {R"({"errorcode":-1,"errcode":9})", "9 ;"},
                              {R"({"errorcode":3,"errcode":9})", "3 ;"},
                              {"5", "0 ;"}};
    const std::string stale = R"({"sentcnt":-1})";
    Peer client(1);
    for (const auto& c : cases) {
        const std::string text = R"({"method":"add","sentcnt":0,"error":)"s + c[0] + "}";
        grpc_s_set_error(client.ctx, 99, "old");
        client.inbox.assign(19, stale);
        client.inbox.push_back(text + "\0tail"s);
        EXPECT_EQ(grpc_c_recv(client.ctx), 0);
        EXPECT_EQ(client.word, 19);  // one word, zero at first, kept across the receptions
        EXPECT_NE(See(client.ctx).find(" "s + c[1]), std::string::npos) << c[0];
        EXPECT_STREQ(static_cast<char*>(grpc_get_recv_bindata(client.ctx, nullptr)), "tail");
        EXPECT_EQ(client.Deliver(text), 0);
        EXPECT_EQ(seen, See(client.ctx) + See(client.ctx));
    }
    client.inbox.assign(20, stale);
    client.inbox.push_back("{oops");
    std::string printed = Printed([&] {
        for (int32_t result : {-32010, -32700, -7}) EXPECT_EQ(grpc_c_recv(client.ctx), result);
        client.Request(kAdd);
        for (const char* text : {R"({"method":"odd"})", R"({"sentcnt":1})", R"({"method":"fail"})"})
            EXPECT_EQ(client.Deliver(text), 0);
        EXPECT_EQ(client.ctx->json, nullptr);
        EXPECT_EQ(client.Deliver("{oops"), -1);
    });
    EXPECT_EQ(printed,
              "ERROR: trycnt out json: {\"sentcnt\":-1}\nERROR: Failed parse json: {oops\n"
              "ERROR: grpc_c_resp_direct Failed find method: odd\n"
              "ERROR: grpc_c_resp_direct Failed find method: (null)\n"
              "ERROR: grpc_c_resp_direct Failed in method: fail, with ret: 3\n"
              "ERROR: Failed Parse Message:\n{oops\n\n");
}

TEST(GrpcTimeout, ResponsesSettleTheRequestOfTheirNumberAndMethodAndDeletionTheRest) {
    int64_t start = arch_getSystemStartupMs();
    for (int i = 0; i < 10; i++) {
        Peer client(1);
        for (const char* text : {kAdd, R"({"method":"echo"})", kAdd, kAdd}) client.Request(text);
        for (const char* sentcnt : {"9", "2", "1", "4"})
            client.Deliver(R"({"method":"add","sentcnt":)"s + sentcnt + "}");
        client.Request(R"({"method":")" + std::string(70, 'm') + "\"}");
        EXPECT_EQ(client.ctx->pending->sentcnt, 2);
        EXPECT_EQ(client.ctx->pending->next->sentcnt, 3);
        EXPECT_EQ(client.ctx->pending->next->next->method, std::string(63, 'm'));
        usleep(20000);  // the thread has gone to sleep by now, and must not be waited for
    }
    EXPECT_LT(arch_getSystemStartupMs() - start, 5000);
}

TEST(GrpcTimeout, ASendTakesAsLongWhateverIsOpen) {
    Peer client(1);
    auto cpu_time_of_sends = [&](int count) {
        clock_t start = clock();
        while (count-- > 0) client.Request(kAdd);
        return clock() - start;
    };
    clock_t first = cpu_time_of_sends(2000);
    cpu_time_of_sends(36000);
    EXPECT_LT(cpu_time_of_sends(2000), 10 * first);
}

TEST(GrpcTimeout, OverdueRequestsFailInOrderWithNothingElseGoingOn) {
    clock_us = 100;
    Peer client(1);
    for (const char* text : {R"({"method":"nobody handles this"})", kAdd}) client.Request(text);
    for (int64_t sent : {101, 102}) {
        clock_us = sent;
        client.Request(kAdd);
    }
    nap_us = 50000;
    clock_us = 5000100;
    while (calls < 1) usleep(10000);
    // The handler sleeps: its memory stays, and a late response waits until it is done.
    grpc_malloc(client.ctx, 1);
    grpc_end(client.ctx);
    Printed([&] { client.Deliver(R"({"method":"fail","sentcnt":2})"); });
    EXPECT_EQ(client.ctx->errcode, -5);
    EXPECT_EQ(seen, "grpcTimeout -32010 Timeout;grpcTimeout -32010 Timeout;");
    EXPECT_EQ(client.ctx->pending->sentcnt, 3);
    seen.clear();
    clock_us = 5000101;
    while (calls < 2) usleep(10000);
    // So does a request that this end serves itself.
    EXPECT_EQ(client.Serve(R"({"method":"fail"})"),
              R"(3 {"error":{"errorcode":-5,"message":"bad"}})");
    EXPECT_EQ(seen, "grpcTimeout -32010 Timeout;grpcTimeout -32010 Timeout;");
    clock_us = 5000102;
    while (calls < 3) usleep(10000);  // and into the destructor, while the handler sleeps
}

}  // namespace
