// A TLV message as a table for people, or as JSON.
#pragma once

#include <string>
#include <vector>

#include "json_output.h"

namespace hyrpc {

struct TlvRow {
    int type;
    const char* kind;
    std::string value;
};

struct TlvTable {
    std::string head;
    size_t bytes = 0;
    std::vector<TlvRow> rows;
};

// False when `message` is no TLV message.
bool ReadTlv(const std::string& message, TlvTable& table);

std::string TlvText(const TlvTable& table);
Json TlvJson(const TlvTable& table);

}  // namespace hyrpc
