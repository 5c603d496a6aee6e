// The other end of a connection under test, byte by byte, on the loopback interface.
#ifndef HYBASE_TESTS_LOOPBACK_H
#define HYBASE_TESTS_LOOPBACK_H

#include <gtest/gtest.h>
#include <hybase/hcutil/HCSocket.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

using std::string;

// Bytes with zeros in them: Bytes("\0\0\0\2OK").
template <size_t size>
string Bytes(const char (&literal)[size]) {
    return string(literal, size - 1);
}

// A packet of type 0 with a payload shorter than 64 KiB.
inline string Packet(char flag, const string& payload) {
    return "\xA5\x5A\x5A" + string(1, flag) + Bytes("\0\0\0\0\0\0") + char(payload.size() >> 8) +
           char(payload.size()) + payload;
}
inline string Data(const string& payload) { return Packet('\xA5', payload); }
inline string Login(const string& payload) { return Packet('\xA6', payload); }

// True as soon as `condition` holds; gives up after ten seconds.
template <class Condition>
bool Eventually(Condition condition) {
    bool holds = false;
    for (int i = 0; i < 5000 && !(holds = condition()); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return holds;
}

class Peer {
  public:
    explicit Peer(HCSocket* sock) : sock_(sock) {}
    explicit Peer(unsigned short port) : sock_(new HCSocket) {
        sock_->Connect("127.0.0.1", port, 5);
    }
    bool Send(const string& bytes) { return sock_->Send(bytes.data(), bytes.size(), 5000000) > 0; }
    string Receive(int size) {
        string bytes(size, '\0');
        return sock_->RecvAll(bytes.data(), size, 5000000) == size ? bytes : "";
    }
    bool Closed() { return Receive(1).empty(); }
    int Fd() const { return sock_->m_nSocket; }
    // Whether the other end closes within that time, whatever it has sent before.
    bool HungUp(int ms = 2000) const {
        pollfd entry = {Fd(), POLLRDHUP, 0};
        return poll(&entry, 1, ms) == 1;
    }
    HCSocket* Release() { return sock_.release(); }

  private:
    std::unique_ptr<HCSocket> sock_;
};

// Logged in to a service that admits everybody.
inline Peer LoggedIn(unsigned short port) {
    Peer peer(port);
    peer.Send(Login("owner;908172"));
    EXPECT_EQ(peer.Receive(14), Login("OK"));
    return peer;
}

// The port that the system chose.
inline unsigned short BoundPort(const HCSocket& sock) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(sock.m_nSocket, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

class Listener : public HCSocket {
  public:
    Listener() {
        Listen(0, "127.0.0.1");
        port = BoundPort(*this);
    }
    unsigned short port;
};

inline unsigned short FreePort() { return Listener().port; }

#endif
