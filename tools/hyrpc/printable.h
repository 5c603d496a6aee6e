// Texts of a peer, made fit to be shown.
#pragma once

#include <string>

namespace hyrpc {

// Control characters would steer the terminal, and bytes that are no UTF-8 make JSON none: the
// former come out as \u001b, the latter as \ufffd. In JSON text both stand in strings only, where
// this is JSON's own way to write them. Characters of `kept` stay as they are.
std::string Printable(const std::string& text, const std::string& kept = "");

}  // namespace hyrpc
