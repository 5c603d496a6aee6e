#include "hybase/hcutil/HCNetPackageService.h"

#include <arpa/inet.h>
#include <hybase/hcutil/HCMutex.h>
#include <hybase/hlog.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <optional>
#include <typeinfo>
#include <utility>

#include "hybase/hcutil/package_state.h"
#include "hybase/hcutil/packet_io.h"
#include "hybase/hcutil/server_login.h"
#include "hybase/hcutil/socket_inside.h"
#include "hybase/record_quota.h"

namespace {

constexpr char kThreadName[32] = "NPkgSrvice";  // HCThread copies 32 bytes whatever the name
constexpr int kDefaultBufferBytes = 10240;
constexpr int kAcceptSec = 1;
constexpr int kPassesBetweenCleaning = 20;
constexpr int kDefaultBacklog = 512;
constexpr int kDefaultPendingLogins = 256;
constexpr int64_t kPauseAfterFailureMs = 100;
constexpr useconds_t kGiveWayStepUs = 1000;
constexpr int kGiveWaySteps = 20;
constexpr int kGraceSteps = 300;  // of kGiveWayStepUs

constexpr char kAdmitted[] = "OK";
constexpr char kRefused[] = "FAILED";
constexpr char kTooManyClients[] = "too many clients";
constexpr char kTooManyFromAddress[] = "too many clients from this address";

// Log records name the operation that users know, not its step.
constexpr char kOnThread[] = "OnThread";

// How many walks the calling thread is in, over all services.
thread_local int t_walks = 0;

// The service whose connections the calling thread is changing: an Append that a derived class
// overrides may walk.
thread_local const HCNetPackageService* t_changing = nullptr;

void LogClient(const HCSocket& sock) {
    LOG_AS(kOnThread, HLOG_LEVEL_INFO, "Client connect ip[%s]port[%d]\n", sock.m_szHost,
           sock.m_nPort);
}

void LogRefusal(const HCSocket& sock) {
    LOG_AS(kOnThread, HLOG_LEVEL_ERR, "[%s][%d] Login err!\n", sock.m_szHost, sock.m_nPort);
}

bool IsIPv4(const char* text) {
    in_addr address;
    return inet_aton(text, &address) != 0;
}

}  // namespace

struct HCNetPackageService::State {
    std::optional<HCNetLimits> next_limits;  // from the next start on; guarded by m_hLoginMutex
    std::optional<HCNetLimits> limits;       // changed while there is no accepting thread
    HCSocket* login_socket = nullptr;        // of a login read in one go; guarded by m_hLoginMutex

    // Of the accepting thread.
    LoginQueue logins;
    int64_t accept_after_ms = 0;  // accepting pauses until then
    RecordQuota strangers;        // for records about peers that are not logged in
};

HCNetPackageService::HCNetPackageService()
    : HCThread(kThreadName, false, nullptr),
      m_pListenSocket(nullptr),
      m_nBufSize(kDefaultBufferBytes),
      m_nPort(0),
      m_bRun(true),
      m_pState(new (std::nothrow) State),
      m_bCutLogins(false),
      m_hLoginMutex(arch_mutex_create()),
      m_nWaitingChanges(0) {
    // Not std::shared_mutex, which may make a new reader wait for a writer that waits: a hook that
    // walks within its own walk would then wait for itself. With default attributes readers pass.
    pthread_rwlock_init(&m_connectionsLock, nullptr);
}

HCNetPackageService::~HCNetPackageService() {
    StopService();
    delete m_pListenSocket.load();
    arch_mutex_delete(m_hLoginMutex);
    pthread_rwlock_destroy(&m_connectionsLock);
}

int HCNetPackageService::Start(int bufsize, const char* ip, unsigned short port) {
    StopAccepting();
    m_bRun = true;
    HCSocket* sock = m_pListenSocket;
    if (sock == nullptr) sock = new (std::nothrow) HCSocket;
    SetSocket(sock);
    if (m_pState == nullptr || sock == nullptr || Listen(*sock, ip, port) != 0) {
        HLOG_ERR("Service Fail,No HCSocket\n");
        return -1;
    }
    m_nPort = port;
    m_nBufSize = bufsize;
    CutLogins(false);
    if (StartThread() != nullptr) return 0;
    HLOG_ERR("no thread for the service on port [%d]\n", port);
    sock->Close();
    return -1;
}

