#include "hybase/hcutil/HCNetPackageService.h"

#include <hybase/hcutil/HCMutex.h>
#include <hybase/hlog.h>
#include <sys/socket.h>
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

// The service whose connections the calling thread is changing: an Append that a derived class
// overrides may walk.
thread_local const HCNetPackageService* t_changing = nullptr;

}  // namespace

HCNetPackageService::HCNetPackageService()
    : HCThread(kThreadName, false, nullptr),
      m_pListenSocket(nullptr),
      m_nBufSize(kDefaultBufferBytes),
      m_nPort(0),
      m_bRun(true),
      m_pLoginSocket(nullptr),
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
    CutLogins(false);
    if (StartThread() != nullptr) return 0;
    HLOG_ERR("no thread for the service on port [%d]\n", port);
    sock->Close();
    return -1;
}

int HCNetPackageService::Start(int bufsize, unsigned short port) {
    return Start(bufsize, nullptr, port);
}

void HCNetPackageService::SetSocket(HCSocket* sock) { m_pListenSocket = sock; }

bool HCNetPackageService::CheckPasswd(const char*, int, HCSocket*, std::string&) { return true; }

// ---- Stopping ----

void HCNetPackageService::StopService() {
    CutLogins(true);
    StopAccepting();
    // Gives up the port. A service that starts again leaves this to Listen.
    if (m_pListenSocket != nullptr) m_pListenSocket.load()->Close();
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

void HCNetPackageService::StopAccepting() {
    m_bRun = false;
    Join(nullptr);
}

// A login under way takes as long as its peer likes: when all clients are to go, it need not end.
void HCNetPackageService::CutLogins(bool cut) {
    HCMutex lock(m_hLoginMutex);
    m_bCutLogins = cut;
    if (cut && m_pLoginSocket != nullptr) shutdown(m_pLoginSocket->m_nSocket, SHUT_RDWR);
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
            _CleanServers();
            passes = 0;
        } else {
            passes++;
        }
        HCSocket* listening = m_pListenSocket;
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
    if (!LogIn(sock.get())) {
        hlog_printf_ex(HLOG_LEVEL_ERR, __FILE__, kOnThread, __LINE__, "[%s][%d] Login err!\n",
                       sock->m_szHost, sock->m_nPort);
        return;
    }
    HCNetPackage* connection = CreateServer();
    // A client that nobody serves: the socket goes, so that the peer sees a close, not silence.
    if (connection == nullptr) return;
    connection->AdoptClient(m_nBufSize, sock.release());
    // The thread starts last, so that a handler of the first request finds its own connection here.
    LockForChange();
    bool kept = Append(connection) >= 0;
    if (kept) connection->Launch();
    UnlockAfterChange();
    if (kept) return;
    HLOG_ERR("no memory to keep a connection\n");
    delete connection;
}

bool HCNetPackageService::LogIn(HCSocket* sock) {
    SetLoginSocket(sock);
    const bool admitted = HCNetPackage::WaitingLogin(this, sock);
    SetLoginSocket(nullptr);
    return admitted;
}

void HCNetPackageService::SetLoginSocket(HCSocket* sock) {
    HCMutex lock(m_hLoginMutex);
    m_pLoginSocket = sock;
    if (m_bCutLogins && sock != nullptr) shutdown(sock->m_nSocket, SHUT_RDWR);
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
