#include "hybase/hcutil/HCNetPackage.h"

#include <errno.h>
#include <hybase/hcutil/HCMutex.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hybase/hlog.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "hybase/hcutil/packet_header.h"

// The RPC classes and the packet service tell connections apart with dynamic_cast.
static_assert(sizeof(std::atomic<int>) == sizeof(int) &&
                  sizeof(std::atomic<bool>) == sizeof(bool) &&
                  sizeof(std::atomic<time_t>) == sizeof(time_t),
              "shared fields keep the size of what they hold");

namespace {

constexpr char kThreadName[32] = "NetPackage";  // HCThread copies 32 bytes whatever the name
constexpr char kDefaultRecord[] = "owner;908172";
constexpr int kDefaultRecordBytes = sizeof kDefaultRecord - 1;
constexpr char kAdmitted[] = "OK";
constexpr int kAdmittedBytes = sizeof kAdmitted - 1;
constexpr char kRefused[] = "FAILED";

constexpr int kNotLoggedIn = -21;

constexpr int kLoginReadUs = 5000000;
constexpr int kLoginReplySendUs = 500000;
constexpr int kLoginRequestRoom = 1024;
constexpr int kReceiveUs = 500000;
constexpr useconds_t kPauseStepUs = 100000;
constexpr int kPauseSteps = 100;     // 10 seconds
constexpr int kStepsPerSecond = 10;  // of kPauseStepUs
constexpr int kSilenceGraceSec = 2;  // a peer is silent that long after its keep-alive is due
constexpr int kLongestClockStepSec = 999;

// Log records name the operation that users know, also where a step of it has a function of its
// own.
constexpr char kSendPkg[] = "SendPkg";
constexpr char kOnThread[] = "OnThread";
#define LOG_AS(function, level, ...) \
    hlog_printf_ex(level, __FILE__, function, __LINE__, __VA_ARGS__)

// Sends one part of a packet. `more`: another part follows at once, and the kernel lets this one
// wait for it, so that a packet leaves in one segment.
int SendPart(HCSocket* sock, const char* buf, int len, int usec, bool more) {
    sock->SetMore(more);
    int sent = sock->Send(buf, len, usec);
    sock->SetMore(false);
    return sent;
}

int SendHeader(HCSocket* sock, uint32_t flag, uint32_t type, int length, int usec) {
    char header[kPacketHeaderBytes];
    WritePacketHeader(header, {flag, type, static_cast<uint32_t>(length)});
    return SendPart(sock, header, kPacketHeaderBytes, usec, length > 0);
}

// Reads a header into the first `room` (at most 12) bytes of `buf` and checks it; the words stay 0
// unless it came whole. Returns RecvAll's result, or -1 for a header that ends the link. `function`
// stands in the log record.
int RecvHeader(HCSocket* sock, char* buf, int room, int usec, const char* function,
               unsigned int& flag, unsigned int& type, int& len) {
    if (room > 0) memset(buf, 0, static_cast<size_t>(room));
    int got = sock->RecvAll(buf, room, usec);
    if (got != kPacketHeaderBytes) return got;

    PacketHeader header = ReadPacketHeader(buf);
    flag = header.flag;
    type = header.type;
    len = static_cast<int>(header.length);
    if (flag != kDataFlag && flag != kLoginFlag) {
        LOG_AS(function, HLOG_LEVEL_ERR, "receive data err.flag=[%d]\n", static_cast<int>(flag));
        return -1;
    }
    if (len < 0) {
        LOG_AS(function, HLOG_LEVEL_ERR, "receive data err.len=[%d]\n", len);
        return -1;
    }
    return got;
}

}  // namespace

// What the connection thread knows about the time since the last packet.
struct HCNetPackage::SilenceWatch {
    int64_t ref;  // when the last packet came, or the last interval was counted
    int64_t now;  // the pass under way; stays 0 while keep-alive is off
    int count;    // no-data intervals since the last packet
};

// ---- Life ----