HCNetLimits HCNetPackageService::TakeLimits() {
    HCMutex lock(m_hLoginMutex);
    m_pState->limits = m_pState->next_limits;
    return m_pState->limits.value_or(HCNetLimits());
}

int HCNetPackageService::Listen(HCSocket& sock, const char* ip, unsigned short port) {
    const HCNetLimits limits = TakeLimits();
    m_pState->strangers.SetPerSecond(limits.stranger_records_per_sec);
    const int pending =
        limits.max_pending_logins > 0 ? limits.max_pending_logins : kDefaultPendingLogins;
    if (!m_pState->logins.SetBounds(pending, limits.login_sec)) return -1;

    if (typeid(sock) == typeid(HCSocket) && ip != nullptr && !IsIPv4(ip)) {
        HLOG_ERR("no IPv4 address: [%s]\n", ip);
        return -1;
    }
    if (sock.Listen(port, ip) != 0) return -1;
    // A device that has just started meets all its clients at once.
    if (SocketInside::IsOurs(sock))
        listen(sock.m_nSocket, limits.backlog > 0 ? limits.backlog : kDefaultBacklog);
    return 0;
}

int HCNetPackageService::Start(int bufsize, unsigned short port) {
    return Start(bufsize, nullptr, port);
}

void HCNetPackageService::SetSocket(HCSocket* sock) { m_pListenSocket = sock; }

void HCNetPackageService::SetLimits(const HCNetLimits& limits) {
    if (m_pState == nullptr) return;
    HCMutex lock(m_hLoginMutex);
    m_pState->next_limits = limits;
}

bool HCNetPackageService::CheckPasswd(const char*, int, HCSocket*, std::string&) { return true; }

// ---- Stopping ----

void HCNetPackageService::StopService() {
    StopAccepting();
    if (m_pState != nullptr) m_pState->logins.Clear();
    // Gives up the port. A service that starts again leaves this to Listen.
    if (m_pListenSocket != nullptr) m_pListenSocket.load()->Close();
    // All threads at once, so that the wait is that of the slowest and not the sum of all.
    int busy = ForAll([](HCNetPackage& connection) {
        connection.TellToStop();
        return true;
    });
    // Answers under way have a moment to go out.
    for (int i = 0; i < kGraceSteps && busy > 0; i++) {
        usleep(kGiveWayStepUs);
        busy = ForAll([](HCNetPackage& connection) { return connection.InUse(); });
    }
    ForAll([](HCNetPackage& connection) {
        const bool sending = connection.InUse() && connection.m_pState->senders > 0;
        if (sending) connection.CutLink(SocketInside::kAll);
        return sending;
    });
    HCObjOfVector* connection = nullptr;
    while (UnlinkFirst(connection)) StopAndDispose(connection);
}

// Calls `act` for each connection; returns how often it gave true.
int HCNetPackageService::ForAll(bool (*act)(HCNetPackage&)) {
    int count = 0;
    BeginWalk();
    for (int i = 0; i < GetCnt(); i++) {
        auto* connection = dynamic_cast<HCNetPackage*>(At(i));
        if (connection != nullptr && act(*connection)) count++;
    }
    EndWalk();
    return count;
}

void HCNetPackageService::StopAccepting() {
    m_bRun = false;
    CutLogins(true);
    // Wakes the accepting thread; Listen makes a new descriptor.
    HCSocket* listening = m_hThread != nullptr ? m_pListenSocket.load() : nullptr;
    if (listening != nullptr && SocketInside::IsOurs(*listening))
        SocketInside::CutOff(*listening, SocketInside::kAll, true);
    Join(nullptr);
    if (listening != nullptr) SocketInside::EndCut(*listening);
}

// A login that is read in one go takes as long as its peer likes: it need not end.
void HCNetPackageService::CutLogins(bool cut) {
    HCMutex lock(m_hLoginMutex);
    m_bCutLogins = cut;
    if (cut && m_pState != nullptr && m_pState->login_socket != nullptr)
        SocketInside::CutOff(*m_pState->login_socket, SocketInside::kAll, true);
}

// No lock is held: a handler of this very connection may be walking while its thread is waited for.
// The thread ends here even if the object lives on for a while, because what its hooks use may not.
void HCNetPackageService::StopAndDispose(HCObjOfVector* element) {
    if (element == nullptr) return;
    if (auto* connection = dynamic_cast<HCNetPackage*>(element)) connection->StopThread();
    Dispose(element);
}

// ---- The accepting thread ----

