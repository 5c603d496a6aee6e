/*
 * The TLV codec: messages of a head type text and of values found by their type number.
 *
 *     utltlv_t status = utltlv_create("status");
 *     utltlv_put_uint32(status, 1, 42);
 *     write(fd, utltlv_get_buffer(status), utltlv_get_buffersize(status));
 *     utltlv_destroy(status);
 *
 * Any int is a type; a type stands in a message once. A value has a kind, which travels with it,
 * and is read back as that kind only; bytes may also be read from a string. A value holds at most
 * UTLTLV_MAX_VALUE bytes, a message at most 2147483647. docs/formats.md shows every byte.
 *
 * Results:   0, or one of the UTLTLV_ERR_ codes; what a failed call would have written to its
 *            out-parameters or to the message is then not written.
 * Trust:     utltlv_parse takes bytes from anywhere. What it accepts can be read without further
 *            checks: strings are terminated, a point_count is 0 to 10.
 * Ownership: pointers handed out belong to the handle and are for reading only. They live until its
 *            next put, also one that fails, del or destroy; they may be given to that put as what
 * they are: bytes, a text, or the records. Threads:   one thread a handle; different handles are
 * independent. No getter is a pure read.
 */
#ifndef HYPLATFORM_UTLTLV_H
#define HYPLATFORM_UTLTLV_H

#include <hyplatform/arch.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct utltlv_s* utltlv_t;

#define UTLTLV_MAX_VALUE (16 * 1024 * 1024) /* bytes */

enum {
    UTLTLV_ERR_NULL = -1,   /* a null handle or pointer */
    UTLTLV_ERR_ABSENT = -2, /* no value of that type */
    UTLTLV_ERR_KIND = -3,   /* the value is of another kind */
    UTLTLV_ERR_LENGTH = -4, /* too long, too short or negative; a point_count outside 0 to 10 */
    UTLTLV_ERR_MEMORY = -5
};

/* The kinds of values, as they stand in a message. */
enum {
    UTLTLV_UINT8 = 1,
    UTLTLV_UINT16,
    UTLTLV_UINT32,
    UTLTLV_UINT64,
    UTLTLV_FLOAT,
    UTLTLV_DOUBLE,
    UTLTLV_STRING,
    UTLTLV_BYTES,
    UTLTLV_SIZE,
    UTLTLV_RECT,
    UTLTLV_RULE_AREAS,
    UTLTLV_OBJ_AREAS
};

typedef struct {
    int32_t w, h;
} TLVSize_t;

typedef struct {
    int32_t x, y, w, h;
} TLVRect_t;

typedef struct {
    int32_t x, y;
} TLVPoint_t;

/* A polygon to watch. Points behind the first point_count travel as zeros. */
typedef struct {
    int32_t id;
    int32_t point_count; /* 0 to 10 */
    TLVPoint_t points[10];
} TLVRuleArea_t;

/* An object that was found. */
typedef struct {
    int32_t id;
    int32_t kind;
    int32_t confidence;
    TLVRect_t rect;
} TLVObjArea_t;

/* ---- Messages -------------------------------------------------------------------------------- */

/* A new message without values, to be given to utltlv_destroy. A null `head_type` is the empty
   text. Null when memory is short. */
HYPLATFORM_API utltlv_t utltlv_create(const char* head_type);

/* The message that data[0..length-1] holds, to be given to utltlv_destroy; the data is copied. Null
   when memory is short, and for anything malformed: a byte too few or too many, an unknown kind, a
   length that does not go with its kind, a type that stands twice. */
HYPLATFORM_API utltlv_t utltlv_parse(const unsigned char* data, int length);

HYPLATFORM_API int utltlv_destroy(utltlv_t tlv);

/* The head type; null for a null handle. */
HYPLATFORM_API const char* utltlv_get_headtype(utltlv_t tlv);

/* The message as bytes, ready to be sent or stored, and their count. Null and 0 for a null handle;
   null as well when memory is short. */
HYPLATFORM_API unsigned char* utltlv_get_buffer(utltlv_t tlv);
HYPLATFORM_API int utltlv_get_buffersize(utltlv_t tlv);

/* ---- Values in ------------------------------------------------------------------------------- */

