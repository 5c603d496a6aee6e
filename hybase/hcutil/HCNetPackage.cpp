#include "hybase/hcutil/HCNetPackage.h"

#include <errno.h>
#include <hybase/hcutil/HCMutex.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <hybase/hlog.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "hybase/hcutil/package_state.h"
#include "hybase/hcutil/packet_io.h"
#include "hybase/hcutil/receive_buffer.h"
#include "hybase/hcutil/server_login.h"
#include "hybase/hcutil/socket_inside.h"

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

constexpr int kReceiveUs = 500000;
constexpr int kNotLoggedIn = -21;
constexpr int kLoginReplySendUs = 500000;
constexpr int kFirstGrowthBytes = 64 * 1024;
constexpr useconds_t kPauseStepUs = 100000;
constexpr int kStepsPerSecond = 10;  // of kPauseStepUs
constexpr int kLongestPauseMs = 10000;
constexpr int kShortestPauseMs = 100;
constexpr int64_t kQuickLossMs = 1000;  // a link that is lost sooner was no link
constexpr useconds_t kStopStepUs = 1000;
constexpr int kGraceSteps = 300;     // of kStopStepUs
constexpr int kSilenceGraceSec = 2;  // a peer is silent that long after its keep-alive is due
constexpr int kLongestClockStepSec = 999;

// Log records name the operation that users know, not a step of it.
constexpr char kSendPkg[] = "SendPkg";
constexpr char kOnThread[] = "OnThread";