HCNetPackage::HCNetPackage()
    : HCThread(kThreadName, false, nullptr),
      m_pSocket(nullptr),
      m_bServer(false),
      m_szIp{},
      m_nPort(0),
      m_bRun(true),
      m_pRecvBuf(nullptr),
      m_nRecvBufSize(0),
      m_nRecvBufDefSize(0),
      m_nKeepAliveSec(10),
      m_nMaxTimeoutCnt(3),
      m_tLastSend(0),
      m_pPasswd(nullptr),
      m_nPasswdLen(0),
      m_nConnectState(0),
      m_hSendMutex(arch_mutex_create()),
      m_nConnectTimeout(10),
      m_nSendTimeout(10000000),
      m_hPasswdMutex(arch_mutex_create()),
      m_bInPayload(false) {
    SetPasswdInfo(kDefaultRecord, kDefaultRecordBytes);
}

HCNetPackage::~HCNetPackage() {
    StopThread();
    // Nobody else is here any more, so no lock: SendPkg may have left m_hSendMutex locked.
    if (m_pSocket != nullptr) m_pSocket->Close();
    delete m_pSocket;
    delete[] m_pRecvBuf;
    delete[] m_pPasswd;
    arch_mutex_delete(m_hPasswdMutex);
    arch_mutex_delete(m_hSendMutex);
}

void HCNetPackage::StopThread() {
    m_bRun = false;
    // A login under way would wait up to 5 seconds for its reply, and a payload for ever if its
    // peer lets it trickle. Either looks at m_bRun after it has said that it waits, and from then
    // on the descriptor stays until the thread closes it under the mutex.
    if (MayWaitLong()) {
        HCMutex lock(m_hSendMutex);
        if (MayWaitLong() && m_pSocket != nullptr) shutdown(m_pSocket->m_nSocket, SHUT_RDWR);
    }
    Join(nullptr);
}

bool HCNetPackage::MayWaitLong() const { return m_nConnectState == NPS_CONNECTED || m_bInPayload; }

void HCNetPackage::StartAsClient(int bufsize, const char* host, unsigned short port,
                                 bool connectNow, HCSocket* sock) {
    StopThread();
    m_bRun = true;
    m_nPort = port;
    m_bServer = false;
    m_tLastSend = arch_time();
    m_nConnectState = NPS_CONNECTING;
    SetSocket(sock);
    SetHost(host);
    if (connectNow) _ConnectIfNeeded();
    PrepareRecvBuf(bufsize);
    Launch();
}

void HCNetPackage::StartAsClient(int bufsize, const char* host, unsigned short port,
                                 bool connectNow) {
    StartAsClient(bufsize, host, port, connectNow, nullptr);
}

void HCNetPackage::StartAsServer(int bufsize, HCSocket* sock) {
    if (sock == nullptr) {
        HLOG_ERR("StartAsServer err  Socket is NULL.\n");
        return;
    }
    AdoptClient(bufsize, sock);
    Launch();
}

// Everything of StartAsServer but the thread, which the packet service starts a little later.
void HCNetPackage::AdoptClient(int bufsize, HCSocket* sock) {
    StopThread();
    m_bRun = true;
    m_bServer = true;
    m_tLastSend = arch_time();
    if (m_pSocket != sock) delete m_pSocket;
    m_pSocket = sock;
    SetHost(sock->m_szHost);
    m_nPort = static_cast<unsigned short>(sock->m_nPort);
    PrepareRecvBuf(bufsize);
    // Last: from here on other threads may send.
    m_nConnectState = NPS_READY;
    OnEvent(NPE_LOGIN_OK);
}

void HCNetPackage::PrepareRecvBuf(int size) {
    m_nRecvBufDefSize = size;
    AllocRecvBuf(size);  // without memory the thread tries again when it reads
}

void HCNetPackage::Launch() {
    if (StartThread() != nullptr) return;
    HLOG_ERR("no thread for the connection to [%.64s][%d]\n", m_szIp, m_nPort);
    m_nConnectState = NPS_DISCONNECTED;
}

// A host of 64 characters fills the field without a terminator.
void HCNetPackage::SetHost(const char* host) {
    memset(m_szIp, 0, sizeof m_szIp);
    if (host != nullptr) memcpy(m_szIp, host, strnlen(host, sizeof m_szIp));
}

