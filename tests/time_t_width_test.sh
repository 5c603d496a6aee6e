#!/usr/bin/env bash
# A caller whose time_t is not as wide as the library's must not compile, and be told what to do:
# time_t_width_test.sh CC CXX FOLDER INCLUDE-FOLDER...
# FOLDER/4 and FOLDER/8 hold hyplatform/abi.h of a library with a time_t of that many bytes.
set -euo pipefail
cc=$1 cxx=$2 folder=$3
shift 3
includes=("${@/#/-I}")
wide=(-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)

compile() { # LANGUAGE LIBRARY-BYTES HEADER OPTION...
    local compiler=("$cc" -std=c11 -xc) library=$2 header=$3
    [ "$1" = c ] || compiler=("$cxx" -std=c++17 -xc++)
    shift 3
    "${compiler[@]}" -Wall -Wextra -Wpedantic -Werror -fsyntax-only "$@" \
        "-I$folder/$library" "${includes[@]}" - <<<"#include <$header>" 2>&1
}

caller_bytes() { # OPTION...
    if echo '#include <time.h>
_Static_assert(sizeof(time_t) == 4, "");' | "$cc" "$@" -fsyntax-only -xc - 2>/dev/null; then
        echo 4
    else
        echo 8
    fi
}

advice=([4]='built with a 32-bit time_t: compile without -D_TIME_BITS=64'
    [8]='built with a 64-bit time_t: compile with -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64')
failures=0
complain() {
    echo "$*"
    failures=1
}

check() { # LANGUAGE HEADER OPTION...
    local language=$1 header=$2 library output
    shift 2
    for library in 4 8; do
        if output=$(compile "$language" $library "$header" "$@"); then
            [ $library = "$(caller_bytes "$@")" ] || complain "$language takes $header, $library $*"
        elif [ $library = "$(caller_bytes "$@")" ]; then
            complain "$language refuses $header, $library $*: $output"
        elif [[ $output != *"${advice[library]}"* ]]; then
            complain "$language does not say what to do: $output"
        fi
    done
}

for header in hyplatform/arch.h hybase/htime.h; do
    check c $header
    check c $header "${wide[@]}"
    check c++ $header
    check c++ $header "${wide[@]}"
done
check c++ hybase/hcutil/HCNetPackage.h
check c++ hybase/hcutil/HCNetPackage.h "${wide[@]}"
exit $failures
