# 32-bit ARM, hard-float, with Debian's cross compiler. Libraries that the compiler package does not
# bring lie in a private sysroot, filled by ./dev; no foreign architecture is set up on the machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(HYBASE_ARM_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm-sysroot" CACHE PATH
    "Folder with the unpacked armhf packages")
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
    qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=${sysroot_lib})
