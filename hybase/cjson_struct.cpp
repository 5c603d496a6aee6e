#include "hybase/cjson_struct.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>
#include <memory>

#include "hybase/cjson_add.h"
#include "hybase/print.h"

namespace {

struct Free {
    void operator()(void* block) const { free(block); }
};
using Buffer = std::unique_ptr<char, Free>;

struct DeleteTree {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, DeleteTree>;

// What one value is in the structure: a member, or one element of an array or vector.
struct Shape {
    int32_t type;
    int32_t size;            // bytes of a KINFO_STRING
    const kinfo_t* sub_key;  // table of a KINFO_OBJECT
};

// Members are moved as bytes: packed structures have them at any address.
template <typename T>
void Store(void* at, T value) {
    memcpy(at, &value, sizeof value);
}

template <typename T>
T Load(const void* at) {
    T value;
    memcpy(&value, at, sizeof value);
    return value;
}

int32_t StructSize(const kinfo_t* table) { return table ? std::max(table->struct_size, 0) : 0; }

// Bytes that converting one value reads and writes.
int32_t Width(const Shape& shape) {
    switch (shape.type) {
        case KINFO_U8:
        case KINFO_CHAR:
            return 1;
        case KINFO_U16:
        case KINFO_S16:
            return 2;
        case KINFO_U32:
        case KINFO_S32:
        case KINFO_FLOAT:
        case KINFO_BOOL:
            return 4;
        case KINFO_DOUBLE:
            return 8;
        case KINFO_STRPTR:
            return sizeof(char*);
        case KINFO_STRING:
            return std::max(shape.size, 0);
        case KINFO_OBJECT:
            return StructSize(shape.sub_key);
        default:
            return 0;
    }
}

bool IsSingle(int32_t type) {
    return type >= KINFO_U8 && type <= KINFO_BOOL && type != KINFO_ARRAY && type != KINFO_VECTOR;
}

bool NotSupported(int32_t type) {
    Print(" %d Not Support\n", type);
    return false;
}

// Whether the elements of an array or vector can be converted; says once a row when they cannot.
bool HasElements(const kinfo_t& row) {
    if (!IsSingle(row.sub_type)) return NotSupported(row.sub_type);
    if (row.sub_type == KINFO_OBJECT && !row.sub_key) {
        Print("ERROR: kinfo[i].sub_key should not be NULL\n");
        return false;
    }
    return true;
}

Shape ArrayElement(const kinfo_t& row) {
    const int32_t string_size = row.count > 0 ? row.size / row.count : 0;
    Shape shape{row.sub_type, string_size, row.sub_key};
    shape.size = Width(shape);
    return shape;
}

std::nullptr_t Failed(const char* call) {
    Print("[%s] json_assert failed\n", call);
    return nullptr;
}

// ---------------------------------------------------------------------------- JSON to structure

void FillStruct(const kinfo_t* table, const cJSON* object, char* base);

void FillString(const char* text, char* at, int32_t size) {
    if (size <= 0) return;
    // Zeros up to the end: of a password that was longer nothing stays.
    strncpy(at, text ? text : "", size);
    at[size - 1] = 0;
}

void FillSingle(const Shape& shape, const cJSON* item, char* at) {
    switch (shape.type) {
        case KINFO_U8:
        case KINFO_CHAR:
            return Store(at, static_cast<uint8_t>(item->valueint));
        case KINFO_U16:
        case KINFO_S16:
            return Store(at, static_cast<uint16_t>(item->valueint));
        case KINFO_U32:
        case KINFO_S32:
            return Store<int32_t>(at, item->valueint);
        case KINFO_FLOAT:
            return Store(at, static_cast<float>(item->valuedouble));
        case KINFO_DOUBLE:
            return Store(at, item->valuedouble);
        case KINFO_STRING:
            return FillString(item->valuestring, at, shape.size);
        case KINFO_STRPTR:
            return Store(at, item->valuestring ? strdup(item->valuestring) : nullptr);
        case KINFO_OBJECT:
            return FillStruct(shape.sub_key, item, at);
        case KINFO_BOOL:
            return Store<int32_t>(at, cJSON_IsTrue(item) ? 1 : 0);
    }
}

void FillElement(const Shape& shape, const cJSON* item, char* at) {
    const bool is_text = shape.type == KINFO_STRING || shape.type == KINFO_STRPTR;
    if (is_text || !cJSON_IsNull(item)) FillSingle(shape, item, at);
}

// Elements lie shape.size bytes apart.
void FillElements(const Shape& shape, const cJSON* items, int32_t count, char* at) {
    const cJSON* item = items->child;
    for (int32_t i = 0; item && i < count; i++, item = item->next, at += shape.size)
        FillElement(shape, item, at);
}

// Wanted so: a number enters a vector as the first bytes of what cJSON holds, of the int or of the
// double, even into a vector of float.
int32_t TypeInVector(int32_t type) {
    if (type >= KINFO_U8 && type <= KINFO_S32) return KINFO_S32;
    return type == KINFO_FLOAT ? KINFO_DOUBLE : type;
}

void FillVector(const kinfo_t& row, const cJSON* items, char* at) {
    HVector* vector =
        row.sub_size < 0 ? nullptr : HVector_Create(row.sub_size, cJSON_GetArraySize(items));
    Store<void*>(at, vector);
    if (!HasElements(row) || !vector) return;
    const Shape shape{TypeInVector(row.sub_type), row.sub_size, row.sub_key};
    const bool holds_pointer = row.sub_size >= Width({KINFO_STRPTR, 0, nullptr});
    if (shape.type == KINFO_STRPTR && !holds_pointer) return;

    const size_t room = std::max(row.sub_size, Width(shape));
    Buffer buffer(static_cast<char*>(malloc(room)));
    if (!buffer) return;
    for (const cJSON* item = items->child; item; item = item->next) {
        if (cJSON_IsNull(item)) continue;
        memset(buffer.get(), 0, room);
        FillSingle(shape, item, buffer.get());
        HVector_Append(vector, buffer.get());  // cannot fail: there is room for all
    }
}

// What cJSON_GetObjectItem finds, with fewer calls: first letters that differ in more than the bit
// of their case settle most comparisons. Letters beyond ASCII are left to the locale.
bool MayBeSameLetter(char a, char b) { return ((a ^ b) & ~0x20) == 0 || ((a | b) & 0x80) != 0; }

const cJSON* FindMember(const cJSON* object, const char* key) {
    for (const cJSON* item = object->child; item; item = item->next)
        if (item->string && MayBeSameLetter(item->string[0], key[0]) &&
            strcasecmp(item->string, key) == 0)
            return item;
    return nullptr;
}

void FillStruct(const kinfo_t* table, const cJSON* object, char* base) {
    for (const kinfo_t* row = table; row && row->key; row++) {
        const cJSON* item = FindMember(object, row->key);
        if (!item) continue;
        char* at = base + row->offset;
        if (row->type == KINFO_ARRAY) {
            if (HasElements(*row)) FillElements(ArrayElement(*row), item, row->count, at);
        } else if (row->type == KINFO_VECTOR) {
            FillVector(*row, item, at);
        } else {
            FillSingle({row->type, row->size, row->sub_key}, item, at);
        }
    }
}

void* NewBlock(int64_t size) {
    return static_cast<uint64_t>(size) > SIZE_MAX ? nullptr : malloc(std::max<int64_t>(size, 1));
}

enum class Clear { kOwnBlock, kAlways };

void* FillArray(const char* call, const kinfo_t* table, const cJSON* items, void* array,
                int32_t max_count, int32_t* count, Clear clear) {
    int32_t unused;
    if (!count) count = &unused;
    *count = 0;
    if (!table || !items) return Failed(call);

    int32_t total = cJSON_GetArraySize(items);
    if (array) total = std::max(std::min(total, max_count), 0);
    const int32_t struct_size = StructSize(table);
    const int64_t bytes = static_cast<int64_t>(total) * struct_size;
    const bool given = array != nullptr;
    if (!given) array = NewBlock(bytes);
    if (!array) return Failed(call);

    if (!given || clear == Clear::kAlways) memset(array, 0, static_cast<size_t>(bytes));
    FillElements({KINFO_OBJECT, struct_size, table}, items, total, static_cast<char*>(array));
    *count = total;
    return array;
}

// ---------------------------------------------------------------------------- structure to JSON

// How keys and strings come into a tree: as copies, or borrowed from table and structure for a tree
// that is deleted before the call returns.
struct Maker {
    bool (*add)(cJSON* object, const char* key, cJSON* item);
    cJSON* (*string)(const char* text);
};
constexpr Maker kCopying{AddItem, cJSON_CreateString};
constexpr Maker kBorrowing{AddItemWithConstantKey, cJSON_CreateStringReference};

cJSON* ObjectOf(const Maker& maker, const kinfo_t* table, const char* base);

// A text that fills its member without a terminator is cut off at the member's end.
cJSON* StringOf(const Maker& maker, const char* text, int32_t size) {
    if (size <= 0) return cJSON_CreateString("");
    if (memchr(text, 0, size)) return maker.string(text);
    Buffer copy(strndup(text, size));
    return cJSON_CreateString(copy.get());
}

cJSON* SingleOf(const Maker& maker, const Shape& shape, const char* at) {
    switch (shape.type) {
        case KINFO_U8:
        case KINFO_CHAR:
            return cJSON_CreateNumber(Load<uint8_t>(at));
        case KINFO_U16:
            return cJSON_CreateNumber(Load<uint16_t>(at));
        case KINFO_U32:
            return cJSON_CreateNumber(Load<uint32_t>(at));
        case KINFO_S16:
            return cJSON_CreateNumber(Load<int16_t>(at));
        case KINFO_S32:
            return cJSON_CreateNumber(Load<int32_t>(at));
        case KINFO_FLOAT:
            return cJSON_CreateNumber(Load<float>(at));
        case KINFO_DOUBLE:
            return cJSON_CreateNumber(Load<double>(at));
        case KINFO_STRING:
            return StringOf(maker, at, shape.size);
        case KINFO_STRPTR: {
            const char* text = Load<const char*>(at);
            return text ? maker.string(text) : nullptr;
        }
        case KINFO_OBJECT:
            return ObjectOf(maker, shape.sub_key, at);
        case KINFO_BOOL:
            return cJSON_CreateBool(Load<int32_t>(at) != 0);
        default:
            return nullptr;
    }
}

// Elements lie shape.size bytes apart; one that cannot be made is left out.
cJSON* ElementsOf(const Maker& maker, const Shape& shape, const char* at, int32_t count) {
    cJSON* array = cJSON_CreateArray();
    for (int32_t i = 0; array && i < count; i++, at += shape.size)
        cJSON_AddItemToArray(array, SingleOf(maker, shape, at));
    return array;
}

bool IsAllZero(const char* at, size_t size) {
    return size == 0 || (at[0] == 0 && memcmp(at, at + 1, size - 1) == 0);
}

// The number of elements without the all-zero ones at the end.
int32_t CountUsed(const Shape& shape, const char* at, int32_t count) {
    while (count > 0 && IsAllZero(at + static_cast<ptrdiff_t>(count - 1) * shape.size, shape.size))
        count--;
    return count;
}

cJSON* ArrayOf(const Maker& maker, const kinfo_t& row, const char* at) {
    if (!HasElements(row)) return nullptr;
    Shape shape = ArrayElement(row);
    // Wanted so: elements appear signed, unlike a single member and unlike a vector's items.
    if (shape.type == KINFO_U32) shape.type = KINFO_S32;
    const int32_t count = shape.type == KINFO_OBJECT ? CountUsed(shape, at, row.count) : row.count;
    return ElementsOf(maker, shape, at, count);
}

cJSON* ItemsOf(const Maker& maker, Shape shape, const HVector* vector) {
    shape.size = static_cast<int32_t>(HVector_GetItemSize(vector));
    // Items lie back to back in the vector's block. Too small for their type, they are not read.
    const int32_t count = shape.size < Width(shape) ? 0 : HVector_Cnt(vector);
    return ElementsOf(maker, shape, static_cast<const char*>(HVector_At(vector, 0)), count);
}

cJSON* MemberOf(const Maker& maker, const kinfo_t& row, const char* at) {
    if (row.type == KINFO_ARRAY) return ArrayOf(maker, row, at);
    if (row.type == KINFO_VECTOR) {
        if (!HasElements(row)) return nullptr;
        return ItemsOf(maker, {row.sub_type, 0, row.sub_key},
                       static_cast<const HVector*>(Load<const void*>(at)));
    }
    if (IsSingle(row.type)) return SingleOf(maker, {row.type, row.size, row.sub_key}, at);
    NotSupported(row.sub_type);
    return nullptr;
}

cJSON* ObjectOf(const Maker& maker, const kinfo_t* table, const char* base) {
    cJSON* object = cJSON_CreateObject();
    for (const kinfo_t* row = table; object && row && row->key; row++) {
        cJSON* item = MemberOf(maker, *row, base + row->offset);
        if (item && !maker.add(object, row->key, item)) cJSON_Delete(item);
    }
    return object;
}

// A table without rows reads nothing, so it needs no structure.
bool CanRead(const kinfo_t* table, const void* structure) {
    return table && (structure || !table->key);
}

cJSON* StructToJson(const Maker& maker, const kinfo_t* table, const void* object) {
    if (!CanRead(table, object)) return nullptr;
    return ObjectOf(maker, table, static_cast<const char*>(object));
}

cJSON* ArrayToJson(const Maker& maker, const kinfo_t* table, const void* array, int32_t count) {
    if (!table || (!array && count > 0)) return nullptr;
    const Shape shape{KINFO_OBJECT, StructSize(table), table};
    return ElementsOf(maker, shape, static_cast<const char*>(array), count);
}

void FreeString(char* at) {
    free(Load<char*>(at));
    Store<char*>(at, nullptr);
}

}  // namespace

void* cjson_string2object(const kinfo_t* kinfo, const char* text, void* object) {
    Tree tree(cJSON_Parse(text));
    if (!tree || !kinfo) return Failed("cjson_string2object");
    if (!object) object = NewBlock(StructSize(kinfo));
    if (!object) return Failed("cjson_string2object");
    memset(object, 0, StructSize(kinfo));
    FillStruct(kinfo, tree.get(), static_cast<char*>(object));
    return object;
}

void* cjson_string2object_array(const kinfo_t* kinfo, const char* text, void* array,
                                int32_t max_count, int32_t* count) {
    Tree tree(cJSON_Parse(text));
    return FillArray("cjson_string2object_array", kinfo, tree.get(), array, max_count, count,
                     Clear::kAlways);
}

void cjson_string2object_free(const kinfo_t* kinfo, void* object) {
    if (!object) return;
    for (const kinfo_t* row = kinfo; row && row->key; row++) {
        char* at = static_cast<char*>(object) + row->offset;
        if (row->type == KINFO_STRPTR) FreeString(at);
        if (row->type != KINFO_ARRAY || row->sub_type != KINFO_STRPTR) continue;
        for (int32_t i = 0; i < row->count; i++) FreeString(at + i * sizeof(char*));
    }
}

void cjson_string2object_array_free(const kinfo_t* kinfo, void* array, int32_t count) {
    if (!array) return;
    char* at = static_cast<char*>(array);
    for (int32_t i = 0; i < count; i++, at += StructSize(kinfo))
        cjson_string2object_free(kinfo, at);
}

char* cjson_object2string(const kinfo_t* kinfo, const void* object) {
    Tree tree(StructToJson(kBorrowing, kinfo, object));
    return cJSON_Print(tree.get());
}

char* cjson_object_array2string(const kinfo_t* kinfo, const void* array, int32_t count) {
    Tree tree(ArrayToJson(kBorrowing, kinfo, array, count));
    return cJSON_Print(tree.get());
}

void* cjson_json2object(const kinfo_t* kinfo, const cJSON* json, void* object) {
    if (!kinfo || !json) return Failed("cjson_json2object");
    // A new block is not cleared: the caller knows which keys it can rely on.
    if (!object) object = NewBlock(StructSize(kinfo));
    if (!object) return Failed("cjson_json2object");
    FillStruct(kinfo, json, static_cast<char*>(object));
    return object;
}

void* cjson_json2object_array(const kinfo_t* kinfo, const cJSON* json, void* array,
                              int32_t max_count, int32_t* count) {
    return FillArray("cjson_json2object_array", kinfo, json, array, max_count, count,
                     Clear::kOwnBlock);
}

void cjson_json2object_array_free(const kinfo_t* kinfo, void* array, int32_t count) {
    cjson_string2object_array_free(kinfo, array, count);
}

HVector* cjson_json2hvector(const kinfo_t* kinfo, const cJSON* json, HVector* vector) {
    if (!kinfo || !json) return Failed("cjson_json2hvector");
    // An append copies the vector's item size, which may exceed that of the structure.
    const size_t room = std::max<size_t>(StructSize(kinfo), HVector_GetItemSize(vector));
    Buffer object(static_cast<char*>(calloc(1, std::max<size_t>(room, 1))));
    if (!object) return Failed("cjson_json2hvector");

    if (vector)
        HVector_Clear(vector);
    else
        vector = HVector_Create(StructSize(kinfo), cJSON_GetArraySize(json));
    if (!vector) return nullptr;
    // The structure is not cleared in between: what an element leaves out, it has from the one
    // before.
    for (const cJSON* item = json->child; item; item = item->next) {
        FillStruct(kinfo, item, object.get());
        if (HVector_Append(vector, object.get()) != 0) return Failed("cjson_json2hvector");
    }
    return vector;
}

cJSON* cjson_hvector2json(const kinfo_t* kinfo, const HVector* vector) {
    if (!kinfo) return nullptr;
    return ItemsOf(kCopying, {KINFO_OBJECT, 0, kinfo}, vector);
}

cJSON* cjson_object2json(const kinfo_t* kinfo, const void* object) {
    return StructToJson(kCopying, kinfo, object);
}

cJSON* cjson_object_array2json(const kinfo_t* kinfo, const void* array, int32_t count) {
    return ArrayToJson(kCopying, kinfo, array, count);
}
