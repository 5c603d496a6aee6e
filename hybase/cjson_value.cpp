#include "hybase/cjson_value.h"

namespace {

// The whole type word is compared, flag bits included; see the header.
const cJSON* MemberOfType(const cJSON* object, const char* key, int type) {
    const cJSON* item = cJSON_GetObjectItem(object, key);
    return item != nullptr && item->type == type ? item : nullptr;
}

}  // namespace

int32_t cJSON_GetObjectValueInt(const cJSON* object, const char* key) {
    const cJSON* item = MemberOfType(object, key, cJSON_Number);
    return item != nullptr ? item->valueint : -1;
}

const char* cJSON_GetObjectValueString(const cJSON* object, const char* key) {
    const cJSON* item = MemberOfType(object, key, cJSON_String);
    return item != nullptr ? item->valuestring : nullptr;
}

double cJSON_GetObjectValueDouble(const cJSON* object, const char* key) {
    const cJSON* item = MemberOfType(object, key, cJSON_Number);
    return item != nullptr ? item->valuedouble : 0.0;
}

int32_t cJSON_GetObjectValueBool(const cJSON* object, const char* key) {
    return MemberOfType(object, key, cJSON_True) != nullptr ? 1 : 0;
}
