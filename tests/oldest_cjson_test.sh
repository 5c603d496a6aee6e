#!/usr/bin/env bash
# What uses cJSON compiles against the oldest version that the build accepts:
# oldest_cjson_test.sh SOURCE... -- CXX FLAG... Below is what they may use of 1.7.0; there
# cJSON_AddItemTo* returned nothing.
set -euo pipefail
users=()
while [ "$1" != -- ]; do
    ! grep -q cJSON_ "$1" || users+=("$1")
    shift
done
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/cjson"
cat >"$folder/cjson/cJSON.h" <<'END'
#pragma once
#include <stddef.h>
enum { cJSON_Number = 1 << 3, cJSON_String = 1 << 4, cJSON_True = 1 << 1 };
typedef struct cJSON {
    struct cJSON *next, *prev, *child;
    int type;
    char* valuestring;
    int valueint;
    double valuedouble;
    char* string;
} cJSON;
typedef int cJSON_bool;
extern "C" {
cJSON *cJSON_Parse(const char*), *cJSON_ParseWithOpts(const char*, const char**, cJSON_bool);
char *cJSON_Print(const cJSON*), *cJSON_PrintUnformatted(const cJSON*);
void cJSON_Delete(cJSON*), cJSON_free(void*);
int cJSON_GetArraySize(const cJSON*);
cJSON *cJSON_GetArrayItem(const cJSON*, int), *cJSON_GetObjectItem(const cJSON*, const char*);
cJSON_bool cJSON_IsArray(const cJSON*), cJSON_IsBool(const cJSON*), cJSON_IsNull(const cJSON*),
    cJSON_IsNumber(const cJSON*), cJSON_IsObject(const cJSON*), cJSON_IsString(const cJSON*),
    cJSON_IsTrue(const cJSON*);
cJSON *cJSON_CreateArray(), *cJSON_CreateObject(), *cJSON_CreateTrue(), *cJSON_CreateBool(cJSON_bool),
    *cJSON_CreateNumber(double), *cJSON_CreateString(const char*),
    *cJSON_CreateStringReference(const char*);
void cJSON_AddItemToArray(cJSON*, cJSON*), cJSON_AddItemToObject(cJSON*, const char*, cJSON*),
    cJSON_AddItemToObjectCS(cJSON*, const char*, cJSON*);
cJSON *cJSON_AddArrayToObject(cJSON*, const char*), *cJSON_AddObjectToObject(cJSON*, const char*),
    *cJSON_AddBoolToObject(cJSON*, const char*, cJSON_bool),
    *cJSON_AddNumberToObject(cJSON*, const char*, double),
    *cJSON_AddStringToObject(cJSON*, const char*, const char*);
cJSON* cJSON_DetachItemViaPointer(cJSON*, cJSON*);
void cJSON_DeleteItemFromObject(cJSON*, const char*);
}
#define cJSON_ArrayForEach(item, array) \
    for ((item) = (array) != NULL ? (array)->child : NULL; (item) != NULL; (item) = (item)->next)
END
"$@" -fsyntax-only -std=c++17 -D_GNU_SOURCE "-I$folder" "${users[@]}"
