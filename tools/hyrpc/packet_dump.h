// A packet for people, in hex, or as JSON.
#pragma once

#include <string>

#include "packet_cutter.h"

namespace hyrpc {

// The password of a login record, which is everything behind the first ';' (all of it where there
// is none), is shown as stars unless `show_password`.
std::string DumpText(const Packet& packet, bool show_password);
std::string DumpJson(const Packet& packet, bool show_password);

// Of `length` bytes already shown not all could be sent.
std::string SendFailureText(size_t length, double now_s);
std::string SendFailureJson(size_t length, double now_s);

}  // namespace hyrpc
