/**
 * @file
 * @ingroup json_value
 * One member of a cJSON object, read with a type check and a fixed fallback.
 */

/**
 * @addtogroup json_value
 * One member of a cJSON object, read with a type check and a fixed fallback, so that optional
 * members need no tests at the place of use.
 *
 * Members are found without regard to case, as cJSON_GetObjectItem finds them; a null object has no
 * members. The type word must be cJSON's constant and nothing else: an item that carries one of
 * cJSON's flag bits (a reference, a constant key) counts as one of another type.
 *
 * @par Threads
 * As cJSON itself; nothing is kept between calls.
 * @{
 */
#ifndef HYBASE_CJSON_VALUE_H
#define HYBASE_CJSON_VALUE_H

#include <cjson/cJSON.h>
#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The number's integer value, cJSON's `valueint`; -1 when the member is missing or no number. */
HYBASE_API int32_t cJSON_GetObjectValueInt(const cJSON* object, const char* key);

/** The string, which belongs to the tree; null when the member is missing or no string. */
HYBASE_API const char* cJSON_GetObjectValueString(const cJSON* object, const char* key);

/** The number; 0.0 when the member is missing or no number. */
HYBASE_API double cJSON_GetObjectValueDouble(const cJSON* object, const char* key);

/** 1 for the literal true; 0 for everything else, the number 1 and a missing member included. */
HYBASE_API int32_t cJSON_GetObjectValueBool(const cJSON* object, const char* key);

#ifdef __cplusplus
}
#endif

/** @} */

#endif
