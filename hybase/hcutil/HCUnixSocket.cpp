#include "hybase/hcutil/HCUnixSocket.h"

#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>

#include "hybase/hcutil/socket_inside.h"
#include "hybase/hcutil/socket_wait.h"
#include "hybase/hlog.h"
#include "hybase/print.h"

static_assert(sizeof(sockaddr_un) == 110, "length given to connect and bind");
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HCUnixSocket) == 240, "layout on the device");
#endif

namespace {

constexpr int kBacklog = 5;
constexpr int kAcceptAttempts = 3;
constexpr size_t kNameSize = 106;  // terminator included

// An abstract name begins with a zero byte and takes in the zeros behind the text as well: both
// ends always give the whole structure.
sockaddr_un AbstractAddress(const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path + 1, kNameSize, "%s", name);
    return address;
}

int ConnectTo(int fd, const sockaddr_un& address) {
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

HCUnixSocket::HCUnixSocket() = default;

HCUnixSocket::~HCUnixSocket() = default;

int HCUnixSocket::Connect(const char* name, unsigned short /*port*/, int timeout) {
    if (name == nullptr) return -1;
    HCSocket::Close();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    m_nSocket = fd;
    SetBlockOpt(false);
    m_addrUn = AbstractAddress(name);

    if (ConnectTo(fd, m_addrUn) == 0) {
        HLOG_INFO("client : connect succeed.[%s][%d] %d\n", m_szHost, m_nPort, fd);
        return 0;
    }
    if (errno != EINPROGRESS) {
        HLOG_ERR("client : connect error :%s with ip: %s, port: %d\n", strerror(errno), m_szHost,
                 m_nPort);
        return -1;
    }
    const int found =
        WaitTime::Seconds(timeout).ForUnlessCut(fd, POLLIN | POLLOUT, SocketInside::CutFlag(*this));
    if (SocketInside::CutFlag(*this)) return -1;
    if (found < 0) {
        HLOG_ERR("client : network error in connect\n");
    } else if (found == 0) {
        HLOG_INFO("client : connect timeout\n");
    } else if (!WaitTime::Writable(found)) {
        HLOG_ERR("other error when select:%s\n", strerror(errno));
    } else if (ConnectTo(fd, m_addrUn) == 0 || errno == EISCONN) {
        HLOG_INFO("client : connect succeed.[%s][%d] %d\n", m_szHost, m_nPort, fd);
        return 0;
    } else {
        HLOG_ERR("client : connect err %s  [%s][%d]\n", strerror(errno), m_szHost, m_nPort);
    }
    return -1;
}

int HCUnixSocket::Listen(unsigned short /*port*/, const char* name) {
    HCSocket::Close();
    if (name == nullptr) return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    m_nSocket = fd;
    SetBlockOpt(false);
    m_addrUn = AbstractAddress(name);

    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        Print("setsockopt fail: %s\n", strerror(errno));
    if (bind(fd, reinterpret_cast<const sockaddr*>(&m_addrUn), sizeof m_addrUn) == 0 &&
        listen(fd, kBacklog) == 0)
        return 0;
    close(fd);
    m_nSocket = -1;
    return -1;
}

HCSocket* HCUnixSocket::Accept(int timeout) {
    const int listener = m_nSocket;
    if (listener < 0) return nullptr;
    WaitTime time = WaitTime::Seconds(timeout);
    const int found = time.For(listener, POLLIN);
    if (found < 0) HLOG_ERR("Service Select err %d, %s\n", errno, strerror(errno));
    if (found < 1) return nullptr;

    int fd = -1;
    int attempts_left = kAcceptAttempts;
    while (attempts_left > 0) {
        fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) break;
        if (errno != EAGAIN) {
            time.PauseIfShort(errno);
            return nullptr;
        }
        Print("Socket accept .... %d \n", --attempts_left);
    }
    HLOG_INFO("accept count=[%d] newSocket=%d\n", attempts_left, fd);

    auto* accepted = new (std::nothrow) HCUnixSocket;
    if (accepted == nullptr) {
        if (fd >= 0) close(fd);
        return nullptr;
    }
    // Handed out even without a connection: callers know sockets with descriptor -1.
    accepted->m_nSocket = fd;
    accepted->SetBlockOpt(false);
    return accepted;
}
