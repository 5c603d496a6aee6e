/**
 * @file
 * @ingroup utltlv
 * The TLV codec: messages of a head type text and of values found by their type number.
 */

/**
 * @addtogroup utltlv
 * Messages of a head type text and of values found by their type number.
 *
 *     utltlv_t status = utltlv_create("status");
 *     utltlv_put_uint32(status, 1, 42);
 *     write(fd, utltlv_get_buffer(status), utltlv_get_buffersize(status));
 *     utltlv_destroy(status);
 *
 * Any int is a type; a type stands in a message once. A value has a kind, which travels with it,
 * and is read back as that kind only; bytes may also be read from a string. A value holds at most
 * #UTLTLV_MAX_VALUE bytes, a message at most 2147483647. [docs/formats.md](docs/formats.md) shows
 * every byte.
 *
 * @par Results
 * 0, or one of the `UTLTLV_ERR_` codes; what a failed call would have written to its out-parameters
 * or to the message is then not written.
 *
 * @par Trust
 * utltlv_parse() takes bytes from anywhere. What it accepts can be read without further checks:
 * strings are terminated, a point_count is 0 to 10.
 *
 * @par Ownership
 * Pointers handed out belong to the handle and are for reading only. They live until its next put,
 * also one that fails, del or destroy; they may be given to that put as what they are: bytes, a
 * text, or the records.
 *
 * @par Threads
 * One thread a handle; different handles are independent. No getter is a pure read.
 * @{
 */
#ifndef HYPLATFORM_UTLTLV_H
#define HYPLATFORM_UTLTLV_H

#include <hyplatform/arch.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A message, made by utltlv_create() or utltlv_parse() and freed by utltlv_destroy(). */
typedef struct utltlv_s* utltlv_t;

/** The longest value, bytes. */
#define UTLTLV_MAX_VALUE (16 * 1024 * 1024)

/** Failures. */
enum {
    UTLTLV_ERR_NULL = -1,   /**< a null handle or pointer */
    UTLTLV_ERR_ABSENT = -2, /**< no value of that type */
    UTLTLV_ERR_KIND = -3,   /**< the value is of another kind */
    UTLTLV_ERR_LENGTH = -4, /**< too long, too short or negative; a point_count outside 0 to 10 */
    UTLTLV_ERR_MEMORY = -5  /**< memory is short */
};

/** The kinds of values, as they stand in a message. */
enum {
    UTLTLV_UINT8 = 1,  /**< an unsigned integer of 1 byte */
    UTLTLV_UINT16,     /**< an unsigned integer of 2 bytes */
    UTLTLV_UINT32,     /**< an unsigned integer of 4 bytes */
    UTLTLV_UINT64,     /**< an unsigned integer of 8 bytes */
    UTLTLV_FLOAT,      /**< an IEEE 754 number of 4 bytes */
    UTLTLV_DOUBLE,     /**< an IEEE 754 number of 8 bytes */
    UTLTLV_STRING,     /**< a text with its terminator */
    UTLTLV_BYTES,      /**< any bytes, or none */
    UTLTLV_SIZE,       /**< one TLVSize_t */
    UTLTLV_RECT,       /**< one TLVRect_t */
    UTLTLV_RULE_AREAS, /**< any number of TLVRuleArea_t */
    UTLTLV_OBJ_AREAS   /**< any number of TLVObjArea_t */
};

/** A size. The units are the application's, here and below. */
typedef struct {
    int32_t w, /**< width */
        h;     /**< height */
} TLVSize_t;

/** A rectangle. */
typedef struct {
    int32_t x, /**< left edge */
        y,     /**< upper edge */
        w,     /**< width */
        h;     /**< height */
} TLVRect_t;

/** A point. */
typedef struct {
    int32_t x, /**< to the right */
        y;     /**< downwards */
} TLVPoint_t;

/** A polygon to watch. Points behind the first point_count travel as zeros. */
typedef struct {
    int32_t id;            /**< the application's number of the area */
    int32_t point_count;   /**< 0 to 10 */
    TLVPoint_t points[10]; /**< its corners, one after the other */
} TLVRuleArea_t;

/** An object that was found. */
typedef struct {
    int32_t id;         /**< the application's number of the object */
    int32_t kind;       /**< what it is, in the application's numbers */
    int32_t confidence; /**< how sure that is, in the application's measure */
    TLVRect_t rect;     /**< where it is */
} TLVObjArea_t;

/**
 * @name Messages
 * @{
 */

/**
 * A new message without values, to be given to utltlv_destroy(). A null `head_type` is the empty
 * text. Null when memory is short.
 */
HYPLATFORM_API utltlv_t utltlv_create(const char* head_type);

/**
 * The message that `data[0..length-1]` holds, to be given to utltlv_destroy(); the data is copied.
 * Null when memory is short, and for anything malformed: a byte too few or too many, an unknown
 * kind, a length that does not go with its kind, a type that stands twice.
 */
HYPLATFORM_API utltlv_t utltlv_parse(const unsigned char* data, int length);

/** Frees the message with all that was handed out. UTLTLV_ERR_NULL for a null handle. */
HYPLATFORM_API int utltlv_destroy(utltlv_t tlv);

/** The head type; null for a null handle. */
HYPLATFORM_API const char* utltlv_get_headtype(utltlv_t tlv);

/**
 * The message as bytes, ready to be sent or stored. Null for a null handle and when memory is
 * short.
 */
HYPLATFORM_API unsigned char* utltlv_get_buffer(utltlv_t tlv);

