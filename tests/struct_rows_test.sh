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
    # The right size, but another kind.
    'KINFO_ROW(S, large, KINFO_DOUBLE)' 'KINFO_ROW(S, real, KINFO_S32)'
    'KINFO_ROW(S, number, KINFO_FLOAT)' 'KINFO_ROW(S, address, KINFO_STRPTR)'
    'KINFO_ROW(S, anything, KINFO_STRPTR)' 'KINFO_ROW(S, vector, KINFO_STRPTR)'
    'KINFO_ROW(S, text, KINFO_U32)' 'KINFO_ROW(S, port, KINFO_U32)'
    'KINFO_ROW_ARRAY(S, reals, KINFO_U32)' 'KINFO_ROW_ARRAY(S, numbers, KINFO_FLOAT)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_S32, float)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_STRPTR, char[sizeof(char*)])'
    'KINFO_ROW_VECTOR(S, vector, KINFO_STRING, int32_t)'
    # No structure, or another one than the table's.
    'KINFO_ROW_OBJECT(S, number, table)' 'KINFO_ROW_OBJECT(S, pointer, table)'
    'KINFO_ROW_OBJECT_ARRAY(S, numbers, table)' 'KINFO_ROW_OBJECT_ARRAY(S, port, table)'
    'KINFO_ROW_STRUCT(S, other, Port)' 'KINFO_ROW_STRUCT(S, ports, Port)'
    'KINFO_ROW_STRUCT_ARRAY(S, others, Port)' 'KINFO_ROW_STRUCT_ARRAY(S, port, Port)'
    'KINFO_ROW_STRUCT_VECTOR(S, anything, Port)' 'KINFO_ROW_STRUCT(S, other, Other)'
)
accepted=(
    'KINFO_ROW(S, word, KINFO_U16)' 'KINFO_ROW(S, text, KINFO_STRING)'
    'KINFO_ROW(S, pointer, KINFO_STRPTR)' 'KINFO_ROW_ARRAY(S, texts, KINFO_STRING)'
    'KINFO_ROW_ARRAY(S, pointers, KINFO_STRPTR)' 'KINFO_ROW_ARRAY(S, numbers, KINFO_S32)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_STRING, char[9])'
    'KINFO_ROW(S, flag, KINFO_U8)' 'KINFO_ROW(S, letter, KINFO_CHAR)'
    'KINFO_ROW(S, kind, KINFO_S32)' 'KINFO_ROW(S, number, KINFO_BOOL)'
    'KINFO_ROW(S, moving, KINFO_S32)' 'KINFO_ROW(S, port.number, KINFO_U32)'
    'KINFO_ROW(S, real, KINFO_FLOAT)' 'KINFO_ROW_ARRAY(S, reals, KINFO_FLOAT)'
    'KINFO_ROW(S, exact, KINFO_DOUBLE)' 'KINFO_ROW(S, constant, KINFO_STRPTR)'
    'KINFO_ROW(S, bytes, KINFO_STRING)' 'KINFO_ROW_ARRAY(S, bytes, KINFO_U8)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_STRPTR, char*)'
    'KINFO_ROW_VECTOR(S, vector, KINFO_DOUBLE, double)'
    'KINFO_ROW_OBJECT(S, port, Port_kinfo)' 'KINFO_ROW_OBJECT_ARRAY(S, ports, Port_kinfo)'
    'KINFO_ROW_OBJECT_VECTOR(S, vector, table, S)'
    'KINFO_ROW_STRUCT(S, port, Port)' 'KINFO_ROW_STRUCT_ARRAY(S, ports, Port)'
    'KINFO_ROW_STRUCT_VECTOR(S, vector, Port)' 'KINFO_ROW_STRUCT_AS("p", S, port, Port)'
)

compiles() { # LANGUAGE ROW
    local compiler=("$cc" -std=c11 -xc)
    [ "$1" = c ] || compiler=("$cxx" -std=c++17 -xc++)
    "${compiler[@]}" "${flags[@]}" - >/dev/null 2>&1 <<END
#include <hybase/cjson_struct.h>
#include <stdbool.h>
typedef struct { uint32_t number; } Port;
typedef struct { uint32_t number, more; } Other;
extern KINFO_TABLE(Port);
KINFO_TABLE(Port) = {KINFO_ROW(Port, number, KINFO_U32), KINFO_END};
typedef struct {
    uint16_t word;
    char letter, text[4], texts[2][8], *pointer, *pointers[4], address[sizeof(char*)];
    const char* constant;
    unsigned char bytes[4];
    bool flag;
    enum { OFF, ON } kind;
    int32_t number, numbers[4];
    volatile int32_t moving;
    uint64_t large;
    float real, reals[2];
    double exact;
    Port port, ports[2];
    Other other, others[2];
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
