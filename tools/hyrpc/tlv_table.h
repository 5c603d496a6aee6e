// A TLV message as a table for people.
#pragma once

#include <stdio.h>

#include <string>

namespace hyrpc {

// Prints one row a value: type, kind, value. False when `message` is no TLV message.
bool PrintTlvTable(const std::string& message, FILE* out);

}  // namespace hyrpc
