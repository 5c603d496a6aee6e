#!/usr/bin/env bash
# The CMake calls that the Yocto recipe and the Buildroot package make, with the options that stand in
# them, for ARM:   recipes_test.sh SYSROOT FOLDER
# What those systems add of their own is written here as they do it; the systems themselves do not run.
set -euo pipefail
sysroot=$(cd "$1" && pwd)
mkdir -p "$2"
folder=$(cd "$2" && pwd)
top=$(cd "$(dirname "$0")/.." && pwd)
recipe=$(ls "$top"/packaging/yocto/meta-hybase/recipes-support/hybase/hybase_*.bb)
package=$top/packaging/buildroot/package/hybase/hybase.mk

# Both generate a toolchain file and let pkg-config see nothing but the sysroot.
export PKG_CONFIG_SYSROOT_DIR=$sysroot
export PKG_CONFIG_LIBDIR=$sysroot/usr/lib/arm-linux-gnueabihf/pkgconfig:$sysroot/usr/share/pkgconfig
cat >"$folder/toolchain.cmake" <<FILE
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_FIND_ROOT_PATH $sysroot /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,-rpath-link,$sysroot/usr/lib/arm-linux-gnueabihf)
FILE

# build NAME OPTION...: configures, builds and installs as the system NAME does.
build() {
    local name=$1
    shift
    cmake -S "$top" -B "$folder/$name" -DCMAKE_TOOLCHAIN_FILE="$folder/toolchain.cmake" \
        -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib "$@" >"$folder/$name.log" 2>&1 &&
        cmake --build "$folder/$name" -j "$(nproc)" >>"$folder/$name.log" 2>&1 &&
        DESTDIR=$folder/$name.root cmake --install "$folder/$name" >>"$folder/$name.log" 2>&1 ||
        { tail -n 40 "$folder/$name.log" >&2; exit 1; }
}

# has NAME FILE..., has_not NAME FILE...: what must have come of it.
has() {
    local root=$folder/$1.root file
    shift
    for file; do [ -e "$root/$file" ] || { echo "recipes: $file is missing in $root" >&2; exit 1; }; done
}
has_not() { if [ -e "$folder/$1.root/$2" ]; then echo "recipes: $2 should not be there" >&2; exit 1; fi; }
library=(usr/lib/libhybase.so.1 usr/lib/libhyplatform.so.1 usr/lib/pkgconfig/hybase.pc
    usr/lib/cmake/hybase/hybase-config.cmake usr/include/hybase/grpc.h usr/include/hyplatform/arch.h)

# Yocto's distributions of today build 32-bit targets with 64-bit time.
oecmake=$(sed -n 's/^EXTRA_OECMAKE = "\(.*\)"/\1/p' "$recipe")
without_hyfont=$(sed -n 's/^PACKAGECONFIG\[hyfont\] = "[^,]*,\([^,]*\),.*/\1/p' "$recipe")
[ -n "$oecmake" ] && [ -n "$without_hyfont" ]
CFLAGS="-O2 -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64" CXXFLAGS="-O2 -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64" \
    build yocto $oecmake $without_hyfont
has yocto "${library[@]}" usr/bin/hyrpc usr/bin/hyplatform-check
has_not yocto usr/bin/hyfont
grep -q "$(md5sum <"$top/LICENSE" | cut -d' ' -f1)" "$recipe"

options=$(sed -n 's/^HYBASE_CONF_OPTS += //p' "$package" | grep TOOLS=OFF)
common=$(sed -n 's/^HYBASE_CONF_OPTS = //p' "$package")
[ -n "$options" ] && [ -n "$common" ]
build buildroot -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON -DBUILD_DOC=OFF -DBUILD_TESTS=OFF \
    $common $options
has buildroot "${library[@]}"
has_not buildroot usr/bin/hyrpc
echo "recipes: the CMake calls of Yocto and Buildroot build and install"
