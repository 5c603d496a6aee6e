#include "hybase/hcutil/server_login.h"

#include <hyplatform/arch.h>
#include <poll.h>

#include <algorithm>
#include <new>
#include <utility>

#include "hybase/hcutil/packet_io.h"
#include "hybase/hcutil/socket_inside.h"

namespace {

constexpr char kGetPackage[] = "__get_a_package";

}  // namespace

// ---- A request ----

// Header and payload are read to the same place, and what comes behind 1024 bytes stays in the
// stream, as when the request is read in one go.
LoginRequest::Progress LoginRequest::Read(HCSocket& sock) {
    if (!in_payload_) {
        const int result = SocketInside::RecvMore(sock, bytes_, kPacketHeaderBytes, got_);
        if (result < 1) return result < 0 ? Progress::kFailed : Progress::kMore;
        unsigned int flag = 0;
        unsigned int type = 0;
        if (!CheckHeader(bytes_, kGetPackage, flag, type, len_) || len_ == 0)
            return Progress::kFailed;
        if (len_ > kLoginRequestRoom) {
            LOG_AS(kGetPackage, HLOG_LEVEL_INFO,
                   "not enough buffer to receive data.: datalen: %d, maxlen: %d\n", len_,
                   kLoginRequestRoom);
            len_ = kLoginRequestRoom;
        }
        if (flag != kLoginFlag) return Progress::kFailed;
        in_payload_ = true;
        got_ = 0;
    }
    const int result = SocketInside::RecvMore(sock, bytes_, len_, got_);
    if (result < 1) return result < 0 ? Progress::kFailed : Progress::kMore;
    return Progress::kComplete;
}

const char* LoginRequest::Record() {
    bytes_[len_] = '\0';  // the header lay there before
    return bytes_;
}

// ---- The queue ----

bool LoginQueue::SetBounds(int most, int login_sec) {
    Clear();
    most_ = most;
    login_sec_ = login_sec;
    polled_.reset(new (std::nothrow) pollfd[static_cast<size_t>(most) + 2]);
    return polled_ != nullptr;
}

void LoginQueue::Add(std::unique_ptr<HCSocket> sock) {
    std::unique_ptr<Visitor> visitor(new (std::nothrow) Visitor);
    if (visitor == nullptr) return;
    visitor->since_ms = visitor->progress_ms = arch_getSystemStartupMs();
    if (sock->m_nSocket < 0) visitor->progress = LoginRequest::Progress::kFailed;
    visitor->sock = std::move(sock);

    // It goes with the next TakeDone, like every other that fails.
    if (count_ >= most_ && first_ != nullptr) first_->progress = LoginRequest::Progress::kFailed;
    std::unique_ptr<Visitor>* last = &first_;
    while (*last != nullptr) last = &(*last)->next;
    *last = std::move(visitor);
    count_++;
}

bool LoginQueue::Wait(int listener, int64_t wait_ms) {
    const int64_t now = arch_getSystemStartupMs();
    size_t count = 0;
    polled_[count++] = {listener, POLLIN, 0};
    for (const Visitor* visitor = first_.get(); visitor != nullptr; visitor = visitor->next.get()) {
        polled_[count++] = {visitor->sock->m_nSocket, POLLIN, 0};
        wait_ms = std::min(wait_ms, IsDone(*visitor) ? 0 : DeadlineMs(*visitor) - now);
    }
    if (poll(polled_.get(), count, static_cast<int>(std::max<int64_t>(wait_ms, 0))) < 1)
        return false;

    const pollfd* polled = polled_.get();
    for (Visitor* visitor = first_.get(); visitor != nullptr; visitor = visitor->next.get()) {
        if ((++polled)->revents == 0 || IsDone(*visitor)) continue;
        visitor->progress_ms = arch_getSystemStartupMs();
        visitor->progress = visitor->request.Read(*visitor->sock);
    }
    return polled_[0].revents != 0;
}

std::unique_ptr<LoginQueue::Visitor> LoginQueue::TakeDone() {
    for (std::unique_ptr<Visitor>* link = &first_; *link != nullptr; link = &(*link)->next)
        if (IsDone(**link)) return Take(*link);
    return nullptr;
}

void LoginQueue::Clear() {
    while (first_ != nullptr) Take(first_);
}

bool LoginQueue::IsDone(const Visitor& visitor) const {
    return visitor.progress != LoginRequest::Progress::kMore ||
           arch_getSystemStartupMs() >= DeadlineMs(visitor);
}

// Each piece of a request may take 5 seconds.
int64_t LoginQueue::DeadlineMs(const Visitor& visitor) const {
    const int64_t piece = visitor.progress_ms + kLoginReadUs / 1000;
    return login_sec_ > 0 ? std::min(piece, visitor.since_ms + int64_t{login_sec_} * 1000) : piece;
}

std::unique_ptr<LoginQueue::Visitor> LoginQueue::Take(std::unique_ptr<Visitor>& link) {
    std::unique_ptr<Visitor> taken = std::move(link);
    link = std::move(taken->next);
    count_--;
    return taken;
}
