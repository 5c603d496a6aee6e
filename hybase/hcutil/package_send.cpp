// Packets out of a connection, one thread at a time.

#include <errno.h>
#include <hybase/hlog.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include "hybase/hcutil/package_state.h"
#include "hybase/hcutil/packet_io.h"
#include "hybase/hcutil/socket_inside.h"

namespace {

constexpr int kNotLoggedIn = -21;
constexpr useconds_t kPauseStepUs = 100000;
constexpr int kStepsPerSecond = 10;  // of kPauseStepUs
constexpr char kSendPkg[] = "SendPkg";

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

}  // namespace

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
    if (!m_bRun) return false;
    LOG_AS(kSendPkg, HLOG_LEVEL_ERR, "SendPkg error: %d, %s\n", errno, strerror(errno));
    AbortLink();
    return LoseLink();
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
    if (m_bRun) RaiseLost(NPE_DISCONNECTED);
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
        if (m_bRun) packet.LogFailure();
        return -1;
    }
    int last = pieces.count - 1;
    while (last >= 0 && pieces.lens[last] <= 0) last--;

    int sent = SendHeader(*m_pSocket, kDataFlag, type, total, m_nSendTimeout);
    if (sent != kPacketHeaderBytes) {
        if (m_bRun) LogHeaderFailure(sent);
        return -1;
    }
    for (int i = 0; i <= last; i++) {
        const int length = pieces.lens[i];
        if (length <= 0) continue;
        sent = SendPart(*m_pSocket, pieces.bufs[i], length, m_nSendTimeout, i < last);
        if (sent == length) continue;
        if (m_bRun) LogPieceFailure(sent, length);
        return -1;
    }
    return sent;
}
