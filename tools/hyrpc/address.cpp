#include "address.h"

#include <netdb.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <memory>

namespace hyrpc {
namespace {

constexpr char kUnixPrefix[] = "unix:";
constexpr size_t kUnixNameMax = 105;  // what an abstract socket's address has room for

bool ParsePort(const std::string& text, unsigned short& port) {
    if (text.empty() || text.size() > 5) return false;
    if (text.find_first_not_of("0123456789") != std::string::npos) return false;
    unsigned long number = strtoul(text.c_str(), nullptr, 10);
    if (number < 1 || number > 65535) return false;
    port = static_cast<unsigned short>(number);
    return true;
}

// Splits at the colon that stands before the port: behind the bracket of an IPv6 address, else the
// only one. False when there is none.
bool SplitPort(const std::string& text, std::string& host, std::string& port) {
    if (text[0] == '[') {
        size_t bracket = text.find("]:");
        if (bracket == std::string::npos) return false;
        host = text.substr(1, bracket - 1);
        port = text.substr(bracket + 2);
        return true;
    }
    size_t colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos) return false;
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    return true;
}

}  // namespace

bool ParseAddress(const std::string& text, Address& address, std::string& error) {
    address = Address{};
    address.text = text;
    if (text.rfind(kUnixPrefix, 0) == 0) {
        address.unix_domain = true;
        address.host = text.substr(sizeof kUnixPrefix - 1);
        if (!address.host.empty() && address.host.size() <= kUnixNameMax) return true;
        error = "a Unix socket's name has 1 to 105 characters: unix:NAME";
        return false;
    }

    std::string port;
    if (text.empty() || !SplitPort(text, address.host, port) || address.host.empty()) {
        error = "'" + text + "' is none of HOST:PORT, [V6]:PORT, unix:NAME";
        return false;
    }
    if (!ParsePort(port, address.port)) {
        error = "'" + port + "' is no port, 1 to 65535";
        return false;
    }
    return true;
}

bool LookUp(Address& address) {
    if (address.unix_domain) return true;
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.host.c_str(), nullptr, &hints, &found) != 0 || found == nullptr)
        return false;
    std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, freeaddrinfo);

    const addrinfo* best = found;
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        if (one->ai_family == AF_INET) {
            best = one;
            break;
        }
    }
    char numeric[64];  // longer ones do not fit a connection's host field either
    if (getnameinfo(best->ai_addr, best->ai_addrlen, numeric, sizeof numeric, nullptr, 0,
                    NI_NUMERICHOST) != 0)
        return false;
    address.host = numeric;
    return true;
}

}  // namespace hyrpc
