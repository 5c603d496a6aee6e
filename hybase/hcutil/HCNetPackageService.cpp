#include "hybase/hcutil/HCNetPackageService.h"

#include <hybase/hlog.h>
#include <unistd.h>

#include <memory>
#include <new>
#include <utility>

namespace {

constexpr char kThreadName[32] = "NPkgSrvice";  // HCThread copies 32 bytes whatever the name
constexpr int kDefaultBufferBytes = 10240;
constexpr int kAcceptSec = 1;
constexpr int kPassesBetweenCleaning = 20;
constexpr useconds_t kGiveWayStepUs = 1000;
constexpr int kGiveWaySteps = 20;

// Log records name the operation that users know, not its step.
constexpr char kOnThread[] = "OnThread";

// How many walks the calling thread is in, over all services.
thread_local int t_walks = 0;

}  // namespace

HCNetPackageService::HCNetPackageService()
    : HCThread(kThreadName, false, nullptr),
      m_pListenSocket(nullptr),
      m_nBufSize(kDefaultBufferBytes),
      m_nPort(0),
      m_bRun(true),
      m_nWaitingChanges(0) {
    // Not std::shared_mutex, which may make a new reader wait for a writer that waits: a hook that
    // walks within its own walk would then wait for itself. With default attributes readers pass.
    pthread_rwlock_init(&m_connectionsLock, nullptr);
}

HCNetPackageService::~HCNetPackageService() {
    StopService();
    delete m_pListenSocket;
    pthread_rwlock_destroy(&m_connectionsLock);
}

int HCNetPackageService::Start(int bufsize, const char* ip, unsigned short port) {
    StopAccepting();
    HCSocket* sock = m_pListenSocket;
    if (sock == nullptr) sock = new (std::nothrow) HCSocket;
    SetSocket(sock);
    if (sock == nullptr || sock->Listen(port, ip) != 0) {
        HLOG_ERR("Service Fail,No HCSocket\n");
        return -1;
    }
    m_nPort = port;
    m_nBufSize = bufsize;
    m_bRun = true;
    if (StartThread() != nullptr) return 0;
    HLOG_ERR("no thread for the service on port [%d]\n", port);
    sock->Close();
    return -1;
}

int HCNetPackageService::Start(int bufsize, unsigned short port) {
    return Start(bufsize, nullptr, port);
}

void HCNetPackageService::SetSocket(HCSocket* sock) {
    __atomic_store_n(&m_pListenSocket, sock, __ATOMIC_RELEASE);
}

bool HCNetPackageService::CheckPasswd(const char*, int, HCSocket*, std::string&) { return true; }

// ---- Stopping ----

void HCNetPackageService::StopService() {
    StopAccepting();
    // All threads at once, so that the wait is that of the slowest and not the sum of all.
    BeginWalk();
    for (int i = 0; i < GetCnt(); i++) {
        auto* connection = dynamic_cast<HCNetPackage*>(At(i));
        if (connection != nullptr) connection->m_bRun = false;
    }
    EndWalk();
    HCObjOfVector* connection = nullptr;
    while (UnlinkFirst(connection)) StopAndDispose(connection);
}

// Ends the accepting thread and gives up the port at once.
void HCNetPackageService::StopAccepting() {
    m_bRun = false;
    Join(nullptr);
    if (m_pListenSocket != nullptr) m_pListenSocket->Close();
}

// No lock is held: a handler of this very connection may be walking while its thread is waited for.
// The thread ends here even if the object lives on for a while, because what its hooks use may not.
void HCNetPackageService::StopAndDispose(HCObjOfVector* element) {
    if (element == nullptr) return;
    if (auto* connection = dynamic_cast<HCNetPackage*>(element)) {
        connection->m_bRun = false;
        connection->Join(nullptr);
    }
    Dispose(element);
}

// ---- The accepting thread ----

void* HCNetPackageService::OnThread(void*) {
    int passes = 0;
    while (m_bRun) {
        if (passes > kPassesBetweenCleaning) {
            _CleanServers();
            passes = 0;
        } else {
            passes++;
        }
        HCSocket* listening = __atomic_load_n(&m_pListenSocket, __ATOMIC_ACQUIRE);
        if (listening == nullptr) {
            HLOG_ERR("m_Obj null\n");
            return nullptr;
        }
        std::unique_ptr<HCSocket> accepted(listening->Accept(kAcceptSec));
        if (accepted != nullptr) Admit(std::move(accepted));
    }
    return nullptr;
}

void HCNetPackageService::Admit(std::unique_ptr<HCSocket> sock) {
    hlog_printf_ex(HLOG_LEVEL_INFO, __FILE__, kOnThread, __LINE__,
                   "Client connect ip[%s]port[%d]\n", sock->m_szHost, sock->m_nPort);
    if (!HCNetPackage::WaitingLogin(this, sock.get())) {
        hlog_printf_ex(HLOG_LEVEL_ERR, __FILE__, kOnThread, __LINE__, "[%s][%d] Login err!\n",
                       sock->m_szHost, sock->m_nPort);
        return;
    }
    HCNetPackage* connection = CreateServer();
    // A client that nobody serves: the socket goes, so that the peer sees a close, not silence.
    if (connection == nullptr) return;
    connection->AdoptClient(sock.release());
    // The thread starts last, so that a handler of the first request finds its own connection here.
    LockForChange();
    bool kept = Append(connection) >= 0;
    if (kept) connection->Launch(m_nBufSize);
    UnlockAfterChange();
    if (kept) return;
    HLOG_ERR("no memory to keep a connection\n");
    delete connection;
}

// ---- The connections ----

void HCNetPackageService::_CleanServers() {
    while (HCObjOfVector* lost = UnlinkLost()) StopAndDispose(lost);
}

// The last lost connection, out of the vector; null when there is none.
HCObjOfVector* HCNetPackageService::UnlinkLost() {
    HCObjOfVector* lost = nullptr;
    LockForChange();
    for (int i = GetCnt() - 1; i >= 0 && lost == nullptr; i--) {
        auto* connection = dynamic_cast<HCNetPackage*>(At(i));
        if (connection != nullptr && connection->IsNeedClear()) lost = Unlink(i);
    }
    UnlockAfterChange();
    return lost;
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
    if (t_walks == 0) {
        for (int i = 0; i < kGiveWaySteps && m_nWaitingChanges > 0; i++) usleep(kGiveWayStepUs);
    }
    pthread_rwlock_rdlock(&m_connectionsLock);
    t_walks++;
}

void HCNetPackageService::EndWalk() {
    t_walks--;
    pthread_rwlock_unlock(&m_connectionsLock);
}

void HCNetPackageService::LockForChange() {
    m_nWaitingChanges++;
    pthread_rwlock_wrlock(&m_connectionsLock);
    m_nWaitingChanges--;
}

void HCNetPackageService::UnlockAfterChange() { pthread_rwlock_unlock(&m_connectionsLock); }
