#include <gtest/gtest.h>
#include <hybase/hcutil/HCTokenManager.h>
#include <hybase/hlog.h>
#include <string.h>
#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <thread>

// The clock of this program, and its random bytes: null for the system's, empty for none.
static std::atomic<int64_t> now_ms{1000};
static const char* random_bytes;

int64_t arch_getSystemStartupMs(void) { return now_ms; }

int arch_rand_bytes(void* buf, int len) {
    if (random_bytes == nullptr) return getrandom(buf, len, 0) == len ? 0 : -1;
    if (random_bytes[0] != '\0') memcpy(buf, random_bytes, len);
    return random_bytes[0] != '\0' ? 0 : -1;
}

namespace {

const LoginInfo_t anna{"anna"}, bert{"bert"};
const hlogParam_t log_settings = {0, HLOG_LEVEL_TRACE, 0, "", 0, 0};
std::string log_text;

// Levels and texts logged since the last call. The first one begins to listen.
std::string TakeLog() {
    hlog_set_param(&log_settings);
    hlog_regirst([](const char* text, int32_t) {
        log_text += std::string(text, strcspn(text, "]") + 1) + strchr(text, ' ');
    });
    return std::exchange(log_text, "");
}

TEST(Token, IsThe31DigitsOfRandomBytes) {
    HCTokenManager tokens(false, 1, 10);
    TakeLog();
    random_bytes = "\x01\x23\x45\x67\x89\xAB\xCD\xEF\xFE\xDC\xBA\x98\x76\x54\x32\x10";
    EXPECT_EQ(tokens.Create(&anna), "0123456789ABCDEFFEDCBA987654321");
    EXPECT_EQ(tokens.Create(&bert), "0123456789ABCDEFFEDCBA987654321");
    random_bytes = "";
    EXPECT_EQ(tokens.Create(&anna), "");
    random_bytes = nullptr;
    EXPECT_EQ(TakeLog(), "[ERR] no random bytes for a token\n");
    LoginInfo_t owner;
    EXPECT_FALSE(tokens.IsValid("", &owner));
    EXPECT_TRUE(tokens.IsValid("0123456789ABCDEFFEDCBA987654321", &owner));
    EXPECT_EQ(owner.username, "anna");  // an equal token leaves the first one its owner
}

TEST(Token, LivesWhileItIsUsed) {
    HCTokenManager tokens(false, 2, 10);
    const std::string token = tokens.Create(nullptr);
    TakeLog();
    for (int age : {2000, 2000, 2000, 2001, 0}) {
        now_ms += age;
        EXPECT_EQ(tokens.IsValid(token, nullptr), age == 2000);
    }
    EXPECT_EQ(TakeLog(), "[TRACE] CheckToken Failed! Can't find the " + token + ",0\n");

    const auto lives = [&](unsigned int lifetime, int64_t age) {
        tokens.SetLifeTime(lifetime);
        const std::string other = tokens.Create(nullptr);
        now_ms += age;
        return tokens.IsValid(other, nullptr);
    };
    EXPECT_TRUE(lives(1, 1000));
    EXPECT_FALSE(lives(4294967, 4294967301));  // 5 in 32 bits
    EXPECT_FALSE(lives(4294967, -1));
}

TEST(Token, IsUsedUpInOnceMode) {
    HCTokenManager tokens(true, 60, 10);
    const std::string token = tokens.Create(&anna), other = tokens.Create(&bert);
    TakeLog();
    EXPECT_TRUE(tokens.IsValid(token, nullptr));
    EXPECT_FALSE(tokens.IsValid(token, nullptr));
    EXPECT_EQ(TakeLog(), "[TRACE] Have Found Token(" + token +
                             "), Will delete it because Once Mode!\n" +
                             "[TRACE] CheckToken Failed! Can't find the " + token + ",1\n");
    LoginInfo_t asked{other};  // where the owner is written
    EXPECT_TRUE(tokens.IsValid(asked.username, &asked));
    EXPECT_EQ(asked.username, "bert");
    EXPECT_EQ(TakeLog(),
              "[TRACE] Have Found Token(" + other + "), Will delete it because Once Mode!\n");
}

TEST(Token, ExpiredOnesMakeRoomAtTheCap) {
    HCTokenManager tokens(false, 2, 2);
    const std::string old = tokens.Create(nullptr);
    now_ms += 1500;
    EXPECT_NE(tokens.Create(nullptr), "");
    TakeLog();
    EXPECT_EQ(tokens.Create(nullptr), "");
    EXPECT_EQ(TakeLog(), "[ERR] There are too many Client! Max Support 2!\n");
    now_ms += 501;
    EXPECT_NE(tokens.Create(nullptr), "");
    EXPECT_EQ(TakeLog(), "[TRACE] Identity(" + old + ") is expired! will been deleted!\n");
    tokens.SetMaxNum(1);
    EXPECT_EQ(tokens.Create(nullptr), "");
}

TEST(Token, IsRemovedOnRequest) {
    HCTokenManager tokens(false, 2, 10);
    const std::string a = tokens.Create(&anna), b = tokens.Create(&anna);
    const std::string c = tokens.Create(&bert), d = tokens.Create(&bert);
    TakeLog();
    for (const char* name : {"anna", "ann", ""}) EXPECT_EQ(tokens.DeleteByUserName(name), 0);
    EXPECT_EQ(tokens.Delete(c), 0);
    EXPECT_EQ(tokens.Delete(c), -1);
    tokens.Flush();
    EXPECT_TRUE(tokens.IsValid(d, nullptr));
    tokens.Clear();
    tokens.Flush();
    std::string expected;
    for (const std::string& token : {std::min(a, b), std::max(a, b), c}) {
        expected += "[TRACE] Identity(" + token + ") is deleted!\n";
    }
    EXPECT_EQ(TakeLog(), expected +
                             "[ERR] User Token String Not Found!\n"
                             "[ERR] Don't have any Token!\n");
}

TEST(Token, FourThreadsStayBelowTheCap) {
    hlog_regirst([](const char*, int32_t) {});
    HCTokenManager lasting(false, 60, 1000);
    HCTokenManager expiring(false, 0, 3);  // whose room each thread makes by removing others'
    std::atomic<int> created{0};
    auto work = [&] {
        for (int i = 0; i < 500; ++i) {
            if (!lasting.Create(nullptr).empty()) ++created;
            expiring.IsValid(expiring.Create(nullptr), nullptr);
            if (++now_ms % 8 == 0) expiring.Flush();
        }
    };
    std::thread a(work), b(work), c(work), d(work);
    for (std::thread* thread : {&a, &b, &c, &d}) thread->join();
    EXPECT_EQ(created, 1000);
}

}  // namespace
