/**
 * @file
 * @ingroup json_struct
 * Plain structures to and from JSON, by tables instead of code.
 */

/**
 * @addtogroup json_struct
 * Plain structures to and from JSON, by tables instead of code.
 *
 * A structure is described once by a static table, one row a member:
 *
 *     typedef struct {
 *         char name[32];
 *         uint16_t port;
 *         int32_t enabled;
 *     } Device;
 *
 *     static const kinfo_t device_table[] = {
 *         KINFO_ROW(Device, name, KINFO_STRING),
 *         KINFO_ROW(Device, port, KINFO_U16),
 *         KINFO_ROW(Device, enabled, KINFO_BOOL),
 *         KINFO_END,
 *     };
 *
 *     Device device;
 *     if (cjson_string2object(device_table, text, &device)) ...
 *
 * The table serves C and C++ alike. A member that does not exist, or whose kind or size does not
 * fit the type code, does not compile. [docs/struct-mapping.md](docs/struct-mapping.md) walks
 * through a complete example.
 *
 * @par Rows
 * The `KINFO_ROW` macros take the type, and its member, which is also the key. Those with `_AS`
 * take the key as their first argument: `KINFO_ROW_AS("ip-address", Device, ip, KINFO_STRING)`. A
 * table may name itself as the table of a vector's items (a tree). As the table of a nested
 * structure it would describe a structure without end: writing that never ends either.
 *
 * @par From JSON
 * - Keys match regardless of letter case; the first that matches counts. A missing key leaves its
 *   member as it is; keys that the table does not know are ignored.
 * - Integers are taken from cJSON's `valueint` (a number beyond the range of int is held at the
 *   nearer end) and cut to the width of the member. What is no number counts as 0, a parsed true as
 *   1.
 * - A null in an array leaves its element as it is; only elements of the string types become empty
 *   strings and null pointers. A vector gets no item for a null.
 * - Heap strings (#KINFO_STRPTR) and vectors (#KINFO_VECTOR) are made anew; what the member pointed
 *   to before is overwritten and never freed.
 *
 * @par To JSON
 * - Members appear in the order of the table.
 * - A null heap string gives no member, in an array no element. A null vector, or one whose items
 *   are smaller than their type, gives an empty array.
 *
 * @par Ownership
 * Structures, arrays and vectors that a call makes are the caller's, and so are the heap strings
 * and vectors inside of them. Structures, arrays and heap strings are freed with free(), vectors
 * with HVector_Destroy(), trees with cJSON_Delete(), texts with cJSON_free().
 *
 * @par Failures
 * The result is null. A null table, text, tree or structure, a text that does not parse and a lack
 * of memory for the result are failures; the calls that read JSON then print `"[NAME OF THE CALL]
 * json_assert failed\n"`. A row that cannot be converted prints `" %d Not Support\n"` with the type
 * code of its elements, or `"ERROR: kinfo[i].sub_key should not be NULL\n"` for an array or vector
 * of structures without a table; the other rows are still converted. So does, with the code of
 * #KINFO_OBJECT, a structure or an array whose table describes more bytes than the member has. All
 * of this goes to standard output, or where hlog_set_print() leads it.
 *
 * @par Threads
 * No shared state. Calls may run at the same time on different structures.
 * @{
 */
#ifndef HYBASE_CJSON_STRUCT_H
#define HYBASE_CJSON_STRUCT_H

#include <cjson/cJSON.h>
#include <hybase/export.h>
#include <hybase/hvector.h>
#include <stddef.h>
#include <stdint.h>
#ifdef __cplusplus
#include <type_traits>

/** @cond */
/* What a member, or a reference to one, can be to a row. */
template <typename Reference, typename Member = typename std::remove_reference<Reference>::type>
struct kinfo_member {
    using Plain = typename std::remove_cv<Member>::type;
    using Target = typename std::remove_cv<typename std::remove_pointer<Plain>::type>::type;
    static constexpr bool is_integer = std::is_integral<Plain>::value || std::is_enum<Plain>::value;
    static constexpr bool is_floating = std::is_floating_point<Plain>::value;
    static constexpr bool is_text =
        std::rank<Member>::value == 1 && sizeof(typename std::remove_extent<Member>::type) == 1;
    static constexpr bool is_heap_text =
        std::is_pointer<Plain>::value &&
        (std::is_same<Target, char>::value || std::is_same<Target, signed char>::value ||
         std::is_same<Target, unsigned char>::value);
    static constexpr bool is_compound =
        std::is_class<Plain>::value || std::is_union<Plain>::value || std::is_array<Plain>::value;
};
/** @endcond */

