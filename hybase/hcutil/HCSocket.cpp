#include "hybase/hcutil/HCSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>
#include <typeinfo>

#include "hybase/hcutil/HCUnixSocket.h"
#include "hybase/hcutil/socket_inside.h"
#include "hybase/hcutil/socket_wait.h"
#include "hybase/hlog.h"
#include "hybase/print.h"
#include "hyplatform/arch.h"

static_assert(sizeof(sockaddr_in) == 16 && sizeof(sockaddr_in6) == 28, "lengths given to connect");
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCSocket) == 128, "layout on the device");
#endif

namespace {

enum : int { kFamilyIPv4 = 1, kFamilyIPv6 = 2 };

constexpr int kBacklog = 5;
constexpr int kConnectWaits = 3;
constexpr int kInterruptRetries = 3;
constexpr int kAcceptAttempts = 3;
constexpr int kSendWaitSec = 1;
constexpr int kShortestSendLimitMs = 10;

int FcntlRetrying(int fd, int command, int flags) {
    int result = fcntl(fd, command, flags);
    for (int left = kInterruptRetries; result < 0 && errno == EINTR && left > 0; left--)
        result = fcntl(fd, command, flags);
    return result;
}

void SetNoDelay(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

sockaddr_in AddressIPv4(const char* host, unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = host != nullptr ? inet_addr(host) : htonl(INADDR_ANY);
    return address;
}

// Fills family and address from the host text; false for a bad IPv6 text. A bad IPv4 text becomes
// the broadcast address, which connect refuses.
bool SetPeer(HCSocket& sock, const char* host, unsigned short port) {
    if (strchr(host, ':') == nullptr) {
        sock.m_nFamily = kFamilyIPv4;
        sock.m_addr4 = AddressIPv4(host, port);
        return true;
    }
    sock.m_nFamily = kFamilyIPv6;
    sock.m_addr6 = {};
    sock.m_addr6.sin6_family = AF_INET6;
    sock.m_addr6.sin6_port = htons(port);
    return inet_pton(AF_INET6, host, &sock.m_addr6.sin6_addr) == 1;
}

int ConnectToPeer(const HCSocket& sock) {
    if (sock.m_nFamily == kFamilyIPv6)
        return connect(sock.m_nSocket, reinterpret_cast<const sockaddr*>(&sock.m_addr6),
                       sizeof sock.m_addr6);
    return connect(sock.m_nSocket, reinterpret_cast<const sockaddr*>(&sock.m_addr4),
                   sizeof sock.m_addr4);
}

// Send and Recv try before they wait, which saves a call where there is room or data already. An
// attempt that nobody waited for fails silently if the failure says nothing about the connection:
// the wait judges the descriptor then, as if the attempt had not been made.
bool LeftToTheWait(int error) {
    return error == EAGAIN || error == EBADF || error == ENOTSOCK || error == ENOTCONN ||
           error == EINVAL;
}

// Log records name the operation that users know, not a step of it.
#define LOG_AS(function, ...) \
    hlog_printf_ex(HLOG_LEVEL_ERR, __FILE__, function, __LINE__, __VA_ARGS__)

void LogReceiveAll(int result, char cut) {
    if (cut == 0)
        LOG_AS("RecvAll", "socket recvall err %d %d %s\n", result, errno, strerror(errno));
}

}  // namespace

HCSocket::HCSocket() = default;

HCSocket::~HCSocket() { HCSocket::Close(); }

int HCSocket::SetBlockOpt(bool block) {
    m_bBlock = block;
    const int fd = m_nSocket;
    if (fd < 1) return -1;

    const int flags = FcntlRetrying(fd, F_GETFL, 0);
    if (flags < 0) {
        HLOG_ERR("fcntl : F_GETFL err %s \n", strerror(errno));
        return -1;
    }
    if (FcntlRetrying(fd, F_SETFL, block ? flags & ~O_NONBLOCK : flags | O_NONBLOCK) < 0) {
        HLOG_ERR("fcntl : F_SETFL err %s \n", strerror(errno));
        return -1;
    }
    return 0;
}

int HCSocket::Connect(const char* host, unsigned short port, int timeout) {
    if (host == nullptr) return -1;
    HCSocket::Close();

    // A reconnecting caller may pass m_szHost itself, hence memmove.
    const size_t length = strnlen(host, sizeof m_szHost - 1);
    const bool known = SetPeer(*this, host, port);
    memmove(m_szHost, host, length);
    m_szHost[length] = '\0';
    m_nPort = port;
    if (!known) return -1;

    const int fd = socket(m_nFamily == kFamilyIPv6 ? AF_INET6 : AF_INET,
                          SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    m_nSocket = fd;
    SetBlockOpt(false);
    SetNoDelay(fd);

    if (ConnectToPeer(*this) == 0) return 0;
    if (errno != EINPROGRESS) {
        HLOG_ERR("client : connect error :%s with ip: %s, port: %d\n", strerror(errno), m_szHost,
                 m_nPort);
        return -1;
    }
    // After a refusal the next connect begins a new attempt, so all waits have a use.
    for (int wait = 0; wait < kConnectWaits; wait++) {
        const int found = WaitTime::Seconds(timeout).ForUnlessCut(fd, POLLIN | POLLOUT, m_nCut);
        if (m_nCut) return -1;
        if (found < 0) {
            HLOG_ERR("client : network error in connect\n");
        } else if (found == 0) {
            HLOG_INFO("client : connect timeout\n");
        } else if (!WaitTime::Writable(found)) {
            HLOG_ERR("other error when select:%s\n", strerror(errno));
        } else if (ConnectToPeer(*this) == 0 || errno == EISCONN) {
            HLOG_DEBUG("client : connect succeed.[%s][%d]\n", m_szHost, m_nPort);
            return 0;
        } else {
            HLOG_ERR("client : connect err %s  [%s][%d]\n", strerror(errno), m_szHost, m_nPort);
        }
    }
    return -1;
}

int HCSocket::Listen(unsigned short port, const char* host) {
    HCSocket::Close();
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    m_nSocket = fd;
    SetBlockOpt(false);

    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    m_addr4 = AddressIPv4(host, port);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&m_addr4), sizeof m_addr4) == 0 &&
        listen(fd, kBacklog) == 0)
        return 0;
    close(fd);
    m_nSocket = -1;
    return -1;
}