void HCNetPackage::SetSocket(HCSocket* sock) {
    if (sock == nullptr) return;
    // A thread already started may be making a socket of its own: the first one stays.
    HCSocket* none = nullptr;
    __atomic_compare_exchange_n(&m_pSocket, &none, sock, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

void HCNetPackage::SetPasswdInfo(const char* data, int len) {
    // The reply buffer is one byte larger than the record, hence the upper bound.
    if (data == nullptr || len <= 0 || len == INT_MAX) return;
    char* record = new (std::nothrow) char[static_cast<size_t>(len)];
    if (record == nullptr) return;
    memcpy(record, data, static_cast<size_t>(len));

    HCMutex lock(m_hPasswdMutex);
    delete[] m_pPasswd;
    m_pPasswd = record;
    m_nPasswdLen = len;
}

void HCNetPackage::PkgReceived(unsigned int, char*, int) {}

void HCNetPackage::TimerTick_Nodata(unsigned int) {}

void HCNetPackage::OnEvent(NPEvent_e) {}

bool HCNetPackage::IsNeedClear() { return m_nConnectState == NPS_DISCONNECTED; }

void HCNetPackage::RaiseLost(NPEvent_e event) {
    m_nConnectState = NPS_DISCONNECTED;
    OnEvent(event);
}

// ---- Reading packets ----

int HCNetPackage::__get_a_package(HCSocket* sock, unsigned int& flag, unsigned int& type, int& len,
                                  bool& empty, char* buf, int maxlen) {
    flag = type = 0;
    len = 0;
    empty = false;
    if (sock == nullptr || buf == nullptr) return -1;
    if (maxlen < kPacketHeaderBytes) HLOG_INFO("not enough buffer to receive data.\n");

    int room = std::min(maxlen, kPacketHeaderBytes);
    int got = RecvHeader(sock, buf, room, kLoginReadUs, __func__, flag, type, len);
    if (got < 1) return got;
    empty = len == 0;
    if (empty) return 0;
    if (len > maxlen) {
        HLOG_INFO("not enough buffer to receive data.: datalen: %d, maxlen: %d\n", len, maxlen);
        len = maxlen;
    }
    return sock->RecvAll(buf, len, kLoginReadUs);
}

int HCNetPackage::_getPackage(unsigned int& flag, unsigned int& type, int& len, bool& empty,
                              int usec) {
    flag = type = 0;
    len = 0;
    empty = false;
    if (m_pSocket == nullptr) return -1;
    int capacity = std::max(m_nRecvBufSize, kPacketHeaderBytes);
    if ((m_pRecvBuf == nullptr || capacity > m_nRecvBufSize) && !AllocRecvBuf(capacity)) return -1;

    int got =
        RecvHeader(m_pSocket, m_pRecvBuf, kPacketHeaderBytes, usec, __func__, flag, type, len);
    if (got < 1) return got;
    empty = len == 0;
    if (empty) return 0;
    if (len > m_nRecvBufSize && !AllocRecvBuf(len)) return -1;
    m_bInPayload = true;
    got = m_bRun ? m_pSocket->RecvAll(m_pRecvBuf, len, usec) : -1;
    m_bInPayload = false;
    if (got > 0) m_pRecvBuf[got] = '\0';
    return got;
}

// Makes the receive buffer anew; its contents are lost. One spare byte behind the capacity is for
// the zero behind a payload.
bool HCNetPackage::AllocRecvBuf(int size) {
    delete[] m_pRecvBuf;
    m_nRecvBufSize = size;
    m_pRecvBuf = new (std::nothrow) char[static_cast<size_t>(std::max(size, 0)) + 1];
    if (m_pRecvBuf != nullptr) return true;
    HLOG_ERR("no memory for a packet of %d bytes from [%.64s][%d]\n", size, m_szIp, m_nPort);
    m_nRecvBufSize = m_nRecvBufDefSize;  // what the next read asks for
    return false;
}

// Gives back what a large packet needed. Without memory for the small buffer the large one stays.
void HCNetPackage::ShrinkRecvBuf() {
    if (m_nRecvBufSize <= m_nRecvBufDefSize) return;
    char* small = new (std::nothrow) char[static_cast<size_t>(std::max(m_nRecvBufDefSize, 0)) + 1];
    if (small == nullptr) return;
    delete[] m_pRecvBuf;
    m_pRecvBuf = small;
    m_nRecvBufSize = m_nRecvBufDefSize;
}

int HCNetPackage::_ProgressData(char* data, int len) {
    if (data == nullptr || len < kPacketHeaderBytes) return -1;
    PacketHeader header = ReadPacketHeader(data);
    if (header.flag != kDataFlag) HLOG_ERR("ERROR: Data wrong\n");
    int length = static_cast<int>(header.length);
    if (length < 0 || len - kPacketHeaderBytes < length) return -1;
    if (length == 0) return kPacketHeaderBytes;

    int consumed = kPacketHeaderBytes + length;
    char* behind = data + consumed;
    if (consumed == len) {
        PkgReceived(header.type, data + kPacketHeaderBytes, length);
        return consumed;
    }
    // The hook may write a zero behind the payload, where the next packet begins.
    char kept = *behind;
    *behind = '\0';
    PkgReceived(header.type, data + kPacketHeaderBytes, length);
    *behind = kept;
    return consumed;
}

// ---- Client: connect and log in ----

bool HCNetPackage::_ConnectIfNeeded() {
    if (m_nConnectState == NPS_READY || m_bServer) return true;
    char host[sizeof m_szIp + 1] = {};  // m_szIp may come without a terminator
    memcpy(host, m_szIp, sizeof m_szIp);

    if (!HoldSocket() || m_pSocket->Connect(host, m_nPort, m_nConnectTimeout) < 0) {
        OnEvent(NPE_CONNECT_FAILED);
        m_nConnectState = NPS_DISCONNECTED;
        return false;
    }
    m_nConnectState = NPS_CONNECTED;
    // In this order, so that a StopThread meanwhile either sees the state or is seen here.
    if (m_bRun) _ClientLoginIfNeeded();
    if (m_nConnectState == NPS_READY) return true;
    m_nConnectState = NPS_DISCONNECTED;
    return false;
}

// Leaves the state NPS_CONNECTING, set under the mutex: whoever is sending finishes first on the
// old descriptor, and whoever waits for the mutex finds that it must not send. So Connect may close
// it.
bool HCNetPackage::HoldSocket() {
    HCMutex lock(m_hSendMutex);
    m_nConnectState = NPS_CONNECTING;
    if (m_pSocket == nullptr) {
        auto* made = new (std::nothrow) HCSocket;
        SetSocket(made);
        if (m_pSocket != made) delete made;
    }
    return m_pSocket != nullptr;
}

void HCNetPackage::_ClientLoginIfNeeded() {
    if (m_pSocket == nullptr) {
        HLOG_ERR("Not Connected now\n");
        return;
    }
    int record_bytes = 0;
    std::unique_ptr<char[]> buf = CopyRecord(record_bytes);
    if (buf == nullptr) {
        HLOG_ERR("no memory to log in\n");
        return;
    }
    int sent = SendHeader(m_pSocket, kLoginFlag, 0, record_bytes, m_nSendTimeout);
    if (sent >= 0) sent = SendPart(m_pSocket, buf.get(), record_bytes, m_nSendTimeout, false);
    if (sent < 0) {
        HLOG_ERR("Send err [%d]\n", sent);
        return;
    }

    unsigned int flag = 0;
    unsigned int type = 0;
    int len = 0;
    bool empty = false;
    int got = __get_a_package(m_pSocket, flag, type, len, empty, buf.get(), record_bytes + 1);
    if (flag != kLoginFlag || len <= 0 || got <= 0) {
        HLOG_ERR("get_package err [%d]\n", got);
        return;
    }
    ApplyLoginReply(buf.get(), got);
}

// The record in a buffer one byte larger, in which the reply is read.
std::unique_ptr<char[]> HCNetPackage::CopyRecord(int& bytes) {
    HCMutex lock(m_hPasswdMutex);
    bytes = m_nPasswdLen;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[static_cast<size_t>(bytes) + 1]());
    if (copy != nullptr && m_pPasswd != nullptr) memcpy(copy.get(), m_pPasswd, bytes);
    return copy;
}

void HCNetPackage::ApplyLoginReply(const char* reply, int len) {
    bool admitted = len >= kAdmittedBytes && memcmp(reply, kAdmitted, kAdmittedBytes) == 0;
    m_nConnectState = admitted ? NPS_READY : NPS_LOGIN_FAILED;
    OnEvent(admitted ? NPE_LOGIN_OK : NPE_LOGIN_FAILED);
}

void HCNetPackage::_ServerClientCheckingPasswd(const char* reply, int len) {
    HLOG_DEBUG("_ServerClientCheckingPasswd\n");
    if (m_bServer || reply == nullptr) return;
    ApplyLoginReply(reply, len);
}

// ---- Server: admit a client ----

bool HCNetPackage::WaitingLogin(HCNetPackageService* svc, HCSocket* sock) {
    if (svc == nullptr || sock == nullptr) return false;
    char record[kLoginRequestRoom + 1] = {};  // a zero always follows what CheckPasswd sees
    unsigned int flag = 0;
    unsigned int type = 0;
    int len = 0;
    bool empty = false;
    int got = __get_a_package(sock, flag, type, len, empty, record, kLoginRequestRoom);
    if (flag != kLoginFlag || len <= 0 || got <= 0) return false;

    record[got] = '\0';  // the header lay there before
    std::string message;
    if (svc->CheckPasswd(record, got, sock, message))
        return ResponseLogin(sock, kAdmitted, kAdmittedBytes) == 0;
    if (message.empty()) {
        message = kRefused;
    } else {
        HLOG_INFO("message=[%s]\n", message.c_str());
    }
    ResponseLogin(sock, message.data(), static_cast<int>(message.size()));
    return false;
}

int HCNetPackage::ResponseLogin(HCSocket* sock, const char* msg, int len) {
    if (sock == nullptr) return -1;
    int sent = SendHeader(sock, kLoginFlag, 0, len, kLoginReplySendUs);
    if (sent != kPacketHeaderBytes) {
        HLOG_ERR("failed to send login respose[%d][%d]\n", sent, kPacketHeaderBytes);
        return -1;
    }
    if (len <= 0) return 0;
    sent = SendPart(sock, msg, len, kLoginReplySendUs, false);
    if (sent != len) {
        HLOG_ERR("failed to send login respose[%d][%d]\n", sent, len);
        return -1;
    }
    return 0;
}

// ---- Sending ----

int HCNetPackage::SendPkg(unsigned int type, const char* data, int len, int waitSec) {
    return SendPkg(type, &data, &len, 1, waitSec);
}

int HCNetPackage::SendPkg(unsigned int type, const char** bufs, const int* lens, int count,
                          int waitSec) {
    if (bufs == nullptr || lens == nullptr) count = 0;
    int64_t total = 0;
    for (int i = 0; i < count; i++) total += std::max(lens[i], 0);
    if (total > INT_MAX) {
        HLOG_ERR("ERROR: data too long: %lld\n", static_cast<long long>(total));
        return -1;
    }
    if (!LockWhenReady(waitSec)) return kNotLoggedIn;
    if (m_pSocket == nullptr) {
        HLOG_ERR("Not Connected now\n");
        // The mutex stays locked on purpose: a connection without a socket never sends again.
        return kNotLoggedIn;
    }

    int sent = SendPieces(type, bufs, lens, count, static_cast<int>(total));
    if (sent < 0) {
        HLOG_ERR("SendPkg error: %d, %s\n", errno, strerror(errno));
        RaiseLost(NPE_DISCONNECTED);
    }
    m_tLastSend = arch_time();
    arch_mutex_unlock(m_hSendMutex);
    return sent;
}

// Waits for a login under way. True with m_hSendMutex locked and the state NPS_READY, which only
// the loss of the link ends while the mutex is held.
bool HCNetPackage::LockWhenReady(int wait_sec) {
    int steps = 0;
    for (;;) {
        int state = m_nConnectState;
        if (state == NPS_READY) {
            arch_mutex_lock(m_hSendMutex);
            if (m_nConnectState == NPS_READY) return true;
            // The link was lost while another thread was sending.
            arch_mutex_unlock(m_hSendMutex);
            continue;
        }
        if (state != NPS_CONNECTING && state != NPS_CONNECTED) {
            LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "Not Connect yet, ConnectState : [%d]\n", state);
            return false;
        }
        if (wait_sec <= steps / kStepsPerSecond) {
            LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "Not Connect yet, send data later please\n");
            return false;
        }
        usleep(kPauseStepUs);
        steps++;
    }
}

