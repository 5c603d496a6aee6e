// docs/examples/sessions.cpp
//
// A login from end to end: too many failures? the password, a token, and the token with every call.
#include <hybase/cjson_value.h>
#include <hybase/grpc.h>
#include <hybase/hcutil/HCLoginErrorMgr.h>
#include <hybase/hcutil/HCTokenManager.h>
#include <hyplatform/arch.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

// The library takes the time from here. A program that defines this function itself holds the clock
// in its hands: here, so that minutes pass at once. A device has no use for it.
static int64_t now_ms = 1000000;
int64_t arch_getSystemStartupMs(void) { return now_ms; }
static void Wait(int seconds) { now_ms += seconds * 1000; }

// ---- Logins ----

struct Account {
    const char *name, *password;
};
static const Account accounts[] = {{"admin", "north-gate-7"}, {"guest", "welcome-42"}};
static const size_t kLongestName = 31;

// Reads as many bytes whatever is wrong: how long it takes depends on what was given alone.
static bool IsSame(const char* given, const char* expected) {
    const size_t length = strlen(given), expected_length = strlen(expected);
    unsigned int difference = length == expected_length ? 0 : 1;
    for (size_t i = 0; i < length; i++)
        difference |= static_cast<unsigned int>(given[i] ^ expected[i % (expected_length + 1)]);
    return difference == 0;
}

// A name that nobody has costs the same comparisons as the others.
static bool IsPassword(const char* name, const char* password) {
    bool good = false;
    for (const Account& account : accounts) {
        const bool same_password = IsSame(password, account.password);
        const bool same_name = IsSame(name, account.name);
        good |= same_name && same_password;
    }
    return good;
}

class Sessions {
  public:
    // A new token, or an empty text and the reason.
    std::string LogIn(const char* name, const char* password, const char* address,
                      const char** reason) {
        *reason = "wrong name or password";
        if (strlen(name) > kLongestName) return {};
        if (m_addresses.LoginCheckIsLock(address, nullptr) != 0 ||
            m_users.LoginCheckIsLock(name, nullptr) != 0) {
            *reason = "too many failures, try again later";
            return {};
        }
        if (!IsPassword(name, password)) {
            m_users.LoginFail(name, password, nullptr);
            m_addresses.LoginFail(address, nullptr);
            return {};
        }
        // The address keeps its failures: else a guest could clear them between two guesses.
        m_users.LoginSuccess(name);
        *reason = "too many users";
        const LoginInfo_t owner = {name};
        return m_tokens.Create(&owner);
    }

    bool IsOwner(const char* token, std::string* name) {
        LoginInfo_t owner;
        if (!m_tokens.IsValid(token, &owner)) return false;
        *name = owner.username;
        return true;
    }

    bool LogOut(const char* token) { return m_tokens.Delete(token) == 0; }

    // For a changed password or an account that is no more.
    void LogOutEverywhere(const char* name) { m_tokens.DeleteByUserName(name); }

  private:
    HCLoginErrorMgr m_users{300, 3};  // three failures, five minutes
    HCLoginErrorMgr m_addresses{300, 10};
    HCTokenManager m_tokens{false, 600, 32};  // ten minutes without use, 32 at a time
};

// ---- Methods ----

static int32_t Refuse(_grpc_t* context, const char* reason) {
    grpc_s_set_error(context, -2, reason);
    return -2;
}

// A text of "param", empty when there is none.
static const char* Param(_grpc_t* context, const char* key) {
    const char* text = cJSON_GetObjectValueString(cJSON_GetObjectItem(context->json, "param"), key);
    return text != nullptr ? text : "";
}

static Sessions* SessionsOf(_grpc_t* context) { return static_cast<Sessions*>(context->userparam); }

static int32_t AccountLogin(_grpc_t* context) {
    const char* reason;
    const std::string token =
        SessionsOf(context)->LogIn(Param(context, "name"), Param(context, "password"),
                                   grpc_get_connection_info(context).addr, &reason);
    if (token.empty()) return Refuse(context, reason);
    cJSON_AddStringToObject(context->json, "token", token.c_str());
    return 0;
}