/*
 * Each adds a value, or replaces the one of the same type, whatever its kind. Values stand in the
 * message in the order of their puts; a replaced one keeps its place if its length is the same,
 * else it moves to the end. The data is copied.
 */
HYPLATFORM_API int utltlv_put_uint8(utltlv_t tlv, int type, unsigned char value);
HYPLATFORM_API int utltlv_put_uint16(utltlv_t tlv, int type, unsigned short value);
HYPLATFORM_API int utltlv_put_uint32(utltlv_t tlv, int type, unsigned int value);
HYPLATFORM_API int utltlv_put_uint64(utltlv_t tlv, int type, unsigned long long value);
HYPLATFORM_API int utltlv_put_float(utltlv_t tlv, int type, float value);
HYPLATFORM_API int utltlv_put_double(utltlv_t tlv, int type, double value);

/* Stored with its terminator, which counts as a byte of the value. */
HYPLATFORM_API int utltlv_put_string(utltlv_t tlv, int type, const char* text);

/* `length` may be 0, and `data` null then. */
HYPLATFORM_API int utltlv_put_bytes(utltlv_t tlv, int type, const unsigned char* data, int length);

HYPLATFORM_API int utltlv_put_size(utltlv_t tlv, int type, const TLVSize_t* size);
HYPLATFORM_API int utltlv_put_rect(utltlv_t tlv, int type, const TLVRect_t* rect);

/* `count` may be 0, and `areas` null then. */
HYPLATFORM_API int utltlv_put_rule_areas(utltlv_t tlv, int type, const TLVRuleArea_t* areas,
                                         unsigned char count);
HYPLATFORM_API int utltlv_put_obj_areas(utltlv_t tlv, int type, const TLVObjArea_t* areas,
                                        unsigned char count);

/* Removes the value. UTLTLV_ERR_ABSENT when there is none. */
HYPLATFORM_API int utltlv_del_type(utltlv_t tlv, int type);

/* ---- Values out ------------------------------------------------------------------------------ */

HYPLATFORM_API int utltlv_get_uint8(utltlv_t tlv, int type, unsigned char* value);
HYPLATFORM_API int utltlv_get_uint16(utltlv_t tlv, int type, unsigned short* value);
HYPLATFORM_API int utltlv_get_uint32(utltlv_t tlv, int type, unsigned int* value);
HYPLATFORM_API int utltlv_get_uint64(utltlv_t tlv, int type, unsigned long long* value);
HYPLATFORM_API int utltlv_get_float(utltlv_t tlv, int type, float* value);
HYPLATFORM_API int utltlv_get_double(utltlv_t tlv, int type, double* value);

/* Copies bytes, or a string with its terminator. *length: the room in `buf` before, the bytes
   copied after; UTLTLV_ERR_LENGTH when there is not enough room. */
HYPLATFORM_API int utltlv_get_bytes(utltlv_t tlv, int type, unsigned char* buf, int* length);

/* The same without a copy. *data is never null, also for no bytes. */
HYPLATFORM_API int utltlv_get_bytes_ptr(utltlv_t tlv, int type, unsigned char** data, int* length);

HYPLATFORM_API int utltlv_get_size(utltlv_t tlv, int type, TLVSize_t* size);
HYPLATFORM_API int utltlv_get_rect(utltlv_t tlv, int type, TLVRect_t* rect);

/* All records of the value. *areas is never null, also for no records. */
HYPLATFORM_API int utltlv_get_rule_areas(utltlv_t tlv, int type, TLVRuleArea_t** areas, int* count);
HYPLATFORM_API int utltlv_get_obj_areas(utltlv_t tlv, int type, TLVObjArea_t** areas, int* count);

/*
 * Walks over a message whose types are not known:
 *
 *     int type, kind;
 *     for (const int* after = NULL; utltlv_get_next(tlv, after, &type, &kind) == 0; after = &type)
 *
 * Type and kind of the value that stands behind the one of type *after, of the first value if
 * `after` is null. UTLTLV_ERR_ABSENT when there is none, or none of type *after.
 */
HYPLATFORM_API int utltlv_get_next(utltlv_t tlv, const int* after, int* type, int* kind);

#ifdef __cplusplus
}
#endif

#endif
