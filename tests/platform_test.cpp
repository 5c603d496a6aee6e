#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>

#include <string>

#include "hyplatform/arch.h"
#include "hyplatform/utl_md5.h"

namespace {

std::string Md5Hex(const std::string& text, size_t piece) {
    utl_md5_ctx_t ctx;
    utl_md5_init(&ctx);
    for (size_t at = 0; at < text.size(); at += piece)
        utl_md5_update(&ctx, text.data() + at, std::min(piece, text.size() - at));
    unsigned char digest[16];
    utl_md5_final(&ctx, digest);
    char hex[33];
    for (int i = 0; i < 16; i++) snprintf(hex + 2 * i, 3, "%02x", digest[i]);
    return hex;
}

// The test suite of RFC 1321, appendix A.5.
TEST(PlatformMd5, GivesTheDigestsOfRfc1321) {
    const struct {
        const char* text;
        const char* digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Md5Hex(c.text, 1000), c.digest) << c.text;
        EXPECT_EQ(Md5Hex(c.text, 7), c.digest) << c.text;
    }
}

TEST(PlatformClock, WallClocksAgreeAndUptimeNeverGoesBack) {
    int64_t before = arch_getSystemStartupMs();
    for (int i = 0; i < 10000; i++) {
        int64_t now = arch_getSystemStartupMs();
        ASSERT_GE(now, before);
        before = now;
    }
    EXPECT_NEAR(static_cast<double>(arch_time()), arch_gettimeofday() / 1e6, 2.0);
}

struct Seen {
    char name[16];
    size_t stack_bytes;
};

void* LookAtOwnThread(void* param) {
    auto* seen = static_cast<Seen*>(param);
    pthread_getname_np(pthread_self(), seen->name, sizeof seen->name);
    pthread_attr_t attr;
    pthread_getattr_np(pthread_self(), &attr);
    pthread_attr_getstacksize(&attr, &seen->stack_bytes);
    pthread_attr_destroy(&attr);
    return seen;
}

TEST(PlatformThread, HasItsNameABoundedStackAndAnExitValue) {
    // 32 bytes without a terminator, as thread objects may hand them over.
    char block[32];
    memset(block, 'n', sizeof block);
    const struct {
        const char* given;
        const char* shown;
    } cases[] = {{"NetPackage", "NetPackage"}, {nullptr, ""}, {block, "nnnnnnnnnnnnnnn"}};
    for (const auto& c : cases) {
        Seen seen{};
        arch_thread_t thread = arch_thread_create(c.given, LookAtOwnThread, &seen);
        ASSERT_NE(thread, nullptr);
        void* result = nullptr;
        EXPECT_EQ(arch_thread_join(thread, &result), 0);
        EXPECT_EQ(result, &seen);
        EXPECT_STREQ(seen.name, c.shown);
        EXPECT_GE(seen.stack_bytes, 256u * 1024);
        EXPECT_LE(seen.stack_bytes, 2048u * 1024);
    }
}

TEST(PlatformThread, NullArgumentsAreRefused) {
    EXPECT_EQ(arch_thread_create("x", nullptr, nullptr), nullptr);
    EXPECT_EQ(arch_thread_join(nullptr, nullptr), -1);
    EXPECT_EQ(arch_thread_setname(nullptr), -1);
    EXPECT_EQ(arch_mutex_lock(nullptr), -1);
    EXPECT_EQ(arch_mutex_unlock(nullptr), -1);
    EXPECT_EQ(arch_mutex_delete(nullptr), -1);
    EXPECT_EQ(arch_rand_bytes(nullptr, 1), -1);
}

struct Counter {
    arch_mutex_t mutex = arch_mutex_create();
    int value = 0;
};

void* CountUp(void* param) {
    auto* counter = static_cast<Counter*>(param);
    for (int i = 0; i < 20000; i++) {
        arch_mutex_lock(counter->mutex);
        counter->value++;
        arch_mutex_unlock(counter->mutex);
    }
    return nullptr;
}

TEST(PlatformMutex, KeepsThreadsApart) {
    Counter counter;
    arch_thread_t threads[4];
    for (auto& thread : threads) thread = arch_thread_create("count", CountUp, &counter);
    for (auto& thread : threads) arch_thread_join(thread, nullptr);
    EXPECT_EQ(counter.value, 80000);
    EXPECT_EQ(arch_mutex_delete(counter.mutex), 0);
}

TEST(PlatformRandom, FillsExactlyTheBytesAskedFor) {
    unsigned char a[64] = {}, b[64] = {};
    EXPECT_EQ(arch_rand_bytes(a, 60), 0);
    EXPECT_EQ(arch_rand_bytes(b, 60), 0);
    EXPECT_NE(memcmp(a, b, 60), 0);
    const unsigned char untouched[4] = {};
    EXPECT_EQ(memcmp(a + 60, untouched, 4), 0);
    EXPECT_EQ(arch_rand_bytes(a, -1), -1);
}

}  // namespace