void* HCNetPackageService::OnThread(void*) {
    int passes = 0;
    while (m_bRun) {
        if (passes > kPassesBetweenCleaning) {
            // A thread that is still in a hook is waited for by a later cleaning: clients wait.
            while (HCObjOfVector* lost = UnlinkLost(false)) StopAndDispose(lost);
            passes = 0;
        } else {
            passes++;
        }
        HCSocket* listening = m_pListenSocket;
        if (listening == nullptr) {
            HLOG_ERR("m_Obj null\n");
            return nullptr;
        }
        AcceptPass(*listening);
    }
    return nullptr;
}

void HCNetPackageService::AcceptPass(HCSocket& listening) {
    const QuotaScope quota(&m_pState->strangers);
    if (SocketInside::IsOurs(listening)) {
        AcceptWithQueue(listening);
    } else {
        AcceptOwnWay(listening);
    }
    if (const int left_out = m_pState->strangers.TakeLeftOut()) {
        const QuotaScope all(nullptr);
        HLOG_WARN("%d records about peers that are not logged in were left out\n", left_out);
    }
}

// Ends when a client was accepted, or after a second. Peers whose login has not come whole wait in
// the queue and are served meanwhile.
void HCNetPackageService::AcceptWithQueue(HCSocket& listening) {
    State& state = *m_pState;
    const int64_t end = arch_getSystemStartupMs() + kAcceptSec * 1000;
    while (m_bRun) {
        const int64_t now = arch_getSystemStartupMs();
        if (now >= end) return;
        const bool pause = now < state.accept_after_ms;
        const int64_t until = pause ? std::min(end, state.accept_after_ms) : end;
        const bool ready = state.logins.Wait(pause ? -1 : listening.m_nSocket, until - now);
        FinishLogins();
        if (!ready || !m_bRun) continue;
        std::unique_ptr<HCSocket> accepted(listening.Accept(0));
        // Without a descriptor or memory the client stays in the backlog.
        if (accepted == nullptr) {
            state.accept_after_ms = now + kPauseAfterFailureMs;
            continue;
        }
        LogClient(*accepted);
        state.logins.Add(std::move(accepted));
        return;
    }
}

void HCNetPackageService::FinishLogins() {
    while (std::unique_ptr<LoginQueue::Visitor> visitor = m_pState->logins.TakeDone()) {
        HCSocket& sock = *visitor->sock;
        if (visitor->progress == LoginRequest::Progress::kComplete &&
            AnswerLogin(sock, visitor->request.Record(), visitor->request.RecordBytes())) {
            Admit(std::move(visitor->sock));
        } else {
            LogRefusal(sock);
        }
    }
}

// A socket class of the application's decides itself how it waits.
void HCNetPackageService::AcceptOwnWay(HCSocket& listening) {
    std::unique_ptr<HCSocket> accepted(listening.Accept(kAcceptSec));
    if (accepted == nullptr) return;
    LogClient(*accepted);
    if (LogInOwnWay(accepted.get())) {
        Admit(std::move(accepted));
    } else if (m_bRun) {
        LogRefusal(*accepted);
    }
}

bool HCNetPackageService::LogInOwnWay(HCSocket* sock) {
    SetLoginSocket(sock);
    const bool admitted = HCNetPackage::WaitingLogin(this, sock);
    SetLoginSocket(nullptr);
    return admitted;
}

void HCNetPackageService::SetLoginSocket(HCSocket* sock) {
    HCMutex lock(m_hLoginMutex);
    m_pState->login_socket = sock;
    if (m_bCutLogins && sock != nullptr) SocketInside::CutOff(*sock, SocketInside::kAll, true);
}

// True when the client is admitted and was told so.
bool HCNetPackageService::AnswerLogin(HCSocket& sock, const char* record, int bytes) {
    std::string message;
    bool admitted = false;
    if (const char* refusal = RefusalByLimits(sock)) {
        message = refusal;
    } else {
        const QuotaScope all(nullptr);  // what the application logs is its own affair
        admitted = CheckPasswd(record, bytes, &sock, message);
    }
    if (admitted) return HCNetPackage::ResponseLogin(&sock, kAdmitted, sizeof kAdmitted - 1) == 0;
    if (message.empty()) {
        message = kRefused;
    } else {
        LOG_AS("WaitingLogin", HLOG_LEVEL_INFO, "message=[%s]\n", message.c_str());
    }
    HCNetPackage::ResponseLogin(&sock, message.data(), static_cast<int>(message.size()));
    return false;
}

