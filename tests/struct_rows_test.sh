#!/usr/bin/env bash
# Rows of a field table that do not fit their structure must not compile, in C and in C++:
# struct_rows_test.sh CC CXX INCLUDE-FOLDER...
set -euo pipefail
cc=$1 cxx=$2
shift 2
flags=(-Wall -Wextra -Wpedantic -Werror -fsyntax-only "${@/#/-I}")

refused=(
    'KINFO_ROW(S, misspelt, KINFO_U32)' 'KINFO_ROW(S, word, KINFO_U32)'
    'KINFO_ROW(S, pointer, KINFO_STRING)' 'KINFO_ROW(S, pointers, KINFO_STRING)'
    'KINFO_ROW(S, numbers, KINFO_STRING)' 'KINFO_ROW_ARRAY(S, pointers, KINFO_STRING)'
    'KINFO_ROW_ARRAY(S, text, KINFO_STRING)' 'KINFO_ROW_ARRAY(S, pointer, KINFO_U8)'
    'KINFO_ROW_VECTOR(S, anything, KINFO_S32, int32_t)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_S32, char)'
)
accepted=(
    'KINFO_ROW(S, word, KINFO_U16)' 'KINFO_ROW(S, text, KINFO_STRING)'
    'KINFO_ROW(S, pointer, KINFO_STRPTR)' 'KINFO_ROW_ARRAY(S, texts, KINFO_STRING)'
    'KINFO_ROW_ARRAY(S, pointers, KINFO_STRPTR)' 'KINFO_ROW_ARRAY(S, numbers, KINFO_S32)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_STRING, char[9])'
)

compiles() { # LANGUAGE ROW
    local compiler=("$cc" -std=c11 -xc)
    [ "$1" = c ] || compiler=("$cxx" -std=c++17 -xc++)
    "${compiler[@]}" "${flags[@]}" - >/dev/null 2>&1 <<END
#include <hybase/cjson_struct.h>
typedef struct {
    uint16_t word;
    char text[4], texts[2][8], *pointer, *pointers[4];
    int32_t numbers[4];
    void* anything;
    HVector* vector;
} S;
extern const kinfo_t table[];
const kinfo_t table[] = {$2, KINFO_END};
END
}

failures=0
for language in c c++; do
    for row in "${refused[@]}"; do
        compiles $language "$row" && { echo "$language takes $row"; failures=1; }
    done
    for row in "${accepted[@]}"; do
        compiles $language "$row" || { echo "$language refuses $row"; failures=1; }
    done
done
exit $failures
