// Adding an item to an object, with a result: cJSON has one from 1.7.13 on.
#ifndef HYBASE_CJSON_ADD_H
#define HYBASE_CJSON_ADD_H

#include <cjson/cJSON.h>

// An item that was added has a key. False when there was no memory for it; the item is then still
// the caller's.
inline bool AddItem(cJSON* object, const char* key, cJSON* item) {
    cJSON_AddItemToObject(object, key, item);
    return item->string != nullptr;
}

// The same with a key that lives as long as the object, and is not copied.
inline bool AddItemWithConstantKey(cJSON* object, const char* key, cJSON* item) {
    cJSON_AddItemToObjectCS(object, key, item);
    return item->string != nullptr;
}

#endif
