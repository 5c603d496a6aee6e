// Every function of the platform layer, once: the symbols that are looked up, the checks and --list
// are made from these lists.
#ifndef HYPLATFORM_CHECK_FUNCTIONS_H
#define HYPLATFORM_CHECK_FUNCTIONS_H

// clang-format off
// A port writes these: each has a check.
#define HYPLATFORM_WRITTEN(X) \
    X(arch_mutex_create) \
    X(arch_mutex_lock) \
    X(arch_mutex_unlock) \
    X(arch_mutex_delete) \
    X(arch_thread_create) \
    X(arch_thread_create_detached) \
    X(arch_thread_join) \
    X(arch_thread_setname) \
    X(arch_time) \
    X(arch_gettimeofday) \
    X(arch_getSystemStartupMs) \
    X(arch_localtime_r) \
    X(arch_gmtime_r) \
    X(arch_rand_bytes)

// A port links these as they are, from platform/common/: they must be there.
#define HYPLATFORM_COMMON(X) \
    X(utl_md5_init) \
    X(utl_md5_update) \
    X(utl_md5_final) \
    X(utltlv_create) \
    X(utltlv_parse) \
    X(utltlv_destroy) \
    X(utltlv_get_headtype) \
    X(utltlv_get_buffer) \
    X(utltlv_get_buffersize) \
    X(utltlv_put_uint8) \
    X(utltlv_put_uint16) \
    X(utltlv_put_uint32) \
    X(utltlv_put_uint64) \
    X(utltlv_put_float) \
    X(utltlv_put_double) \
    X(utltlv_put_string) \
    X(utltlv_put_bytes) \
    X(utltlv_put_size) \
    X(utltlv_put_rect) \
    X(utltlv_put_rule_areas) \
    X(utltlv_put_obj_areas) \
    X(utltlv_del_type) \
    X(utltlv_get_uint8) \
    X(utltlv_get_uint16) \
    X(utltlv_get_uint32) \
    X(utltlv_get_uint64) \
    X(utltlv_get_float) \
    X(utltlv_get_double) \
    X(utltlv_get_bytes) \
    X(utltlv_get_bytes_ptr) \
    X(utltlv_get_size) \
    X(utltlv_get_rect) \
    X(utltlv_get_rule_areas) \
    X(utltlv_get_obj_areas) \
    X(utltlv_get_next)
// clang-format on

#endif
