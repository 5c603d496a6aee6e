#include "config.h"

#include <string.h>
#include <strings.h>

namespace hydevice {

const kinfo_t g_config_table[] = {
    KINFO_ROW(Config, name, KINFO_STRING),
    KINFO_ROW(Config, event_seconds, KINFO_U16),
    KINFO_ROW(Config, log_level, KINFO_S32),
    KINFO_ROW(Config, print_requests, KINFO_BOOL),
    KINFO_END,
};

namespace {

const struct {
    const char* key;
    double least, most;
} kRanges[] = {{"event_seconds", 1, 3600}, {"log_level", 0, 5}};

const kinfo_t* FindRow(const char* key) {
    for (const kinfo_t* row = g_config_table; row->key != nullptr; row++)
        if (strcasecmp(row->key, key) == 0) return row;
    return nullptr;
}

// The mapping takes what it can use and reads everything else as 0; whoever sets a device up wants
// to be told instead. Empty when the item fits its row.
std::string Complaint(const kinfo_t& row, const cJSON* item) {
    switch (row.type) {
        case KINFO_STRING:
            if (!cJSON_IsString(item)) return "must be a text";
            if (strlen(item->valuestring) < static_cast<size_t>(row.size)) return "";
            return "must have at most " + std::to_string(row.size - 1) + " characters";
        case KINFO_BOOL:
            return cJSON_IsBool(item) ? "" : "must be true or false";
        default:
            break;
    }
    if (!cJSON_IsNumber(item)) return "must be a number";
    for (const auto& range : kRanges) {
        if (strcmp(row.key, range.key) != 0) continue;
        if (item->valuedouble >= range.least && item->valuedouble <= range.most) return "";
        return "must be from " + std::to_string(static_cast<int>(range.least)) + " to " +
               std::to_string(static_cast<int>(range.most));
    }
    return "";
}

}  // namespace

bool ApplyConfig(const cJSON* json, Config& config, std::string& error) {
    if (!cJSON_IsObject(json)) {
        error = "config_set takes an object of settings";
        return false;
    }
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, json) {
        const kinfo_t* row = FindRow(item->string);
        error = row != nullptr ? Complaint(*row, item) : "is no setting";
        if (error.empty()) continue;
        error.insert(0, std::string(item->string) + " ");
        return false;
    }
    cjson_json2object(g_config_table, json, &config);
    return true;
}

}  // namespace hydevice