/** The count of these bytes; 0 for a null handle. */
HYPLATFORM_API int utltlv_get_buffersize(utltlv_t tlv);
/** @} */

/**
 * @name Values in
 * Each adds a value, or replaces the one of the same type, whatever its kind. Values stand in the
 * message in the order of their puts; a replaced one keeps its place if its length is the same,
 * else it moves to the end. The data is copied.
 * @{
 */

/** Puts an unsigned integer of 1 byte. */
HYPLATFORM_API int utltlv_put_uint8(utltlv_t tlv, int type, unsigned char value);

/** Puts an unsigned integer of 2 bytes. */
HYPLATFORM_API int utltlv_put_uint16(utltlv_t tlv, int type, unsigned short value);

/** Puts an unsigned integer of 4 bytes. */
HYPLATFORM_API int utltlv_put_uint32(utltlv_t tlv, int type, unsigned int value);

/** Puts an unsigned integer of 8 bytes. */
HYPLATFORM_API int utltlv_put_uint64(utltlv_t tlv, int type, unsigned long long value);

/** Puts a float. */
HYPLATFORM_API int utltlv_put_float(utltlv_t tlv, int type, float value);

/** Puts a double. */
HYPLATFORM_API int utltlv_put_double(utltlv_t tlv, int type, double value);

/** Puts a text. It is stored with its terminator, which counts as a byte of the value. */
HYPLATFORM_API int utltlv_put_string(utltlv_t tlv, int type, const char* text);

/** Puts bytes. `length` may be 0, and `data` null then. */
HYPLATFORM_API int utltlv_put_bytes(utltlv_t tlv, int type, const unsigned char* data, int length);

/** Puts a size. */
HYPLATFORM_API int utltlv_put_size(utltlv_t tlv, int type, const TLVSize_t* size);

/** Puts a rectangle. */
HYPLATFORM_API int utltlv_put_rect(utltlv_t tlv, int type, const TLVRect_t* rect);

/** Puts `count` polygons; `count` may be 0, and `areas` null then. */
HYPLATFORM_API int utltlv_put_rule_areas(utltlv_t tlv, int type, const TLVRuleArea_t* areas,
                                         unsigned char count);

/** Puts `count` objects; `count` may be 0, and `areas` null then. */
HYPLATFORM_API int utltlv_put_obj_areas(utltlv_t tlv, int type, const TLVObjArea_t* areas,
                                        unsigned char count);

/** Removes the value. UTLTLV_ERR_ABSENT when there is none. */
HYPLATFORM_API int utltlv_del_type(utltlv_t tlv, int type);
/** @} */

/**
 * @name Values out
 * UTLTLV_ERR_ABSENT when there is no value of the type, UTLTLV_ERR_KIND when it has another kind.
 * @{
 */

/** Gets an unsigned integer of 1 byte. */
HYPLATFORM_API int utltlv_get_uint8(utltlv_t tlv, int type, unsigned char* value);

/** Gets an unsigned integer of 2 bytes. */
HYPLATFORM_API int utltlv_get_uint16(utltlv_t tlv, int type, unsigned short* value);

/** Gets an unsigned integer of 4 bytes. */
HYPLATFORM_API int utltlv_get_uint32(utltlv_t tlv, int type, unsigned int* value);

/** Gets an unsigned integer of 8 bytes. */
HYPLATFORM_API int utltlv_get_uint64(utltlv_t tlv, int type, unsigned long long* value);

/** Gets a float. */
HYPLATFORM_API int utltlv_get_float(utltlv_t tlv, int type, float* value);

/** Gets a double. */
HYPLATFORM_API int utltlv_get_double(utltlv_t tlv, int type, double* value);

/**
 * Copies bytes, or a string with its terminator. `*length`: the room in `buf` before, the bytes
 * copied after; UTLTLV_ERR_LENGTH when there is not enough room.
 */
HYPLATFORM_API int utltlv_get_bytes(utltlv_t tlv, int type, unsigned char* buf, int* length);

/** As utltlv_get_bytes(), without a copy. `*data` is never null, also for no bytes. */
HYPLATFORM_API int utltlv_get_bytes_ptr(utltlv_t tlv, int type, unsigned char** data, int* length);

/** Gets a size. */
HYPLATFORM_API int utltlv_get_size(utltlv_t tlv, int type, TLVSize_t* size);

/** Gets a rectangle. */
HYPLATFORM_API int utltlv_get_rect(utltlv_t tlv, int type, TLVRect_t* rect);

/** Gets all polygons of the value. `*areas` is never null, also for no records. */
HYPLATFORM_API int utltlv_get_rule_areas(utltlv_t tlv, int type, TLVRuleArea_t** areas, int* count);

/** Gets all objects of the value. `*areas` is never null, also for no records. */
HYPLATFORM_API int utltlv_get_obj_areas(utltlv_t tlv, int type, TLVObjArea_t** areas, int* count);

/**
 * Walks over a message whose types are not known:
 *
 *     int type, kind;
 *     for (const int* after = NULL; utltlv_get_next(tlv, after, &type, &kind) == 0; after = &type)
 *
 * Type and kind of the value that stands behind the one of type `*after`, of the first value if
 * `after` is null. UTLTLV_ERR_ABSENT when there is none, or none of type `*after`.
 */
HYPLATFORM_API int utltlv_get_next(utltlv_t tlv, const int* after, int* type, int* kind);
/** @} */

#ifdef __cplusplus
}
#endif

/** @} */

#endif