extern "C" {
#endif

/** Type codes: what a member is in C, and what it is in JSON. */
enum {
    KINFO_U8 = 1, /**< `uint8_t`: number */
    KINFO_U16,    /**< `uint16_t`: number */
    KINFO_U32,  /**< `uint32_t`: number; above 2147483647 it is only written right (see valueint) */
    KINFO_CHAR, /**< `char`: number, written as 0 to 255 */
    KINFO_S16,  /**< `int16_t`: number */
    KINFO_S32,  /**< `int32_t`: number */
    KINFO_FLOAT,  /**< `float`: number */
    KINFO_DOUBLE, /**< `double`: number */
    KINFO_STRING, /**< `char[N]`: string, cut to N - 1 bytes; zeros fill the rest */
    KINFO_STRPTR, /**< `char*`, a heap string or null: string */
    KINFO_OBJECT, /**< a nested structure with a table of its own: object */
    KINFO_ARRAY,  /**< `T[N]`: array */
    KINFO_VECTOR, /**< `HVector*`: array */
    KINFO_BOOL /**< `int32_t`, not 0 for true: only the literal true gives 1, the number 1 gives 0
                */
};

/**
 * One row. The macros below fill it; a row written by hand leaves at 0 what its type does not need.
 */
typedef struct kinfo_s kinfo_t;
struct kinfo_s {
    int32_t struct_size;    /**< bytes of the whole structure; only the first row's value is read */
    int32_t type;           /**< type code of the member */
    const char* key;        /**< key in JSON; null ends the table */
    int32_t offset;         /**< byte offset of the member in the structure */
    int32_t size;           /**< bytes of the member, of the whole array for an array */
    const kinfo_t* sub_key; /**< table of nested structures, single or in an array or vector */
    int32_t count;          /**< KINFO_ARRAY: number of elements */
    int32_t sub_type; /**< KINFO_ARRAY, KINFO_VECTOR: type code of an element; not these two */
    int32_t sub_size; /**< KINFO_VECTOR: bytes of one item */
};

/** A number, string, heap string or boolean: `KINFO_ROW(Device, port, KINFO_U16)`. */
#define KINFO_ROW(structure, member, type) KINFO_ROW_AS(#member, structure, member, type)

/**
 * A nested structure, described by `table`. Which structure a table describes is not known when the
 * row is compiled: KINFO_ROW_STRUCT() refuses the wrong one.
 */
#define KINFO_ROW_OBJECT(structure, member, table) \
    KINFO_ROW_OBJECT_AS(#member, structure, member, table)

/**
 * An array of numbers, strings (`char[N][M]`), heap strings or booleans; `type` is that of an
 * element.
 */
#define KINFO_ROW_ARRAY(structure, member, type) \
    KINFO_ROW_ARRAY_AS(#member, structure, member, type)

/**
 * An array of structures, described by `table`. Written to JSON it ends with the last one that has
 * a byte not 0.
 */
#define KINFO_ROW_OBJECT_ARRAY(structure, member, table) \
    KINFO_ROW_OBJECT_ARRAY_AS(#member, structure, member, table)

/**
 * An HVector* of numbers, strings, heap strings or booleans; `item` is the C type of an item:
 * `int32_t`, `char[32]`, `char*` ... A number enters a vector as the first bytes of cJSON's int or
 * double: a vector of float receives the first four bytes of the double, which is not the number.
 * Keep fractions in a vector of double.
 */
#define KINFO_ROW_VECTOR(structure, member, type, item) \
    KINFO_ROW_VECTOR_AS(#member, structure, member, type, item)

/** An HVector* of structures of the type `item`, described by `table`. */
#define KINFO_ROW_OBJECT_VECTOR(structure, member, table, item) \
    KINFO_ROW_OBJECT_VECTOR_AS(#member, structure, member, table, item)

/**
 * Begins the table of a structure under a name that says whose it is: `Port_kinfo` for `Port`,
 * which is a single word.
 *
 *     static KINFO_TABLE(Port) = {
 *         KINFO_ROW(Port, number, KINFO_U16),
 *         KINFO_END,
 *     };
 */
#define KINFO_TABLE(structure) const kinfo_t structure##_kinfo[]

/**
 * KINFO_ROW_OBJECT with the table that KINFO_TABLE(nested) began. Does not compile when the member
 * is no `nested`.
 */
#define KINFO_ROW_STRUCT(structure, member, nested) \
    KINFO_ROW_STRUCT_AS(#member, structure, member, nested)

/** KINFO_ROW_OBJECT_ARRAY in the same way. */
#define KINFO_ROW_STRUCT_ARRAY(structure, member, nested) \
    KINFO_ROW_STRUCT_ARRAY_AS(#member, structure, member, nested)

/** KINFO_ROW_OBJECT_VECTOR in the same way. */
#define KINFO_ROW_STRUCT_VECTOR(structure, member, nested) \
    KINFO_ROW_STRUCT_VECTOR_AS(#member, structure, member, nested)

/** KINFO_ROW_STRUCT with a key of its own. */
#define KINFO_ROW_STRUCT_AS(key, structure, member, nested) \
    KINFO_ROW_OBJECT_AS(                                    \
        key, structure, member,                             \
        nested##_kinfo + KINFO_MUST(KINFO_IS(KINFO_MEMBER(structure, member), nested)))

/** KINFO_ROW_STRUCT_ARRAY with a key of its own. */
#define KINFO_ROW_STRUCT_ARRAY_AS(key, structure, member, nested) \
    KINFO_ROW_OBJECT_ARRAY_AS(                                    \
        key, structure, member,                                   \
        nested##_kinfo + KINFO_MUST(KINFO_IS(KINFO_MEMBER(structure, member)[0], nested)))

/** KINFO_ROW_STRUCT_VECTOR with a key of its own. */
#define KINFO_ROW_STRUCT_VECTOR_AS(key, structure, member, nested) \
    KINFO_ROW_OBJECT_VECTOR_AS(key, structure, member, nested##_kinfo, nested)

/** KINFO_ROW with a key of its own. */
#define KINFO_ROW_AS(key, structure, member, type)                                           \
    {                                                                                        \
        KINFO_INT(sizeof(structure)), (type), (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_INT(sizeof(KINFO_MEMBER(structure, member))) +                             \
                KINFO_MUST(KINFO_FITS(type, KINFO_MEMBER(structure, member))),               \
            NULL, 0, 0, 0                                                                    \
    }

/** KINFO_ROW_OBJECT with a key of its own. */
#define KINFO_ROW_OBJECT_AS(key, structure, member, table)                                         \
    {                                                                                              \
        KINFO_INT(sizeof(structure)), KINFO_OBJECT, (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_INT(sizeof(KINFO_MEMBER(structure, member))) +                                   \
                KINFO_MUST(KINFO_IS_COMPOUND(KINFO_MEMBER(structure, member))),                    \
            (table), 0, 0, 0                                                                       \
    }

/** KINFO_ROW_ARRAY with a key of its own. */
#define KINFO_ROW_ARRAY_AS(key, structure, member, type)                                          \
    {                                                                                             \
        KINFO_INT(sizeof(structure)), KINFO_ARRAY, (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_INT(sizeof(KINFO_MEMBER(structure, member))) +                                  \
                KINFO_MUST(KINFO_FITS(type, KINFO_MEMBER(structure, member)[0])),                 \
            NULL, KINFO_COUNT(structure, member), (type), 0                                       \
    }

/** KINFO_ROW_OBJECT_ARRAY with a key of its own. */
#define KINFO_ROW_OBJECT_ARRAY_AS(key, structure, member, table)                                  \
    {                                                                                             \
        KINFO_INT(sizeof(structure)), KINFO_ARRAY, (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_INT(sizeof(KINFO_MEMBER(structure, member))) +                                  \
                KINFO_MUST(KINFO_IS_COMPOUND(KINFO_MEMBER(structure, member)[0])),                \
            (table), KINFO_COUNT(structure, member), KINFO_OBJECT, 0                              \
    }

/** KINFO_ROW_VECTOR with a key of its own. */
#define KINFO_ROW_VECTOR_AS(key, structure, member, type, item)                                    \
    {                                                                                              \
        KINFO_INT(sizeof(structure)), KINFO_VECTOR, (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_VECTOR_SIZE(structure, member) +                                                 \
                KINFO_MUST(KINFO_FITS(type, *(__typeof__(item)*)0)),                               \
            NULL, 0, (type), KINFO_INT(sizeof(item))                                               \
    }

/** KINFO_ROW_OBJECT_VECTOR with a key of its own. */
#define KINFO_ROW_OBJECT_VECTOR_AS(key, structure, member, table, item)                            \
    {                                                                                              \
        KINFO_INT(sizeof(structure)), KINFO_VECTOR, (key), KINFO_INT(offsetof(structure, member)), \
            KINFO_VECTOR_SIZE(structure, member), (table), 0, KINFO_OBJECT,                        \
            KINFO_INT(sizeof(item))                                                                \
    }

/** Ends every table. */
#define KINFO_END \
    { 0, 0, NULL, 0, 0, NULL, 0, 0, 0 }

/** @cond */
/* Helpers of the rows above. */
#define KINFO_INT(value) ((int32_t)(value))
#define KINFO_MEMBER(structure, member) (((structure*)0)->member)
/* 0; does not compile when the condition is false: the member does not fit the row. */
#define KINFO_MUST(condition) (0 * KINFO_INT(sizeof(char[(condition) ? 1 : -1])))
#define KINFO_WIDTH(type)                                            \
    ((type) == KINFO_U8 || (type) == KINFO_CHAR      ? 1             \
     : (type) == KINFO_U16 || (type) == KINFO_S16    ? 2             \
     : (type) == KINFO_U32 || (type) == KINFO_S32    ? 4             \
     : (type) == KINFO_FLOAT || (type) == KINFO_BOOL ? 4             \
     : (type) == KINFO_DOUBLE                        ? 8             \
     : (type) == KINFO_STRPTR                        ? sizeof(char*) \
                                                     : 0)
/* Whether the kind and the size of a member are those that the type code reads and writes. */
#define KINFO_FITS(type, member)                                                            \
    ((type) == KINFO_STRING ? KINFO_IS_TEXT(member)                                         \
     : (type) == KINFO_STRPTR                                                               \
         ? KINFO_IS_HEAP_TEXT(member)                                                       \
         : KINFO_WIDTH(type) == sizeof(member) &&                                           \
               ((type) == KINFO_FLOAT || (type) == KINFO_DOUBLE ? KINFO_IS_FLOATING(member) \
                                                                : KINFO_IS_INTEGER(member)))
#ifdef __cplusplus
#define KINFO_IS_ARRAY(structure, member) (std::is_array<decltype(((structure*)0)->member)>::value)
#define KINFO_IS_TEXT(member) (kinfo_member<decltype(member)>::is_text)
#define KINFO_IS_HEAP_TEXT(member) (kinfo_member<decltype(member)>::is_heap_text)
#define KINFO_IS_INTEGER(member) (kinfo_member<decltype(member)>::is_integer)
#define KINFO_IS_FLOATING(member) (kinfo_member<decltype(member)>::is_floating)
#define KINFO_IS_COMPOUND(member) (kinfo_member<decltype(member)>::is_compound)
#define KINFO_IS(member, wanted) \
    (std::is_same<kinfo_member<decltype(member)>::Plain, wanted>::value)
#else /* an array decays behind a comma, everything else keeps its type */
#define KINFO_IS_ARRAY(structure, member)                               \
    (!__builtin_types_compatible_p(__typeof__(((structure*)0)->member), \
                                   __typeof__(((void)0, ((structure*)0)->member))))
#define KINFO_IS_TEXT(member)                                                         \
    (__builtin_types_compatible_p(__typeof__(member), char[sizeof(member)]) ||        \
     __builtin_types_compatible_p(__typeof__(member), signed char[sizeof(member)]) || \
     __builtin_types_compatible_p(__typeof__(member), unsigned char[sizeof(member)]))
#define KINFO_IS_HEAP_TEXT(member)                                                            \
    _Generic(&(member), char** : 1, signed char** : 1, unsigned char** : 1, const char** : 1, \
             const signed char** : 1, const unsigned char** : 1, default : 0)
#define KINFO_IS_INTEGER(member)                                                           \
    _Generic((member), _Bool : 1, char : 1, signed char : 1, unsigned char : 1, short : 1, \
             unsigned short : 1, int : 1, unsigned : 1, long : 1, unsigned long : 1,       \
             long long : 1, unsigned long long : 1, default : 0)
#define KINFO_IS_FLOATING(member) _Generic((member), float : 1, double : 1, default : 0)
/* A structure, a union or an array, by the numbers that gcc and clang have for them. */
#define KINFO_IS_COMPOUND(member)             \
    (__builtin_classify_type(member) >= 12 || \
     !__builtin_types_compatible_p(__typeof__(member), __typeof__(((void)0, (member)))))
#define KINFO_IS(member, wanted) __builtin_types_compatible_p(__typeof__(member), wanted)
#endif
#define KINFO_IS_VECTOR(member) KINFO_IS(member, HVector*)
#define KINFO_COUNT(structure, member)                       \
    (KINFO_INT(sizeof(KINFO_MEMBER(structure, member)) /     \
               sizeof(KINFO_MEMBER(structure, member)[0])) + \
     KINFO_MUST(KINFO_IS_ARRAY(structure, member)))
#define KINFO_VECTOR_SIZE(structure, member)              \
    (KINFO_INT(sizeof(KINFO_MEMBER(structure, member))) + \
     KINFO_MUST(KINFO_IS_VECTOR(KINFO_MEMBER(structure, member))))
/** @endcond */

/**
 * @name Texts
 * @{
 */

/**
 * Reads one object from `text` into `object`, or into a new block of `struct_size` bytes when
 * `object` is null. The whole structure is cleared first, so members whose keys are missing are 0;
 * heap strings it held must be freed before. Returns the structure; null when the text does not
 * parse (the structure is as it was).
 */
HYBASE_API void* cjson_string2object(const kinfo_t* kinfo, const char* text, void* object);

/**
 * Reads an array of objects from `text`; structures lie `struct_size` bytes apart.
 * With an `array`: fills at most `max_count` structures. Without: all of them, into a new block,
 * which is also made (and must be freed) when there are none. All structures are cleared first.
 * `count`, which may be null, receives the number of structures, 0 on failure.
 * Returns the array; null when the text does not parse or memory is short.
 */
HYBASE_API void* cjson_string2object_array(const kinfo_t* kinfo, const char* text, void* array,
                                           int32_t max_count, int32_t* count);

/**
 * Frees the heap strings inside one structure, those in arrays included, and sets their pointers to
 * null. It does not descend into nested structures (call it with their table), destroys no vector
 * and does not free the structure.
 */
HYBASE_API void cjson_string2object_free(const kinfo_t* kinfo, void* object);

/** Does what cjson_string2object_free() does to each of `count` structures. */
HYBASE_API void cjson_string2object_array_free(const kinfo_t* kinfo, void* array, int32_t count);

/**
 * New text of the structure, formatted. Null when there is no memory for the tree or the text; a
 * member or an element for which memory is short is missing, here and in the calls below.
 */
HYBASE_API char* cjson_object2string(const kinfo_t* kinfo, const void* object);

/** New text of an array of `count` structures, formatted. Null when memory is short. */
HYBASE_API char* cjson_object_array2string(const kinfo_t* kinfo, const void* array, int32_t count);

/** @} */

/**
 * @name Trees
 * @{
 */

/**
 * As cjson_string2object(), from a tree that stays the caller's, but clears nothing: a missing key
 * leaves the caller's value; in a new block it leaves the member undefined, so such a block may go
 * to cjson_string2object_free() only when every heap string had its key.
 */
HYBASE_API void* cjson_json2object(const kinfo_t* kinfo, const cJSON* json, void* object);

/** As cjson_string2object_array(), from a tree that stays the caller's; clears only a new array. */
HYBASE_API void* cjson_json2object_array(const kinfo_t* kinfo, const cJSON* json, void* array,
                                         int32_t max_count, int32_t* count);

/** The same as cjson_string2object_array_free(), for structures that were read from a tree. */
HYBASE_API void cjson_json2object_array_free(const kinfo_t* kinfo, void* array, int32_t count);

/**
 * Reads one structure an element of the array into `vector`, which is cleared first, or into a new
 * one with items of `struct_size` bytes when `vector` is null. A missing key repeats the value of
 * the element before (0 in the first): two items may then hold the same heap string. Returns the
 * vector; null when the tree is null or memory is short (a given vector then has the items that
 * found room).
 */
HYBASE_API HVector* cjson_json2hvector(const kinfo_t* kinfo, const cJSON* json, HVector* vector);

/**
 * New array of objects, one an item; an empty one for items smaller than `struct_size` and for a
 * null vector. Null when memory is short.
 */
HYBASE_API cJSON* cjson_hvector2json(const kinfo_t* kinfo, const HVector* vector);

/** New object with the members of one structure. Null when memory is short. */
HYBASE_API cJSON* cjson_object2json(const kinfo_t* kinfo, const void* object);

/** New array of `count` objects. Null when memory is short. */
HYBASE_API cJSON* cjson_object_array2json(const kinfo_t* kinfo, const void* array, int32_t count);

/** @} */

#ifdef __cplusplus
}

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(kinfo_t) == 36 && offsetof(kinfo_t, key) == 8 &&
                  offsetof(kinfo_t, sub_key) == 20,
              "nine 32-bit columns");
#endif
#endif

/** @} */

#endif
