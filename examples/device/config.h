// What can be set on the device while it runs, and how it is read and written as JSON.
#pragma once

#include <cjson/cJSON.h>
#include <hybase/cjson_struct.h>
#include <stdint.h>

#include <string>

namespace hydevice {

struct Config {
    char name[32] = "hydevice";
    uint16_t event_seconds = 1;  // a notification that often, 1 to 3600
    int32_t log_level = 2;       // threshold of the log file, 0 (errors) to 5 (all)
    int32_t print_requests = 0;  // boolean: show every request on standard output
};

extern const kinfo_t g_config_table[];

// Takes the members of `json` over into `config`. False when one of them is unknown, of the wrong
// type or out of range: `error` then says which, and `config` is as it was.
bool ApplyConfig(const cJSON* json, Config& config, std::string& error);

}  // namespace hydevice