// The result of the last send, or -1 with errno as the send left it. m_hSendMutex is held.
int HCNetPackage::SendPieces(unsigned int type, const char** bufs, const int* lens, int count,
                             int total) {
    int last = count - 1;
    while (last >= 0 && lens[last] <= 0) last--;

    int sent = SendHeader(m_pSocket, kDataFlag, type, total, m_nSendTimeout);
    if (sent != kPacketHeaderBytes) {
        int error = errno;
        LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "ERROR: data send error2: %d, %d\n", sent,
               kPacketHeaderBytes);
        errno = error;
        return -1;
    }
    for (int i = 0; i <= last; i++) {
        if (lens[i] <= 0) continue;
        sent = SendPart(m_pSocket, bufs[i], lens[i], m_nSendTimeout, i < last);
        if (sent != lens[i]) {
            int error = errno;
            LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "ERROR: data send error3: %d, %d\n", sent, lens[i]);
            errno = error;
            return -1;
        }
    }
    return sent;
}

// ---- The connection thread ----

void* HCNetPackage::OnThread(void*) {
    SilenceWatch watch = {arch_time(), 0, 0};
    bool linked = true;
    while (m_bRun && linked) {
        if (!_ConnectIfNeeded()) {
            PauseAfterFailure();
            continue;
        }
        Step step = m_nKeepAliveSec > 0 ? WatchSilence(watch) : Step::kGoOn;
        if (step == Step::kGoOn) step = ReceiveOne(watch);
        // A client goes on: its next pass connects again.
        if (step == Step::kLost && m_bServer) linked = false;
    }
    m_nConnectState = NPS_DISCONNECTED;
    HLOG_INFO("m_bServer[%d]  OnThread  end...[%.64s][%d]\n", m_bServer, m_szIp, m_nPort);

    HCMutex lock(m_hSendMutex);
    if (m_pSocket != nullptr) m_pSocket->Close();
    delete m_pSocket;
    m_pSocket = nullptr;
    return nullptr;
}

