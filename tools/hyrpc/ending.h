// How a run of hyrpc ends.
#pragma once

#include <string>

namespace hyrpc {

enum ExitStatus { kSucceeded = 0, kMethodError = 1, kNoAnswer = 2, kBadUsage = 3 };

struct Ending {
    ExitStatus status = kSucceeded;
    const char* outcome = "ok";  // what --json calls it
    std::string error;           // the line for stderr, empty on success
};

inline Ending BadUsage(std::string error) { return {kBadUsage, "bad_usage", std::move(error)}; }
inline Ending FileError(std::string error) { return {kBadUsage, "file_error", std::move(error)}; }

}  // namespace hyrpc