static int32_t Logout(_grpc_t* context) {
    return SessionsOf(context)->LogOut(Param(context, "token")) ? 0 : Refuse(context, "no session");
}

using UserMethod = int32_t (*)(_grpc_t* context, const std::string& user);

// Checks the token before the method runs, so that no method can forget to.
template <UserMethod method>
static int32_t ForUsers(_grpc_t* context) {
    std::string user;
    if (!SessionsOf(context)->IsOwner(Param(context, "token"), &user))
        return Refuse(context, "log in first");
    return method(context, user);
}

// What a user may do is looked up with every call: a right that is taken away is gone at once.
static int32_t OpenGate(_grpc_t* context, const std::string& user) {
    if (user != "admin") return Refuse(context, "not for you");
    cJSON_AddStringToObject(context->json, "gate", "open");
    return 0;
}

static grpcMethod_t methods[] = {
    {"account_login", AccountLogin, 2},
    {"open_gate", ForUsers<OpenGate>, 2},
    {"logout", Logout, 2},
    {nullptr, nullptr, 0},
};

// ---- Calls, as a peer would send them ----

static std::string token, response;

static int32_t KeepResponse(_grpc_t*, const char* data, int32_t len) {
    response.assign(data, len);
    return len;
}

// Shows "T" in place of the token, which is another one every time.
static void Show(std::string text) {
    if (!token.empty() && text.find(token) != std::string::npos)
        text.replace(text.find(token), token.size(), "T");
    printf("%s\n", text.c_str());
}

static void Call(_grpc_t* context, const char* method, const std::string& param) {
    const std::string request =
        std::string("{\"method\":\"") + method + "\",\"param\":" + param + ",\"sentcnt\":1}";
    Show("> " + request);
    grpc_s_serve_direct(context, request.c_str(), static_cast<int32_t>(request.size()));
    cJSON* json = cJSON_Parse(response.c_str());
    const char* fresh = cJSON_GetObjectValueString(json, "token");
    if (fresh != nullptr) token = fresh;
    cJSON_Delete(json);
    Show(response);
}

static void LogIn(_grpc_t* context, const char* name, const char* password) {
    Call(context, "account_login",
         std::string("{\"name\":\"") + name + "\",\"password\":\"" + password + "\"}");
}

static void UseToken(_grpc_t* context, const char* method) {
    Call(context, method, "{\"token\":\"" + token + "\"}");
}

int main() {
    Sessions sessions;
    grpcParam_t param = {0, &sessions, KeepResponse, nullptr, methods, nullptr, nullptr};
    _grpc_t* context = grpc_new();
    grpc_init(context, &param);
    grpc_set_connection_info(context, {"192.0.2.7", 40000, "TCP"});

    LogIn(context, "admin", "north-gate-7");
    Wait(600);
    UseToken(context, "open_gate");  // in time, and good for ten minutes again
    Wait(600);
    UseToken(context, "open_gate");
    Wait(601);
    UseToken(context, "open_gate");  // a second late

    for (const char* password : {"north-gate-1", "north-gate-1", "north-gate-2", "north-gate-3"})
        LogIn(context, "admin", password);  // the same one again counts once
    LogIn(context, "admin", "north-gate-7");
    Wait(300);
    LogIn(context, "admin", "north-gate-7");

    sessions.LogOutEverywhere("admin");
    UseToken(context, "open_gate");
    LogIn(context, "guest", "welcome-42");
    UseToken(context, "open_gate");
    UseToken(context, "logout");
    grpc_delete(context);

    // A ticket that opens one download, within half a minute.
    HCTokenManager tickets(true, 30, 100);
    const LoginInfo_t guest = {"guest"};
    const std::string ticket = tickets.Create(&guest);
    const bool first = tickets.IsValid(ticket, nullptr), second = tickets.IsValid(ticket, nullptr);
    printf("a ticket of %d characters: %d, then %d\n", static_cast<int>(ticket.size()), first,
           second);
    return first && !second ? EXIT_SUCCESS : EXIT_FAILURE;
}