void HCNetPackage::PauseAfterFailure() {
    for (int i = 0; i < kPauseSteps && m_bRun; i++) usleep(kPauseStepUs);
}

// Counts the intervals without a packet and sends the keep-alives, both by a clock that may jump.
HCNetPackage::Step HCNetPackage::WatchSilence(SilenceWatch& watch) {
    watch.now = arch_time();
    if (watch.ref > watch.now || watch.ref + kLongestClockStepSec < watch.now) {
        LOG_AS(kOnThread, HLOG_LEVEL_ERR, "It Seems That, TIME Changed\n");
        m_tLastSend = static_cast<time_t>(watch.now);
        watch.ref = watch.now;
        return Step::kNextPass;
    }
    int64_t interval = m_nKeepAliveSec;
    if (watch.ref + interval + kSilenceGraceSec < watch.now) {
        watch.ref = watch.now;
        watch.count++;
        LOG_AS(kOnThread, HLOG_LEVEL_INFO, "timeout: %d [%.64s][%d]\n", watch.count, m_szIp,
               m_nPort);
        if (watch.count >= m_nMaxTimeoutCnt) {
            watch.count = 0;
            RaiseLost(NPE_TIMEOUT);
            return Step::kLost;
        }
    }
    if (m_tLastSend + interval < watch.now) {
        m_tLastSend = static_cast<time_t>(watch.now);
        SendPkg(0, nullptr, 0, 0);
    }
    return Step::kGoOn;
}

HCNetPackage::Step HCNetPackage::ReceiveOne(SilenceWatch& watch) {
    unsigned int flag = 0;
    unsigned int type = 0;
    int len = 0;
    bool empty = false;
    int got = _getPackage(flag, type, len, empty, kReceiveUs);
    if (got < 0) {
        RaiseLost(NPE_DISCONNECTED);
        return Step::kLost;
    }
    if (got == 0 && !empty) {
        TimerTick_Nodata(kReceiveUs);
        return Step::kGoOn;
    }
    if (got > 0) {
        if (flag == kDataFlag) PkgReceived(type, m_pRecvBuf, got);
        ShrinkRecvBuf();
    }
    watch.ref = watch.now;
    watch.count = 0;
    return Step::kGoOn;
}
