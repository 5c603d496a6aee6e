#include "hybase/hcutil/packet_broadcast.h"

#include <errno.h>
#include <hyplatform/arch.h>

#include <algorithm>
#include <new>

#include "hybase/hcutil/package_state.h"
#include "hybase/hcutil/socket_inside.h"

namespace {

constexpr int64_t kBusyStepMs =
    2;  // until a connection is looked at again that sends something else
constexpr int64_t kLongestStepMs = 1000;

}  // namespace

PacketBroadcast::PacketBroadcast(int most)
    : most_(std::max(most, 0)),
      entries_(new (std::nothrow) Entry[static_cast<size_t>(most_)]()),
      polled_(new (std::nothrow) pollfd[static_cast<size_t>(most_)]) {}

PacketBroadcast::~PacketBroadcast() {
    for (int i = 0; i < count_; i++) entries_[i].connection->m_pState->pins--;
}

bool PacketBroadcast::Pin(HCNetPackage& connection) {
    if (entries_ == nullptr || polled_ == nullptr || count_ >= most_) return false;
    if (connection.m_pState == nullptr) return false;
    connection.m_pState->pins++;
    entries_[count_++].connection = &connection;
    return true;
}

int PacketBroadcast::Send(unsigned int type, const char* data, int length, int wait_sec) {
    const Pieces pieces = {&data, &length, 1};
    for (int64_t waited_ms = 0;; waited_ms = WaitForRoom()) {
        for (int i = 0; i < count_; i++) {
            Entry& entry = entries_[i];
            if (entry.stage == Stage::kSending) Push(entry, waited_ms);
            if (entry.stage == Stage::kBusy) Begin(entry, type, pieces);
        }
        if (!Any(Stage::kSending)) break;
    }
    // No mutex is held now, so a hook may send to all others.
    for (int i = 0; i < count_; i++) {
        HCNetPackage& connection = *entries_[i].connection;
        if (entries_[i].stage != Stage::kFailed) continue;
        connection.LockSending();
        connection.OnEvent(NPE_DISCONNECTED);
        connection.UnlockSending();
    }
    for (int i = 0; i < count_; i++) {
        Entry& entry = entries_[i];
        if (entry.stage == Stage::kBusy || entry.stage == Stage::kAlone)
            entry.result = entry.connection->SendPkg(type, data, length, wait_sec);
    }
    return count_ > 0 ? entries_[count_ - 1].result : -1;
}

// Never waits: while this broadcast holds the mutex of one connection it must not wait for that of
// another.
void PacketBroadcast::Begin(Entry& entry, unsigned int type, const Pieces& pieces) {
    HCNetPackage& connection = *entry.connection;
    HCNetPackage::State& state = *connection.m_pState;
    const int limit = state.limits.max_unsent_bytes;
    if (limit > 0 && state.unsent + pieces.Bytes() > limit) {
        entry.stage = Stage::kAlone;  // SendPkg ends the link
        return;
    }
    if (!connection.TryLockSending()) return;
    const HCSocket* sock = connection.Socket();
    if (connection.m_nConnectState != NPS_READY || sock == nullptr ||
        !SocketInside::IsOurs(*sock)) {
        connection.UnlockSending();
        entry.stage = Stage::kAlone;
        return;
    }
    entry.packet.emplace(type, pieces, static_cast<int>(pieces.Bytes()));
    entry.watch.emplace(TransferWatch::Sending(state.limits, connection.m_nSendTimeout));
    entry.stage = Stage::kSending;
    state.unsent += pieces.Bytes();
    Push(entry, 0);
}

void PacketBroadcast::Push(Entry& entry, int64_t waited_ms) {
    HCNetPackage& connection = *entry.connection;
    const int64_t before = entry.packet->Sent();
    const HCNetLimits& limits = connection.m_pState->limits;
    switch (entry.packet->Push(*connection.m_pSocket)) {
        case PacketOut::Progress::kDone:
            entry.result = entry.packet->Result();
            connection.m_pState->unsent -= entry.result;
            connection.FinishSend(entry.result);
            entry.stage = Stage::kDone;
            return;
        case PacketOut::Progress::kFailed:
            return Fail(entry);
        case PacketOut::Progress::kNoRoom:
            break;
    }
    const int64_t sent = entry.packet->Sent();
    // Header and payload have their time each.
    if (before < kPacketHeaderBytes && sent >= kPacketHeaderBytes)
        entry.watch.emplace(TransferWatch::Sending(limits, connection.m_nSendTimeout));
    entry.watch->Moved(sent - before);
    if (entry.watch->LeftMs(waited_ms) > 0) return;
    SocketInside::LogSendTimeout(*connection.m_pSocket, entry.packet->SentOfPart());
    errno = EAGAIN;
    Fail(entry);
}

// The link ends at once; what the hook does about it must not delay the others.
void PacketBroadcast::Fail(Entry& entry) {
    HCNetPackage& connection = *entry.connection;
    connection.m_pState->unsent -= entry.packet->Result();
    if (!connection.IsStopping()) entry.packet->LogFailure();
    entry.result = -1;
    entry.stage = connection.FailSend() ? Stage::kFailed : Stage::kDone;
    connection.m_tLastSend = arch_time();
    connection.UnlockSending();
}

bool PacketBroadcast::Any(Stage stage) const {
    return std::any_of(entries_.get(), entries_.get() + count_,
                       [stage](const Entry& entry) { return entry.stage == stage; });
}

// Returns how long it waited, milliseconds.
int64_t PacketBroadcast::WaitForRoom() {
    const int64_t start = arch_getSystemStartupMs();
    int64_t wait_ms = Any(Stage::kBusy) ? kBusyStepMs : kLongestStepMs;
    nfds_t count = 0;
    for (int i = 0; i < count_; i++) {
        Entry& entry = entries_[i];
        if (entry.stage != Stage::kSending) continue;
        polled_[count++] = {entry.connection->m_pSocket->m_nSocket, POLLOUT, 0};
        wait_ms = std::min(wait_ms, entry.watch->LeftMs());
    }
    poll(polled_.get(), count, static_cast<int>(wait_ms));
    return arch_getSystemStartupMs() - start;
}
