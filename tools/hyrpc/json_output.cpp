#include "json_output.h"

#include <math.h>

#include "printable.h"

namespace hyrpc {

std::string JsonLine(const cJSON* object) {
    char* text = cJSON_PrintUnformatted(object);
    std::string line = text != nullptr ? text : "{}";
    cJSON_free(text);
    return Printable(line) + "\n";
}

std::string EndingLine(const Ending& ending, cJSON* details) {
    Json object = NewObject();
    cJSON_AddStringToObject(object.get(), "outcome", ending.outcome);
    if (!ending.error.empty()) cJSON_AddStringToObject(object.get(), "error", ending.error.c_str());
    while (details->child != nullptr) {
        cJSON* member = cJSON_DetachItemViaPointer(details, details->child);
        cJSON_AddItemToObject(object.get(), member->string, member);
    }
    return JsonLine(object.get());
}

void AddRounded(cJSON* object, const char* key, double number) {
    cJSON_AddNumberToObject(object, key, round(number * 1000) / 1000);
}

}  // namespace hyrpc
