// Where a device listens, as people type it.
#pragma once

#include <string>

namespace hyrpc {

struct Address {
    bool unix_domain = false;
    std::string host;  // address or name of a machine, or the name of an abstract Unix socket
    unsigned short port = 0;
    std::string text;  // as it was typed, for messages
};

// Reads HOST:PORT, [V6]:PORT or unix:NAME. On failure `error` says what is wrong with the text, and
// the result is false.
bool ParseAddress(const std::string& text, Address& address, std::string& error);

// Replaces a machine's name by its numeric address: the library takes no others. False when none is
// known now.
bool LookUp(Address& address);

}  // namespace hyrpc
