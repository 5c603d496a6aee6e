# 32-bit ARM, hard-float, with Debian's cross compiler; for hybase itself and for programs that use it.
# Libraries that the compiler package does not bring lie in HYBASE_ARM_SYSROOT. In hybase's own tree that
# is the private sysroot which ./dev fills, without a foreign architecture on the machine. Elsewhere name
# your own, or CMAKE_SYSROOT; without one the machine's armhf packages (libcjson-dev:armhf ...) are used.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(default_sysroot "${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot")
if(CMAKE_SYSROOT)
    set(default_sysroot "${CMAKE_SYSROOT}")
elseif(NOT EXISTS "${default_sysroot}")
    set(default_sysroot /)
endif()
set(HYBASE_ARM_SYSROOT "${default_sysroot}" CACHE PATH "Folder with the armhf libraries, usr/ in it")
# The compiler checks read this file anew and must see the same folder.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HYBASE_ARM_SYSROOT)
get_filename_component(sysroot "${HYBASE_ARM_SYSROOT}" ABSOLUTE)
set(sysroot_lib "${sysroot}/usr/lib/arm-linux-gnueabihf")

set(CMAKE_FIND_ROOT_PATH "${sysroot}" /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${sysroot}")
set(ENV{PKG_CONFIG_LIBDIR} "${sysroot_lib}/pkgconfig:${sysroot}/usr/share/pkgconfig")

set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${sysroot_lib}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${sysroot_lib}")
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${sysroot_lib};-E;GCONV_PATH=${sysroot_lib}/gconv)
