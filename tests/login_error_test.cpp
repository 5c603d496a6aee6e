#include <gtest/gtest.h>
#include <hybase/hcutil/HCLoginErrorMgr.h>
#include <hybase/hlog.h>

static int64_t now_ms = 1000;  // the clock of this program

int64_t arch_getSystemStartupMs(void) { return now_ms; }

namespace {

// Null: a failure without a password.
int Fail(HCLoginErrorMgr* lockout, const char* password) {
    int count = -1;
    if (password == nullptr) lockout->LoginFail("anna", &count);
    if (password != nullptr) lockout->LoginFail("anna", password, &count);
    return count;
}

TEST(LoginError, EachNewPasswordCounts) {
    const char* passwords[] = {
        "a", "a", "b", "a", "a longer one than was kept", "a", nullptr, "", nullptr, "b", "b\xc3"};
    const int counts[] = {1, 1, 2, 3, 4, 5, 6, 6, 7, 8, 9};
    HCLoginErrorMgr lockout(60, 3);
    for (int i = 0; i < 11; ++i) EXPECT_EQ(Fail(&lockout, passwords[i]), counts[i]);
}

TEST(LoginError, ThirdFailureBlocksForTheLockTime) {
    static std::string log_text;
    const hlogParam_t param = {0, HLOG_LEVEL_DEBUG, 0, "", 0, 0};
    hlog_set_param(&param);
    hlog_regirst([](const char* text, int32_t) { log_text += text; });
    HCLoginErrorMgr lockout(10, 3);
    int seconds = -7;
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", &seconds), 0);
    Fail(&lockout, "1");
    Fail(&lockout, "2");
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", &seconds), 0);
    EXPECT_EQ(seconds, -7);
    Fail(&lockout, "3");
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", &seconds), 1);
    EXPECT_EQ(seconds, 0);
    EXPECT_EQ(log_text, "[DEBUG][HCLoginErrorMgr:66][LoginCheckIsLock] user Blocked now\n");
    now_ms += 2500;
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", &seconds), 1);
    EXPECT_EQ(seconds, 2);
    EXPECT_EQ(Fail(&lockout, "3"), 3);  // extends the block all the same
    now_ms += 9999;
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", nullptr), 1);
    now_ms += 1;
    EXPECT_EQ(lockout.LoginCheckIsLock("anna", nullptr), 0);
    EXPECT_FALSE(lockout.isExist("anna"));

    EXPECT_EQ(Fail(&lockout, "a"), 1);
    now_ms += 9999;
    EXPECT_EQ(Fail(&lockout, "b"), 2);
    now_ms += 10000;
    EXPECT_EQ(Fail(&lockout, "c"), 1);  // no flush in between
}

TEST(LoginError, SuccessForgetsThatUserAlone) {
    HCLoginErrorMgr lockout(10, 0);  // blocks everybody who has an entry
    for (const char* user : {"anna", "bert", "carl"}) lockout.LoginFail(user, nullptr, nullptr);
    lockout.LoginFail(nullptr, nullptr);
    for (const char* user : {"anna", "nobody", static_cast<const char*>(nullptr)}) {
        lockout.LoginSuccess(user);
        EXPECT_EQ(lockout.LoginCheckIsLock(user, nullptr), 0);
        EXPECT_FALSE(lockout.isExist(user));
    }
    lockout.DeleteLoginMember("bert");
    EXPECT_EQ(lockout.LoginCheckIsLock("bert", nullptr), 0);
    EXPECT_EQ(lockout.LoginCheckIsLock("carl", nullptr), 1);
}

TEST(LoginError, LockTimeIsASigned32BitProduct) {
    const auto is_kept = [](int lock_seconds, int64_t age) {
        HCLoginErrorMgr lockout(lock_seconds, 1);
        Fail(&lockout, "a");
        now_ms += age;
        lockout.flush();
        return lockout.isExist("anna");
    };
    EXPECT_FALSE(is_kept(2147483, 2147483000));
    EXPECT_TRUE(is_kept(2147484, 1LL << 40));  // negative
    EXPECT_FALSE(is_kept(4294968, 704));
}

}  // namespace