HCSocket* HCSocket::Accept(int timeout) {
    const int listener = m_nSocket;
    if (listener < 0) return nullptr;
    WaitTime time = WaitTime::Seconds(timeout);
    const int found = time.For(listener, POLLIN);
    if (found < 0) HLOG_ERR("Service Select err %d, %s\n", errno, strerror(errno));
    if (found < 1) return nullptr;

    sockaddr_in peer{};
    int fd = -1;
    int interrupts_left = kInterruptRetries;
    for (int attempts_left = kAcceptAttempts; attempts_left > 0;) {
        socklen_t size = sizeof peer;
        fd = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &size,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) break;
        if (errno == EINTR && interrupts_left-- > 0) continue;
        if (errno != EAGAIN) {
            time.PauseIfShort(errno);
            return nullptr;
        }
        Print("Socket accept .... %d \n", --attempts_left);
        interrupts_left = kInterruptRetries;
    }

    auto* accepted = new (std::nothrow) HCSocket;
    if (accepted == nullptr) {
        if (fd >= 0) close(fd);
        return nullptr;
    }
    // Handed out even without a connection: callers know sockets with descriptor -1.
    accepted->m_nSocket = fd;
    accepted->SetBlockOpt(false);
    if (fd < 0) return accepted;
    SetNoDelay(fd);
    inet_ntop(AF_INET, &peer.sin_addr, accepted->m_szHost, sizeof accepted->m_szHost);
    accepted->m_nPort = ntohs(peer.sin_port);
    return accepted;
}

