// Whole files in and out. On failure errno tells why.
#pragma once

#include <string>

namespace hyrpc {

// A file too long for a packet is a failure: EFBIG.
bool ReadFile(const std::string& path, std::string& content);

bool WriteFile(const std::string& path, const std::string& content);

}  // namespace hyrpc