// Counts `bytes` as long as it lives.
class Counted {
  public:
    Counted(std::atomic<int64_t>& sum, int64_t bytes) : sum_(sum), bytes_(bytes) { sum_ += bytes_; }
    ~Counted() { sum_ -= bytes_; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    std::atomic<int64_t>& sum_;
    const int64_t bytes_;
};

void LogReplyFailure(const HCSocket& sock, int sent, int length) {
    if (SocketInside::CutFlag(sock)) return;  // by the service, which stops
    LOG_AS("ResponseLogin", HLOG_LEVEL_ERR, "failed to send login respose[%d][%d]\n", sent, length);
}

// Between three and five quarters, so that a fleet that lost its server does not come back at once.
int WithJitter(int ms) {
    uint16_t random = 0;
    arch_rand_bytes(&random, sizeof random);
    return ms - ms / 4 + static_cast<int>(int64_t{ms} / 2 * random / UINT16_MAX);
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
      m_pState(new (std::nothrow) State),
      m_bInThread(false) {
    SetPasswdInfo(kDefaultRecord, kDefaultRecordBytes);
}

HCNetPackage::~HCNetPackage() {
    StopThread();
    // Nobody else is here any more, so no lock: SendPkg may have left m_hSendMutex locked.
    if (m_pSocket != nullptr) m_pSocket->Close();
    delete m_pSocket;
    DeleteReceiveBuffer(m_pRecvBuf, m_nRecvBufSize);
    delete[] m_pPasswd;
    arch_mutex_delete(m_hSendMutex);
}

void HCNetPackage::SetLimits(const HCNetLimits& limits) {
    if (m_pState != nullptr) m_pState->limits = limits;
}

// A packet under way has a moment to go out; a hook that runs has its time.
void HCNetPackage::StopThread() {
    TellToStop();
    for (int steps = 0; m_bInThread; usleep(kStopStepUs)) {
        steps = m_pState->senders > 0 ? steps + 1 : 0;
        if (steps == kGraceSteps) CutLink(SocketInside::kAll);
    }
    Join(nullptr);
    while (InUse()) usleep(kStopStepUs);
}

void HCNetPackage::TellToStop() {
    m_bRun = false;
    if (m_hThread != nullptr) CutLink(SocketInside::kReceiving);
}

void HCNetPackage::CutLink(char what) {
    if (m_pState == nullptr) return;
    const std::lock_guard<std::mutex> lock(m_pState->descriptor);
    HCSocket* sock = Socket();
    if (sock != nullptr)
        SocketInside::CutOff(*sock, static_cast<SocketInside::Cut>(what),
                             m_nConnectState != NPS_CONNECTING);
}

// After a send that has failed: what is left of the packet is of no use. Leaves a link alone that
// another thread has made meanwhile.
void HCNetPackage::AbortLink() {
    const std::lock_guard<std::mutex> lock(m_pState->descriptor);
    HCSocket* sock = Socket();
    if (sock == nullptr || m_nConnectState != NPS_READY) return;
    SocketInside::DropUnsent(*sock);
    SocketInside::CutOff(*sock, SocketInside::kAll, true);
}

bool HCNetPackage::InUse() const {
    return m_bInThread || (m_pState != nullptr && m_pState->pins > 0);
}

// Whether what fails now fails because of StopThread, which is no failure to report. m_bRun alone
// is not enough: a hook may clear it to end its own connection.
bool HCNetPackage::IsStopping() const {
    const HCSocket* sock = Socket();
    return !m_bRun && sock != nullptr && SocketInside::CutFlag(*sock) != SocketInside::kNoCut;
}

HCSocket* HCNetPackage::Socket() const { return __atomic_load_n(&m_pSocket, __ATOMIC_ACQUIRE); }

void HCNetPackage::StartAsClient(int bufsize, const char* host, unsigned short port,
                                 bool connectNow, HCSocket* sock) {
    StopThread();
    m_bRun = true;
    m_nPort = port;
    m_bServer = false;
    m_tLastSend = arch_time();
    m_nConnectState = NPS_CONNECTING;
    if (m_pState != nullptr) m_pState->admitted_ms = m_pState->quick_losses = 0;
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
    __atomic_store_n(&m_pSocket, sock, __ATOMIC_RELEASE);
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

// Without a thread the peer sees the close at once.
void HCNetPackage::Launch() {
    if (TryLaunch() || m_pState == nullptr) return;
    HCMutex lock(m_hSendMutex);
    const std::lock_guard<std::mutex> descriptor(m_pState->descriptor);
    if (HCSocket* sock = Socket()) sock->Close();
}

bool HCNetPackage::TryLaunch() {
    if (m_pState != nullptr && StartThread() != nullptr) return true;
    m_nConnectState = NPS_DISCONNECTED;
    HLOG_ERR("no thread for the connection to [%.64s][%d]\n", m_szIp, m_nPort);
    return false;
}

// A host of 64 characters fills the field without a terminator.
void HCNetPackage::SetHost(const char* host) {
    memset(m_szIp, 0, sizeof m_szIp);
    if (host != nullptr) memcpy(m_szIp, host, strnlen(host, sizeof m_szIp));
}

void HCNetPackage::SetSocket(HCSocket* sock) {
    if (sock == nullptr || Socket() != nullptr) return;
    // A thread already started may be making a socket of its own: the first one stays.
    HCSocket* none = nullptr;
    __atomic_compare_exchange_n(&m_pSocket, &none, sock, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE);
}

void HCNetPackage::SetPasswdInfo(const char* data, int len) {
    // The reply buffer is one byte larger than the record, hence the upper bound.
    if (data == nullptr || len <= 0 || len == INT_MAX || m_pState == nullptr) return;
    char* record = new (std::nothrow) char[static_cast<size_t>(len)];
    if (record == nullptr) return;
    memcpy(record, data, static_cast<size_t>(len));

    const std::lock_guard<std::mutex> lock(m_pState->record);
    delete[] m_pPasswd;
    m_pPasswd = record;
    m_nPasswdLen = len;
}

void HCNetPackage::PkgReceived(unsigned int, char*, int) {}

void HCNetPackage::TimerTick_Nodata(unsigned int) {}

void HCNetPackage::OnEvent(NPEvent_e) {}

bool HCNetPackage::IsNeedClear() { return m_nConnectState == NPS_DISCONNECTED; }

void HCNetPackage::RaiseLost(NPEvent_e event) {
    if (LoseLink()) OnEvent(event);
}

// The peer sees it now, and nothing more that it has sent is executed. False when another thread
// was first: it reports the loss.
bool HCNetPackage::LoseLink() {
    int ready = NPS_READY;
    const bool lost = m_nConnectState.compare_exchange_strong(ready, NPS_DISCONNECTED);
    if (lost) CutLink(SocketInside::kAll);
    return lost;
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
    int got = RecvHeader(*sock, buf, room, kLoginReadUs, __func__, flag, type, len);
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
    if (m_pSocket == nullptr || m_pState == nullptr) return -1;
    int capacity = std::max(m_nRecvBufSize, kPacketHeaderBytes);
    if ((m_pRecvBuf == nullptr || capacity > m_nRecvBufSize) && !AllocRecvBuf(capacity)) return -1;

    TransferWatch watch = TransferWatch::Receiving(m_pState->limits);
    const bool in_time =
        SocketInside::IsOurs(*m_pSocket) && TransferWatch::ForReceiving(m_pState->limits);
    int got = in_time ? RecvHeaderInTime(usec, watch, flag, type, len)
                      : RecvHeader(*m_pSocket, m_pRecvBuf, kPacketHeaderBytes, usec, __func__, flag,
                                   type, len);
    if (got < 1) return got;
    empty = len == 0;
    if (empty) return 0;
    const int longest = m_pState->limits.max_packet_bytes;
    if (longest > 0 && len > longest) {
        HLOG_ERR("receive data err.len=[%d]\n", len);
        return -1;
    }
    got = RecvPayload(len, usec, in_time ? &watch : nullptr);
    if (got > 0) m_pRecvBuf[got] = '\0';
    return got;
}

// The transfer begins with the first byte of the header; until then the peer owes nothing.
int HCNetPackage::RecvHeaderInTime(int usec, TransferWatch& watch, unsigned int& flag,
                                   unsigned int& type, int& len) {
    const int first = m_pSocket->Recv(m_pRecvBuf, kPacketHeaderBytes, usec);
    if (first < 1) return first;
    watch = TransferWatch::Receiving(m_pState->limits);
    const int rest = kPacketHeaderBytes - first;
    if (rest > 0 && RecvInTime(*m_pSocket, m_pRecvBuf + first, rest, watch) < 0) return -1;
    return CheckHeader(m_pRecvBuf, "_getPackage", flag, type, len) ? kPacketHeaderBytes : -1;
}

// The buffer grows with what has come, not with what the header announces: that costs a peer
// nothing. A socket class of the application's is asked for the whole payload at once.
int HCNetPackage::RecvPayload(int len, int usec, TransferWatch* watch) {
    if (!SocketInside::IsOurs(*m_pSocket)) {
        if (len > m_nRecvBufSize && !AllocRecvBuf(len)) return -1;
        return m_bRun ? m_pSocket->RecvAll(m_pRecvBuf, len, usec) : -1;
    }
    for (int got = 0;;) {
        const int part = std::min(len, m_nRecvBufSize) - got;
        const int result = watch != nullptr ? RecvInTime(*m_pSocket, m_pRecvBuf + got, part, *watch)
                                            : m_pSocket->RecvAll(m_pRecvBuf + got, part, usec);
        if (result < 1) return result;
        got += part;
        if (got == len) return len;
        if (!GrowRecvBuf(got, len)) return -1;
    }
}

// Doubles the receive buffer, up to `most`, and keeps its first `kept` bytes.
bool HCNetPackage::GrowRecvBuf(int kept, int most) {
    const int64_t doubled = std::max<int64_t>(int64_t{m_nRecvBufSize} * 2, kFirstGrowthBytes);
    if (ResizeRecvBuf(static_cast<int>(std::min<int64_t>(doubled, most)), kept)) return true;
    LogNoMemory(most);
    return false;
}

bool HCNetPackage::ResizeRecvBuf(int size, int kept) {
    char* resized = ResizeReceiveBuffer(m_pRecvBuf, m_nRecvBufSize, size, kept);
    if (resized == nullptr) return false;
    m_pRecvBuf = resized;
    m_nRecvBufSize = size;
    return true;
}

// Makes the receive buffer anew; its contents are lost. One spare byte behind the capacity is for
// the zero behind a payload.
bool HCNetPackage::AllocRecvBuf(int size) {
    DeleteReceiveBuffer(m_pRecvBuf, m_nRecvBufSize);
    m_nRecvBufSize = size;
    m_pRecvBuf = NewReceiveBuffer(size);
    if (m_pRecvBuf != nullptr) return true;
    LogNoMemory(size);
    m_nRecvBufSize = m_nRecvBufDefSize;  // what the next read asks for
    return false;
}

// Gives back what a large packet needed. Without memory for the small buffer the large one stays.
void HCNetPackage::ShrinkRecvBuf() {
    const int size = std::max(m_nRecvBufDefSize, kPacketHeaderBytes);
    if (m_nRecvBufSize > size) ResizeRecvBuf(size, 0);
}

void HCNetPackage::LogNoMemory(int bytes) const {
    LOG_AS("AllocRecvBuf", HLOG_LEVEL_ERR, "no memory for a packet of %d bytes from [%.64s][%d]\n",
           bytes, m_szIp, m_nPort);
}

int HCNetPackage::_ProgressData(char* data, int len) {
    if (data == nullptr) return -1;
    if (len < kPacketFlagBytes || LoadBigEndian32(data) != kDataFlag)
        HLOG_ERR("ERROR: Data wrong\n");
    if (len < kPacketHeaderBytes) return -1;
    const PacketHeader header = ReadPacketHeader(data);
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
        if (!IsStopping()) OnEvent(NPE_CONNECT_FAILED);
        m_nConnectState = NPS_DISCONNECTED;
        return false;
    }
    m_nConnectState = NPS_CONNECTED;
    // In this order, so that a TellToStop meanwhile either sees the state or is seen here.
    if (m_bRun) _ClientLoginIfNeeded();
    if (m_nConnectState == NPS_READY) return true;
    m_nConnectState = NPS_DISCONNECTED;
    return false;
}

// Leaves the state NPS_CONNECTING, set under the mutex: a thread that is sending finishes first on
// the old descriptor, and one that waits for the mutex finds that it must not send. So Connect may
// close it.
bool HCNetPackage::HoldSocket() {
    if (m_pState == nullptr) return false;
    HCMutex lock(m_hSendMutex);
    if (Socket() == nullptr) {
        auto* made = new (std::nothrow) HCSocket;
        SetSocket(made);
        if (Socket() != made) delete made;
    }
    const std::lock_guard<std::mutex> descriptor(m_pState->descriptor);
    m_nConnectState = NPS_CONNECTING;
    if (Socket() == nullptr) return false;
    // A cut belongs to the link that was lost; a stop, perhaps told before there was a socket,
    // stays.
    if (m_bRun) {
        SocketInside::EndCut(*m_pSocket);
    } else {
        SocketInside::CutOff(*m_pSocket, SocketInside::kReceiving, false);
    }
    return true;
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
    int sent = SendHeader(*m_pSocket, kLoginFlag, 0, record_bytes, m_nSendTimeout);
    if (sent >= 0) sent = SendPart(*m_pSocket, buf.get(), record_bytes, m_nSendTimeout, false);
    if (sent < 0) {
        if (!IsStopping()) HLOG_ERR("Send err [%d]\n", sent);
        return;
    }

    unsigned int flag = 0;
    unsigned int type = 0;
    int len = 0;
    bool empty = false;
    int got = __get_a_package(m_pSocket, flag, type, len, empty, buf.get(), record_bytes + 1);
    if (flag != kLoginFlag || len <= 0 || got <= 0) {
        if (!IsStopping()) HLOG_ERR("get_package err [%d]\n", got);
        return;
    }
    ApplyLoginReply(buf.get(), got);
}

// The record in a buffer one byte larger, in which the reply is read.
std::unique_ptr<char[]> HCNetPackage::CopyRecord(int& bytes) {
    const std::lock_guard<std::mutex> lock(m_pState->record);
    bytes = m_nPasswdLen;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[static_cast<size_t>(bytes) + 1]());
    if (copy != nullptr && m_pPasswd != nullptr) memcpy(copy.get(), m_pPasswd, bytes);
    return copy;
}

void HCNetPackage::ApplyLoginReply(const char* reply, int len) {
    bool admitted = len >= kAdmittedBytes && memcmp(reply, kAdmitted, kAdmittedBytes) == 0;
    if (admitted && m_pState != nullptr) m_pState->admitted_ms = arch_getSystemStartupMs();
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
    return svc->AnswerLogin(*sock, record, got);
}

int HCNetPackage::ResponseLogin(HCSocket* sock, const char* msg, int len) {
    if (sock == nullptr) return -1;
    int sent = SendHeader(*sock, kLoginFlag, 0, len, kLoginReplySendUs);
    if (sent != kPacketHeaderBytes) {
        LogReplyFailure(*sock, sent, kPacketHeaderBytes);
        return -1;
    }
    if (len <= 0) return 0;
    sent = SendPart(*sock, msg, len, kLoginReplySendUs, false);
    if (sent != len) {
        LogReplyFailure(*sock, sent, len);
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
    const Pieces pieces = {bufs, lens, bufs != nullptr && lens != nullptr ? count : 0};
    const int64_t total = pieces.Bytes();
    if (total > INT_MAX) {
        HLOG_ERR("ERROR: data too long: %lld\n", static_cast<long long>(total));
        return -1;
    }
    if (m_pState == nullptr) return kNotLoggedIn;
    const Counted waiting(m_pState->unsent, total);
    if (TooMuchUnsent()) return EndForUnsent();
    if (!LockWhenReady(waitSec)) return kNotLoggedIn;
    if (Socket() == nullptr) {
        HLOG_ERR("Not Connected now\n");
        // The mutex stays locked on purpose: a connection without a socket never sends again.
        return kNotLoggedIn;
    }
    const int sent = SendPieces(type, pieces, static_cast<int>(total));
    FinishSend(sent);
    return sent;
}

// Takes note of a send that has ended, and gives m_hSendMutex back. errno is still the send's.
void HCNetPackage::FinishSend(int sent) {
    if (sent < 0 && FailSend()) OnEvent(NPE_DISCONNECTED);
    m_tLastSend = arch_time();
    UnlockSending();
}

// Ends the link after a failed send; errno is the send's. True when the loss is to be reported: not
// for a stop, nor when the connection thread has noticed it first.
bool HCNetPackage::FailSend() {
    const bool stopping = IsStopping();
    if (!stopping)
        LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "SendPkg error: %d, %s\n", errno, strerror(errno));
    AbortLink();
    return LoseLink() && !stopping;
}

bool HCNetPackage::TooMuchUnsent() const {
    const int limit = m_pState->limits.max_unsent_bytes;
    return limit > 0 && m_nConnectState == NPS_READY && m_pState->unsent > limit;
}

// The cut makes a sender that holds the mutex fail, and that one reports the loss.
int HCNetPackage::EndForUnsent() {
    HLOG_ERR("more than %d bytes wait for [%.64s][%d]\n", m_pState->limits.max_unsent_bytes, m_szIp,
             m_nPort);
    AbortLink();
    LockSending();
    if (!IsStopping()) RaiseLost(NPE_DISCONNECTED);
    UnlockSending();
    return -1;
}

void HCNetPackage::LockSending() {
    m_pState->senders++;
    arch_mutex_lock(m_hSendMutex);
}

void HCNetPackage::UnlockSending() {
    arch_mutex_unlock(m_hSendMutex);
    m_pState->senders--;
}

// LockSending unless a sender is at work: never waits for one.
bool HCNetPackage::TryLockSending() {
    int none = 0;
    if (!m_pState->senders.compare_exchange_strong(none, 1)) return false;
    arch_mutex_lock(m_hSendMutex);
    return true;
}

// Waits for a login under way. True with m_hSendMutex locked and the state NPS_READY, which only
// the loss of the link ends while the mutex is held.
bool HCNetPackage::LockWhenReady(int wait_sec) {
    int steps = 0;
    for (;;) {
        int state = m_nConnectState;
        if (state == NPS_READY) {
            LockSending();
            if (m_nConnectState == NPS_READY) return true;
            // The link was lost while another thread was sending.
            UnlockSending();
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
int HCNetPackage::SendPieces(unsigned int type, const Pieces& pieces, int total) {
    if (SocketInside::IsOurs(*m_pSocket) && TransferWatch::ForSending(m_pState->limits)) {
        TransferWatch watch = TransferWatch::Sending(m_pState->limits, m_nSendTimeout);
        PacketOut packet(type, pieces, total);
        if (packet.PushInTime(*m_pSocket, watch) == PacketOut::Progress::kDone)
            return packet.Result();
        if (!IsStopping()) packet.LogFailure();
        return -1;
    }
    int last = pieces.count - 1;
    while (last >= 0 && pieces.lens[last] <= 0) last--;

    int sent = SendHeader(*m_pSocket, kDataFlag, type, total, m_nSendTimeout);
    if (sent != kPacketHeaderBytes) {
        if (!IsStopping()) LogHeaderFailure(sent);
        return -1;
    }
    for (int i = 0; i <= last; i++) {
        const int length = pieces.lens[i];
        if (length <= 0) continue;
        sent = SendPart(*m_pSocket, pieces.bufs[i], length, m_nSendTimeout, i < last);
        if (sent == length) continue;
        if (!IsStopping()) LogPieceFailure(sent, length);
        return -1;
    }
    return sent;
}

// ---- The connection thread ----

void* HCNetPackage::OnThread(void*) {
    m_bInThread = true;
    SilenceWatch watch = {arch_time(), 0, 0};
    while (m_bRun) {
        if (!m_bServer) PauseAfterQuickLoss();
        if (!_ConnectIfNeeded()) {
            Pause(kLongestPauseMs);
            continue;
        }
        if (m_nKeepAliveSec <= 0 || WatchSilence(watch)) ReceiveOne(watch);
        // A client goes on: its next pass connects again.
        if (m_bServer && m_nConnectState == NPS_DISCONNECTED) break;
    }
    m_nConnectState = NPS_DISCONNECTED;
    HLOG_INFO("m_bServer[%d]  OnThread  end...[%.64s][%d]\n", m_bServer, m_szIp, m_nPort);
    GiveUpSocket();
    m_bInThread = false;
    return nullptr;
}

void HCNetPackage::GiveUpSocket() {
    if (m_bRun) CutLink(SocketInside::kAll);  // for a sender that has the mutex
    HCMutex lock(m_hSendMutex);
    const std::lock_guard<std::mutex> descriptor(m_pState->descriptor);
    if (m_pSocket != nullptr) m_pSocket->Close();
    delete m_pSocket;
    __atomic_store_n(&m_pSocket, nullptr, __ATOMIC_RELEASE);
}

void HCNetPackage::Pause(int ms) {
    for (int64_t left_us = int64_t{ms} * 1000; left_us > 0 && m_bRun; left_us -= kPauseStepUs)
        usleep(static_cast<useconds_t>(std::min<int64_t>(left_us, kPauseStepUs)));
}

// A server that lets a client in and drops it at once is not asked again without a pause.
void HCNetPackage::PauseAfterQuickLoss() {
    State& state = *m_pState;
    if (m_nConnectState == NPS_READY || state.admitted_ms == 0) return;
    const int64_t lasted = arch_getSystemStartupMs() - state.admitted_ms;
    state.admitted_ms = 0;
    if (lasted >= kQuickLossMs) {
        state.quick_losses = 0;
        return;
    }
    int pause = kShortestPauseMs;
    for (int i = 0; i < state.quick_losses && pause < kLongestPauseMs; i++) pause *= 2;
    state.quick_losses++;
    Pause(WithJitter(std::min(pause, kLongestPauseMs)));
}

// Counts the intervals without a packet and sends the keep-alives, both by a clock that may jump.
// False when the pass begins anew.
bool HCNetPackage::WatchSilence(SilenceWatch& watch) {
    watch.now = arch_time();
    if (watch.ref > watch.now || watch.ref + kLongestClockStepSec < watch.now) {
        LOG_AS(kOnThread, HLOG_LEVEL_ERR, "It Seems That, TIME Changed\n");
        m_tLastSend = static_cast<time_t>(watch.now);
        watch.ref = watch.now;
        return false;
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
            return false;
        }
    }
    if (m_tLastSend + interval < watch.now) {
        m_tLastSend = static_cast<time_t>(watch.now);
        // A packet under way is as good; waiting for it would keep this thread from receiving.
        if (m_pState->senders == 0) SendPkg(0, nullptr, 0, 0);
    }
    return true;
}

void HCNetPackage::ReceiveOne(SilenceWatch& watch) {
    unsigned int flag = 0;
    unsigned int type = 0;
    int len = 0;
    bool empty = false;
    const int got = _getPackage(flag, type, len, empty, kReceiveUs);
    if (got > 0) {
        // A link that was lost meanwhile executes nothing: the answer could not be sent.
        const bool lost = m_bServer && m_nConnectState == NPS_DISCONNECTED;
        if (flag == kDataFlag && !lost) PkgReceived(type, m_pRecvBuf, got);
    }
    ShrinkRecvBuf();
    if (got > 0 || empty) {
        watch.ref = watch.now;
        watch.count = 0;
    } else if (got == 0) {
        TimerTick_Nodata(kReceiveUs);
    } else if (!IsStopping()) {
        RaiseLost(NPE_DISCONNECTED);
    }
}