int HCSocket::Send(const char* buf, int len, int timeout) {
    const int fd = m_nSocket;
    if (buf == nullptr || len < 1 || fd < 1) return -1;
    const int64_t start = arch_getSystemStartupMs();
    const int limit_ms = timeout / 1000 != 0 ? timeout / 1000 : kShortestSendLimitMs;
    const int flags = m_bMore ? MSG_MORE : 0;
    const int errno_before = errno;
    WaitTime room = WaitTime::Seconds(kSendWaitSec);
    int sent = 0;
    // On a blocking descriptor only a wait keeps send from blocking for good.
    for (bool wait = m_bBlock;; wait = true) {
        if (wait) {
            const int found = room.For(fd, POLLOUT);
            if (found < 0) {
                HLOG_ERR("socket send select err [%d][%s] [%s][%d]\n", sent, strerror(errno),
                         m_szHost, m_nPort);
                return -1;
            }
            if (found == 0) {
                SocketInside::LogSendTimeout(*this, sent);
                return -1;
            }
        }
        if (SocketInside::IsCut(*this)) {
            errno = EPIPE;
            return -1;
        }
        const ssize_t result = send(fd, buf + sent, static_cast<size_t>(len - sent),
                                    wait ? flags : flags | MSG_DONTWAIT);
        if (result >= 0) {
            sent += static_cast<int>(result);
            if (sent == len) return sent;
            if (arch_getSystemStartupMs() - start < limit_ms) continue;
            SocketInside::LogSendTimeout(*this, sent);
            return -1;
        }
        if (SocketInside::IsCut(*this)) {
            errno = EPIPE;
            return -1;
        }
        if (!wait && LeftToTheWait(errno)) {
            errno = errno_before;
        } else if (errno == ENOBUFS || errno == EAGAIN || errno == EINTR) {
            HLOG_ERR("Socket : Send err %s %d\n", strerror(errno), static_cast<int>(result));
        } else {
            SocketInside::LogSendError(*this);
            return -1;
        }
    }
}

int HCSocket::Recv(char* buf, int len, int timeout) {
    const int fd = m_nSocket;
    if (buf == nullptr || fd < 0) return -1;
    if (len < 0 || timeout < 0) {
        errno = EINVAL;
        return -1;
    }
    const int errno_before = errno;
    WaitTime data = WaitTime::Microseconds(timeout);
    for (bool wait = false;; wait = true) {
        if (wait) {
            const int found = data.For(fd, POLLIN);
            if (found < 1) return found;
        }
        const ssize_t result = recv(fd, buf, static_cast<size_t>(len), wait ? 0 : MSG_DONTWAIT);
        if (result > 0) return static_cast<int>(result);
        if (result == 0) return -1;
        if (!wait && LeftToTheWait(errno)) {
            errno = errno_before;
        } else if (errno == EAGAIN || errno == EINTR) {
            HLOG_ERR("socket recv err %d %d %s\n", static_cast<int>(result), errno,
                     strerror(errno));
        } else {
            if (!m_nCut)
                HLOG_ERR("socket recv err [%d][%s][%s][%d]\n", static_cast<int>(result),
                         strerror(errno), m_szHost, m_nPort);
            return -1;
        }
    }
}

int HCSocket::RecvAll(char* buf, int len, int timeout) {
    if (m_nSocket < 0 || buf == nullptr || timeout == 0 || len < 1) return -1;
    for (int got = 0; got < len;) {
        const int result = Recv(buf + got, len - got, timeout);
        if (result < 0) LogReceiveAll(result, m_nCut);
        if (result < 1) return result;
        got += result;
    }
    return len;
}

int HCSocket::Close() {
    const int fd = m_nSocket;
    if (fd < 1) return -1;
    m_nSocket = -1;
    return close(fd) == 0 ? 0 : -1;
}

// ---- For packet connections and the packet service ----

bool SocketInside::IsOurs(const HCSocket& sock) {
    return typeid(sock) == typeid(HCSocket) || typeid(sock) == typeid(HCUnixSocket);
}

void SocketInside::CutOff(HCSocket& sock, Cut what, bool connected) {
    if (sock.m_nCut < what) sock.m_nCut = what;
    if (connected) shutdown(sock.m_nSocket, what == kAll ? SHUT_RDWR : SHUT_RD);
}

void SocketInside::DropUnsent(const HCSocket& sock) {
    const linger at_once = {1, 0};
    if (IsOurs(sock)) setsockopt(sock.m_nSocket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

int SocketInside::RecvMore(HCSocket& sock, char* buf, int len, int& got) {
    while (got < len) {
        const int result = sock.Recv(buf + got, len - got, 0);
        if (result < 0) LogReceiveAll(result, sock.m_nCut);
        if (result < 1) return result;
        got += result;
    }
    return len;
}

void SocketInside::LogSendTimeout(const HCSocket& sock, int sent) {
    LOG_AS("Send", "socket send time out.[%d][%s][%d]\n", sent, sock.m_szHost, sock.m_nPort);
}

void SocketInside::LogSendError(const HCSocket& sock) {
    if (IsCut(sock)) return;
    LOG_AS("Send", "Socket : Send err %s [%s][%d]\n", strerror(errno), sock.m_szHost, sock.m_nPort);
}
