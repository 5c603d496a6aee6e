// Where a device listens, as people type it.
#pragma once

#include <string>

namespace hyrpc {

struct Address {
    bool unix_domain = false;
    std::string host;  // numeric address, or the name of an abstract Unix socket
    unsigned short port = 0;
    std::string text;  // as it was typed, for messages
};

// Reads HOST:PORT, [V6]:PORT or unix:NAME; host names are looked up. On failure `error` says what
// is wrong with the text, and the result is false.
bool ParseAddress(const std::string& text, Address& address, std::string& error);

}  // namespace hyrpc
