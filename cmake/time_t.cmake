# How wide the library's time_t is. Callers must have the same: an 8-byte time_t handed to a function
# that takes 4 bytes, or the other way round, corrupts memory. Sets
#   HYBASE_TIME_T_BYTES         4 or 8, written into hyplatform/abi.h
#   HYBASE_TIME64_DEFINITIONS   what callers must define: part of the exported targets
#   HYBASE_TIME64_CFLAGS        the same as compiler options, a space before each, for pkg-config
# On a system that compiles everything with a time_t of 64 bits the option is not needed.
include(CheckTypeSize)

set(HYBASE_TIME64_DEFINITIONS "")
if(HYBASE_TIME64)
    # glibc takes the first only with the second; a 64-bit machine heeds neither.
    set(HYBASE_TIME64_DEFINITIONS _TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()
list(TRANSFORM HYBASE_TIME64_DEFINITIONS PREPEND -D OUTPUT_VARIABLE CMAKE_REQUIRED_DEFINITIONS)
list(TRANSFORM CMAKE_REQUIRED_DEFINITIONS PREPEND " " OUTPUT_VARIABLE HYBASE_TIME64_CFLAGS)
list(JOIN HYBASE_TIME64_CFLAGS "" HYBASE_TIME64_CFLAGS)

# The answer is kept between runs, one for each setting of the option.
set(CMAKE_EXTRA_INCLUDE_FILES time.h)
if(HYBASE_TIME64)
    check_type_size(time_t HYBASE_TIME64_SIZE LANGUAGE C)
    set(HYBASE_TIME_T_BYTES ${HYBASE_TIME64_SIZE})
else()
    check_type_size(time_t HYBASE_TIME_SIZE LANGUAGE C)
    set(HYBASE_TIME_T_BYTES ${HYBASE_TIME_SIZE})
endif()
unset(CMAKE_EXTRA_INCLUDE_FILES)
unset(CMAKE_REQUIRED_DEFINITIONS)

if(HYBASE_TIME64 AND NOT HYBASE_TIME_T_BYTES EQUAL 8)
    message(FATAL_ERROR "HYBASE_TIME64: this C library has no time_t of 64 bits (glibc has from 2.34)")
endif()