// Null when one more client may come.
const char* HCNetPackageService::RefusalByLimits(const HCSocket& sock) {
    const HCNetLimits limits = m_pState->limits.value_or(HCNetLimits());
    if (limits.max_clients <= 0 && limits.max_clients_per_address <= 0) return nullptr;
    int clients = 0;
    int from_address = 0;
    BeginWalk();
    for (int i = 0; i < GetCnt(); i++) {
        auto* connection = dynamic_cast<HCNetPackage*>(At(i));
        if (connection == nullptr || connection->IsNeedClear()) continue;
        clients++;
        if (strncmp(connection->m_szIp, sock.m_szHost, sizeof connection->m_szIp) == 0)
            from_address++;
    }
    EndWalk();
    if (limits.max_clients > 0 && clients >= limits.max_clients) return kTooManyClients;
    const bool has_address = sock.m_szHost[0] != '\0';
    if (limits.max_clients_per_address > 0 && has_address &&
        from_address >= limits.max_clients_per_address)
        return kTooManyFromAddress;
    return nullptr;
}

void HCNetPackageService::Admit(std::unique_ptr<HCSocket> sock) {
    const QuotaScope all(nullptr);
    HCNetPackage* connection = CreateServer();
    // A client that nobody serves: the socket goes, so that the peer sees a close, not silence.
    if (connection == nullptr) return;
    if (m_pState->limits.has_value()) connection->SetLimits(*m_pState->limits);
    connection->AdoptClient(m_nBufSize, sock.release());
    // The thread starts last, so that a handler of the first request finds its own connection here.
    LockForChange();
    const bool kept = Append(connection) >= 0;
    const bool runs = kept && connection->TryLaunch();
    HCObjOfVector* unlinked = kept && !runs ? UnlinkIt(connection) : nullptr;
    UnlockAfterChange();
    if (kept) {
        StopAndDispose(unlinked);
        return;
    }
    HLOG_ERR("no memory to keep a connection\n");
    delete connection;
}

// ---- The connections ----

void HCNetPackageService::_CleanServers() {
    while (HCObjOfVector* lost = UnlinkLost(true)) StopAndDispose(lost);
}

// The last lost connection, out of the vector; null when there is none. `wait_for_threads`: also
// one that its thread or a broadcast still uses.
HCObjOfVector* HCNetPackageService::UnlinkLost(bool wait_for_threads) {
    HCObjOfVector* lost = nullptr;
    LockForChange();
    for (int i = GetCnt() - 1; i >= 0 && lost == nullptr; i--) {
        auto* connection = dynamic_cast<HCNetPackage*>(At(i));
        if (connection == nullptr || !connection->IsNeedClear()) continue;
        if (wait_for_threads || !connection->InUse()) lost = Unlink(i);
    }
    UnlockAfterChange();
    return lost;
}

HCObjOfVector* HCNetPackageService::UnlinkIt(const HCNetPackage* connection) {
    for (int i = GetCnt() - 1; i >= 0; i--)
        if (At(i) == connection) return Unlink(i);
    return nullptr;
}

// Takes the first element, which may be null, out of the vector. False when the vector is empty.
bool HCNetPackageService::UnlinkFirst(HCObjOfVector*& element) {
    LockForChange();
    bool found = GetCnt() > 0;
    if (found) element = Unlink(0);
    UnlockAfterChange();
    return found;
}

// Readers go before writers, so threads that broadcast without a pause could keep a new client out
// for ever. A walk that begins while a change waits gives way for a moment; not for as long as it
// takes, because its thread may hold what another walk waits for. A walk within a walk never gives
// way.
void HCNetPackageService::BeginWalk() {
    if (t_changing == this) return;
    if (t_walks == 0) {
        for (int i = 0; i < kGiveWaySteps && m_nWaitingChanges > 0; i++) usleep(kGiveWayStepUs);
    }
    pthread_rwlock_rdlock(&m_connectionsLock);
    t_walks++;
}

void HCNetPackageService::EndWalk() {
    if (t_changing == this) return;
    t_walks--;
    pthread_rwlock_unlock(&m_connectionsLock);
}

void HCNetPackageService::LockForChange() {
    m_nWaitingChanges++;
    pthread_rwlock_wrlock(&m_connectionsLock);
    m_nWaitingChanges--;
    t_changing = this;
}

void HCNetPackageService::UnlockAfterChange() {
    t_changing = nullptr;
    pthread_rwlock_unlock(&m_connectionsLock);
}
