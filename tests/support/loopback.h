// Plain sockets on the loopback interface: the other end of a connection under test, byte by byte.
#ifndef HYBASE_TESTS_LOOPBACK_H
#define HYBASE_TESTS_LOOPBACK_H

#include <arpa/inet.h>
#include <hybase/hcutil/HCNetPackageService.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>

// Bytes with zeros in them: Bytes("\0\0\0\2OK").
template <size_t size>
std::string Bytes(const char (&literal)[size]) {
    return std::string(literal, size - 1);
}

const std::string kData = Bytes("\xA5\x5A\x5A\xA5");
const std::string kLogin = Bytes("\xA5\x5A\x5A\xA6");
const std::string kLoginRequest = kLogin + Bytes("\0\0\0\0\0\0\0\x0Cowner;908172");
const std::string kLoginOk = kLogin + Bytes("\0\0\0\0\0\0\0\2OK");

// A data packet of type 0 whose payload is shorter than 64 KiB.
inline std::string DataPacket(const std::string& payload) {
    const char length[] = {char(payload.size() >> 8), char(payload.size())};
    return kData + Bytes("\0\0\0\0\0\0") + std::string(length, 2) + payload;
}

// True as soon as `condition` holds; gives up after ten seconds.
template <class Condition>
bool Eventually(Condition condition) {
    for (int i = 0; i < 5000; i++) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

class RawPeer {
  public:
    explicit RawPeer(int fd) : fd_(fd) {
        const timeval limit = {10, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    RawPeer(RawPeer&& other) : fd_(std::exchange(other.fd_, -1)) {}
    ~RawPeer() { Close(); }

    void Close() {
        if (fd_ >= 0) close(std::exchange(fd_, -1));
    }
    bool Send(const std::string& bytes) {
        return send(fd_, bytes.data(), bytes.size(), 0) == ssize_t(bytes.size());
    }
    // The next `size` bytes; fewer when the connection closes or nothing comes for ten seconds.
    std::string Receive(size_t size) {
        std::string bytes(size, '\0');
        const ssize_t got = recv(fd_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(got > 0 ? got : 0);
        return bytes;
    }
    // What one recv gives.
    std::string ReceiveOnce() {
        char bytes[65536];
        const ssize_t got = recv(fd_, bytes, sizeof bytes, 0);
        return std::string(bytes, got > 0 ? got : 0);
    }
    bool Closed() {
        char byte;
        return recv(fd_, &byte, 1, 0) <= 0 && errno != EAGAIN;
    }

  private:
    int fd_;
};

class RawListener {
  public:
    RawListener() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        const timeval limit = {10, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(fd_, reinterpret_cast<sockaddr*>(&address), size);
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        listen(fd_, 5);
        port = ntohs(address.sin_port);
    }
    ~RawListener() { close(fd_); }
    RawPeer Accept() { return RawPeer(accept(fd_, nullptr, nullptr)); }

    unsigned short port;

  private:
    int fd_;
};

inline unsigned short FreePort() { return RawListener().port; }

// Connected to a port of this machine; its calls give nothing if that was refused.
inline RawPeer ConnectTo(unsigned short port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return RawPeer(fd);
    close(fd);
    return RawPeer(-1);
}

// Accepts like any socket, but does not sleep through the end of its service.
class WatchfulListener : public HCSocket {
  public:
    explicit WatchfulListener(const HCNetPackageService& service) : service_(service) {}
    HCSocket* Accept(int timeout) override {
        pollfd waiting = {m_nSocket, POLLIN, 0};
        for (int i = 0; i < timeout * 100 && service_.m_bRun; i++)
            if (poll(&waiting, 1, 10) != 0) return HCSocket::Accept(0);
        return nullptr;
    }

  private:
    const HCNetPackageService& service_;
};

#endif
