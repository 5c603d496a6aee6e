// What --json prints: one object a line.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>

#include "ending.h"

namespace hyrpc {

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

inline Json NewObject() { return Json(cJSON_CreateObject(), cJSON_Delete); }

// The object on one line, with its line end.
std::string JsonLine(const cJSON* object);

// "outcome", "error" unless all went well, and behind them the members of `details`, which lose
// their place there.
std::string EndingLine(const Ending& ending, cJSON* details);

// Adds a number with three digits behind the point.
void AddRounded(cJSON* object, const char* key, double number);

}  // namespace hyrpc
