#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <vector>

#include "hyplatform/arch.h"
#include "hyplatform/utltlv.h"

// A message: the head type with its terminator, the count of bytes that follow, entries. An entry:
// type, kind, length, value. Numbers are big-endian.
namespace {

constexpr size_t kCountBytes = 4;
constexpr size_t kTypeBytes = 4;
constexpr size_t kLengthAt = kTypeBytes + 1;
constexpr size_t kEntryHeaderBytes = kLengthAt + 4;
constexpr size_t kWordBytes = 4;
constexpr size_t kMaxMessageBytes = INT32_MAX;
constexpr size_t kMaxAreas = UINT8_MAX;
constexpr int32_t kMaxPoints = 10;

// The kind of an entry that was removed and whose bytes are not reclaimed yet. No message that
// leaves a handle or enters one has it.
constexpr uint8_t kDead = 0;

// Records travel word by word, so their layout must be the words alone.
static_assert(sizeof(TLVSize_t) == 2 * kWordBytes && sizeof(TLVRect_t) == 4 * kWordBytes &&
              sizeof(TLVRuleArea_t) == (2 + 2 * kMaxPoints) * kWordBytes &&
              sizeof(TLVObjArea_t) == 7 * kWordBytes);

uint64_t LoadNumber(const uint8_t* at, size_t bytes) {
    uint64_t number = 0;
    for (size_t i = 0; i < bytes; ++i) number = number << 8 | at[i];
    return number;
}

void StoreNumber(uint8_t* at, uint64_t number, size_t bytes) {
    for (size_t i = bytes; i-- > 0; number >>= 8) at[i] = static_cast<uint8_t>(number);
}

void LoadWords(const uint8_t* at, void* records, size_t bytes) {
    for (size_t i = 0; i < bytes; i += kWordBytes) {
        const auto word = static_cast<uint32_t>(LoadNumber(at + i, kWordBytes));
        memcpy(static_cast<uint8_t*>(records) + i, &word, kWordBytes);
    }
}

void StoreWords(uint8_t* at, const void* records, size_t bytes) {
    for (size_t i = 0; i < bytes; i += kWordBytes) {
        uint32_t word;
        memcpy(&word, static_cast<const uint8_t*>(records) + i, kWordBytes);
        StoreNumber(at + i, word, kWordBytes);
    }
}

struct Entry {
    int32_t type;
    uint8_t kind;
    size_t length;  // of the value

    size_t Bytes() const { return kEntryHeaderBytes + length; }
};

Entry LoadEntry(const uint8_t* at) {
    return {static_cast<int32_t>(LoadNumber(at, kTypeBytes)), at[kTypeBytes],
            static_cast<size_t>(LoadNumber(at + kLengthAt, kWordBytes))};
}

void StoreEntry(uint8_t* at, const Entry& entry) {
    StoreNumber(at, static_cast<uint32_t>(entry.type), kTypeBytes);
    at[kTypeBytes] = entry.kind;
    StoreNumber(at + kLengthAt, entry.length, kWordBytes);
}

bool IsPointCount(int32_t count) { return count >= 0 && count <= kMaxPoints; }

bool AreWholeAreas(size_t length, size_t area_bytes) {
    return length % area_bytes == 0 && length / area_bytes <= kMaxAreas;
}

// Callers walk over the points without a check of their own.
bool HavePointCounts(const uint8_t* areas, size_t length) {
    for (size_t at = offsetof(TLVRuleArea_t, point_count); at < length;
         at += sizeof(TLVRuleArea_t)) {
        if (!IsPointCount(static_cast<int32_t>(LoadNumber(areas + at, kWordBytes)))) return false;
    }
    return true;
}

// Whether a value is one that a put could have written; getters rely on it.
bool IsWellFormed(int kind, const uint8_t* value, size_t length) {
    switch (kind) {
        case UTLTLV_UINT8:
            return length == 1;
        case UTLTLV_UINT16:
            return length == 2;
        case UTLTLV_UINT32:
        case UTLTLV_FLOAT:
            return length == 4;
        case UTLTLV_UINT64:
        case UTLTLV_DOUBLE:
        case UTLTLV_SIZE:
            return length == 8;
        case UTLTLV_RECT:
            return length == 16;
        case UTLTLV_STRING:
            return length > 0 && memchr(value, '\0', length) == value + length - 1;
        case UTLTLV_BYTES:
            return true;
        case UTLTLV_RULE_AREAS:
            return AreWholeAreas(length, sizeof(TLVRuleArea_t)) && HavePointCounts(value, length);
        case UTLTLV_OBJ_AREAS:
            return AreWholeAreas(length, sizeof(TLVObjArea_t));
        default:
            return false;
    }
}

// Makes room for `extra` more items, so that adding them cannot fail.
template <class Item>
bool Reserve(std::vector<Item>* items, size_t extra) {
    const size_t wanted = items->size() + extra;
    if (wanted <= items->capacity()) return true;
    try {
        items->reserve(std::max(wanted, std::min(items->capacity() * 2, kMaxMessageBytes)));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Secret, so that nobody can choose types which all fall into one place of the index.
struct HashKey {
    uint64_t offset = 0x9E3779B97F4A7C15;
    uint64_t factor = 0xD1B54A32D192ED03;

    // Without random bytes the constants serve: slower under attack, right all the same.
    HashKey() {
        uint64_t random[2];
        if (arch_rand_bytes(random, sizeof random) != 0) return;
        offset = random[0];
        factor = random[1] | 1;
    }
};

uint64_t Hash(int32_t type) {
    static const HashKey key;
    uint64_t hash = (static_cast<uint32_t>(type) + key.offset) * key.factor;
    hash ^= hash >> 32;
    return hash * key.factor >> 32;
}

// Where the entry of each type begins: a hash table with linear probing, never more than three
// quarters full. Offset 0 is an empty slot, since a message begins with its head type.
class Index {
  public:
    // The offset of the type's entry, null when there is none.
    uint32_t* Find(int32_t type) {
        if (m_slots.empty()) return nullptr;
        Slot& slot = m_slots[Place(type)];
        return slot.offset != 0 ? &slot.offset : nullptr;
    }

    // Makes room for one more type; must come before every Insert. False when memory is short.
    bool ReserveOne() {
        if ((m_used + 1) * 4 <= m_slots.size() * 3) return true;
        std::vector<Slot> slots;
        if (!Reserve(&slots, std::max<size_t>(m_slots.size() * 2, 16))) return false;
        slots.resize(std::max<size_t>(m_slots.size() * 2, 16));
        m_slots.swap(slots);
        for (const Slot& slot : slots) {
            if (slot.offset != 0) m_slots[Place(slot.type)] = slot;
        }
        return true;
    }

    void Insert(int32_t type, uint32_t offset) {
        m_slots[Place(type)] = {type, offset};
        ++m_used;
    }

    void Erase(int32_t type) {
        size_t hole = Place(type);
        // What was pushed past the hole by a collision moves into it, or Find would stop short.
        for (size_t i = Next(hole); m_slots[i].offset != 0; i = Next(i)) {
            if (Distance(Home(m_slots[i].type), i) < Distance(hole, i)) continue;
            m_slots[hole] = m_slots[i];
            hole = i;
        }
        m_slots[hole] = {};
        --m_used;
    }

  private:
    struct Slot {
        int32_t type;
        uint32_t offset;
    };

    size_t Home(int32_t type) const { return Hash(type) & (m_slots.size() - 1); }
    size_t Next(size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
    size_t Distance(size_t from, size_t to) const { return (to - from) & (m_slots.size() - 1); }

    // The slot of the type, or the empty one where it belongs.
    size_t Place(int32_t type) const {
        size_t slot = Home(type);
        while (m_slots[slot].offset != 0 && m_slots[slot].type != type) slot = Next(slot);
        return slot;
    }

    std::vector<Slot> m_slots;  // a power of two of them, or none
    size_t m_used = 0;
};

}  // namespace

struct utltlv_s {
    // The message with the dead entries among its live ones; its count of bytes is out of date.
    // Removing an entry only marks it, so that values need not move every time.
    std::vector<uint8_t> message;
    size_t first = 0;       // where the entries begin
    size_t dead_bytes = 0;  // never more than half of the message
    Index index;            // of the live entries

    // Handed out in place of parts of the message; dropped with the next change.
    std::vector<uint8_t> packed;
    std::map<int32_t, std::unique_ptr<uint8_t[]>> areas;

    size_t Bytes() const { return message.size() - dead_bytes; }
    Entry EntryAt(size_t at) const { return LoadEntry(message.data() + at); }
    bool IndexEntries();
    bool Holds(const void* data) const;
    void CopyLive(uint8_t* out) const;
    void Compact();
    void Remove(uint32_t offset);
    int Allot(const Entry& entry, uint8_t** value);
    void DropCopies();
};

// Checks and indexes the entries of a message that came from outside.
bool utltlv_s::IndexEntries() {
    for (size_t at = first; at < message.size();) {
        const size_t left = message.size() - at;
        if (left < kEntryHeaderBytes) return false;
        const Entry entry = EntryAt(at);
        if (entry.length > left - kEntryHeaderBytes || entry.length > UTLTLV_MAX_VALUE)
            return false;
        const uint8_t* value = message.data() + at + kEntryHeaderBytes;
        if (!IsWellFormed(entry.kind, value, entry.length)) return false;
        if (index.Find(entry.type) != nullptr || !index.ReserveOne()) return false;
        index.Insert(entry.type, static_cast<uint32_t>(at));
        at += entry.Bytes();
    }
    return true;
}

bool utltlv_s::Holds(const void* data) const {
    const std::less<const void*> before;
    return !before(data, message.data()) && before(data, message.data() + message.size());
}

// Writes the Bytes() of the message as it leaves the handle. `out` may be the message itself.
void utltlv_s::CopyLive(uint8_t* out) const {
    uint8_t* to = out + first;
    memmove(out, message.data(), first);
    StoreNumber(to - kCountBytes, Bytes() - first, kCountBytes);
    for (size_t at = first; at < message.size();) {
        const Entry entry = EntryAt(at);
        if (entry.kind != kDead) {
            memmove(to, message.data() + at, entry.Bytes());
            to += entry.Bytes();
        }
        at += entry.Bytes();
    }
}

void utltlv_s::Compact() {
    CopyLive(message.data());
    message.resize(Bytes());
    dead_bytes = 0;
    for (size_t at = first; at < message.size(); at += EntryAt(at).Bytes()) {
        *index.Find(EntryAt(at).type) = static_cast<uint32_t>(at);
    }
}

void utltlv_s::Remove(uint32_t offset) {
    const Entry entry = EntryAt(offset);
    index.Erase(entry.type);
    message[offset + kTypeBytes] = kDead;
    dead_bytes += entry.Bytes();
    // Each compaction moves fewer bytes than have died since the last one: linear in all.
    if (dead_bytes > message.size() / 2) Compact();
}

// Puts an entry in place of the one of the same type; *value is where its value is to be written.
int utltlv_s::Allot(const Entry& entry, uint8_t** value) {
    uint32_t* offset = index.Find(entry.type);
    if (offset != nullptr && EntryAt(*offset).length == entry.length) {
        message[*offset + kTypeBytes] = entry.kind;
        *value = message.data() + *offset + kEntryHeaderBytes;
        return 0;
    }
    if (message.size() + entry.Bytes() > kMaxMessageBytes) Compact();
    if (message.size() + entry.Bytes() > kMaxMessageBytes) return UTLTLV_ERR_LENGTH;
    // All that can fail comes before the former value is given up.
    if (!Reserve(&message, entry.Bytes()) || !index.ReserveOne()) return UTLTLV_ERR_MEMORY;
    offset = index.Find(entry.type);
    if (offset != nullptr) Remove(*offset);

    const size_t at = message.size();
    message.resize(at + entry.Bytes());
    StoreEntry(message.data() + at, entry);
    index.Insert(entry.type, static_cast<uint32_t>(at));
    *value = message.data() + at + kEntryHeaderBytes;
    return 0;
}

void utltlv_s::DropCopies() {
    packed.clear();
    areas.clear();
}

namespace {

// Puts a value of `length` bytes that `write` writes. What it writes from may be one of the copies.
template <class Write>
int Put(utltlv_t tlv, int type, uint8_t kind, size_t length, Write write) {
    if (tlv == nullptr) return UTLTLV_ERR_NULL;
    if (length > UTLTLV_MAX_VALUE) return UTLTLV_ERR_LENGTH;
    uint8_t* value;
    const int result = tlv->Allot({type, kind, length}, &value);
    if (result != 0) return result;
    write(value);
    tlv->DropCopies();
    return 0;
}

int PutNumber(utltlv_t tlv, int type, uint8_t kind, uint64_t number, size_t bytes) {
    return Put(tlv, type, kind, bytes, [=](uint8_t* at) { StoreNumber(at, number, bytes); });
}

int PutBytes(utltlv_t tlv, int type, uint8_t kind, const void* data, size_t length) {
    if (tlv == nullptr) return UTLTLV_ERR_NULL;
    std::unique_ptr<uint8_t[]> copy;
    // A value of the same message would move away under the copying.
    if (length > 0 && tlv->Holds(data)) {
        copy.reset(new (std::nothrow) uint8_t[length]);
        if (copy == nullptr) return UTLTLV_ERR_MEMORY;
        memcpy(copy.get(), data, length);
        data = copy.get();
    }
    return Put(tlv, type, kind, length, [=](uint8_t* at) {
        if (length > 0) memcpy(at, data, length);
    });
}

int PutWords(utltlv_t tlv, int type, uint8_t kind, const void* records, size_t bytes) {
    if (records == nullptr && bytes > 0) return UTLTLV_ERR_NULL;
    return Put(tlv, type, kind, bytes, [=](uint8_t* at) { StoreWords(at, records, bytes); });
}

// What is behind the points in use may never have been written: it does not travel.
void StoreRuleArea(uint8_t* at, const TLVRuleArea_t& area) {
    const size_t used = offsetof(TLVRuleArea_t, points) + area.point_count * sizeof(TLVPoint_t);
    StoreWords(at, &area, used);
    memset(at + used, 0, sizeof area - used);
}

struct Value {
    uint8_t* data;
    size_t length;
};

bool IsReadAs(int stored, int wanted) {
    return stored == wanted || (stored == UTLTLV_STRING && wanted == UTLTLV_BYTES);
}

int Find(utltlv_t tlv, int type, int kind, Value* value) {
    if (tlv == nullptr) return UTLTLV_ERR_NULL;
    const uint32_t* offset = tlv->index.Find(type);
    if (offset == nullptr) return UTLTLV_ERR_ABSENT;
    const Entry entry = tlv->EntryAt(*offset);
    if (!IsReadAs(entry.kind, kind)) return UTLTLV_ERR_KIND;
    *value = {tlv->message.data() + *offset + kEntryHeaderBytes, entry.length};
    return 0;
}

template <class Number>
int GetNumber(utltlv_t tlv, int type, int kind, Number* number) {
    if (number == nullptr) return UTLTLV_ERR_NULL;
    Value value;
    const int result = Find(tlv, type, kind, &value);
    if (result == 0) *number = static_cast<Number>(LoadNumber(value.data, sizeof *number));
    return result;
}

// A float or a double through the unsigned number of its bits.
template <class Bits, class Real>
int GetReal(utltlv_t tlv, int type, int kind, Real* real) {
    static_assert(sizeof(Bits) == sizeof(Real));
    if (real == nullptr) return UTLTLV_ERR_NULL;
    Bits bits;
    const int result = GetNumber(tlv, type, kind, &bits);
    if (result == 0) memcpy(real, &bits, sizeof bits);
    return result;
}

template <class Bits, class Real>
int PutReal(utltlv_t tlv, int type, uint8_t kind, Real real) {
    static_assert(sizeof(Bits) == sizeof(Real));
    Bits bits;
    memcpy(&bits, &real, sizeof bits);
    return PutNumber(tlv, type, kind, bits, sizeof bits);
}

template <class Record>
int GetRecord(utltlv_t tlv, int type, int kind, Record* record) {
    if (record == nullptr) return UTLTLV_ERR_NULL;
    Value value;
    const int result = Find(tlv, type, kind, &value);
    if (result == 0) LoadWords(value.data, record, sizeof *record);
    return result;
}

// Hands out the records of a value, decoded once between two changes.
template <class Area>
int GetAreas(utltlv_t tlv, int type, int kind, Area** areas, int* count) {
    if (areas == nullptr || count == nullptr) return UTLTLV_ERR_NULL;
    Value value;
    const int result = Find(tlv, type, kind, &value);
    if (result != 0) return result;
    try {
        auto& decoded = tlv->areas[type];
        if (decoded == nullptr) {
            decoded = std::make_unique<uint8_t[]>(value.length);
            LoadWords(value.data, decoded.get(), value.length);
        }
        *areas = reinterpret_cast<Area*>(decoded.get());
        *count = static_cast<int>(value.length / sizeof(Area));
        return 0;
    } catch (const std::bad_alloc&) {
        return UTLTLV_ERR_MEMORY;
    }
}

}  // namespace

utltlv_t utltlv_create(const char* head_type) {
    if (head_type == nullptr) head_type = "";
    const size_t head_bytes = strlen(head_type) + 1;
    const size_t first = head_bytes + kCountBytes;
    if (first > kMaxMessageBytes) return nullptr;
    std::unique_ptr<utltlv_s> tlv(new (std::nothrow) utltlv_s);
    if (tlv == nullptr || !Reserve(&tlv->message, first)) return nullptr;
    tlv->message.resize(first);
    memcpy(tlv->message.data(), head_type, head_bytes);
    tlv->first = first;
    return tlv.release();
}

utltlv_t utltlv_parse(const unsigned char* data, int length) {
    if (data == nullptr || length <= 0) return nullptr;
    const auto bytes = static_cast<size_t>(length);
    std::unique_ptr<utltlv_s> tlv(new (std::nothrow) utltlv_s);
    if (tlv == nullptr || !Reserve(&tlv->message, bytes)) return nullptr;
    // Everything is checked in the copy: nobody can change it behind the checks.
    std::vector<uint8_t>& message = tlv->message;
    message.assign(data, data + bytes);
    const auto* head_end = static_cast<uint8_t*>(memchr(message.data(), '\0', bytes));
    if (head_end == nullptr) return nullptr;
    tlv->first = static_cast<size_t>(head_end + 1 - message.data()) + kCountBytes;
    if (tlv->first > bytes) return nullptr;
    if (LoadNumber(head_end + 1, kCountBytes) != bytes - tlv->first) return nullptr;
    return tlv->IndexEntries() ? tlv.release() : nullptr;
}

int utltlv_destroy(utltlv_t tlv) {
    if (tlv == nullptr) return UTLTLV_ERR_NULL;
    delete tlv;
    return 0;
}

const char* utltlv_get_headtype(utltlv_t tlv) {
    return tlv != nullptr ? reinterpret_cast<const char*>(tlv->message.data()) : nullptr;
}

unsigned char* utltlv_get_buffer(utltlv_t tlv) {
    if (tlv == nullptr) return nullptr;
    // Values stay where they are: pointers to them outlive this call.
    if (tlv->dead_bytes == 0) {
        StoreNumber(tlv->message.data() + tlv->first - kCountBytes, tlv->Bytes() - tlv->first,
                    kCountBytes);
        return tlv->message.data();
    }
    if (tlv->packed.empty()) {
        if (!Reserve(&tlv->packed, tlv->Bytes())) return nullptr;
        tlv->packed.resize(tlv->Bytes());
        tlv->CopyLive(tlv->packed.data());
    }
    return tlv->packed.data();
}

int utltlv_get_buffersize(utltlv_t tlv) {
    return tlv != nullptr ? static_cast<int>(tlv->Bytes()) : 0;
}

int utltlv_put_uint8(utltlv_t tlv, int type, unsigned char value) {
    return PutNumber(tlv, type, UTLTLV_UINT8, value, sizeof value);
}

int utltlv_put_uint16(utltlv_t tlv, int type, unsigned short value) {
    return PutNumber(tlv, type, UTLTLV_UINT16, value, sizeof value);
}

int utltlv_put_uint32(utltlv_t tlv, int type, unsigned int value) {
    return PutNumber(tlv, type, UTLTLV_UINT32, value, sizeof value);
}

int utltlv_put_uint64(utltlv_t tlv, int type, unsigned long long value) {
    return PutNumber(tlv, type, UTLTLV_UINT64, value, sizeof value);
}

int utltlv_put_float(utltlv_t tlv, int type, float value) {
    return PutReal<uint32_t>(tlv, type, UTLTLV_FLOAT, value);
}

int utltlv_put_double(utltlv_t tlv, int type, double value) {
    return PutReal<uint64_t>(tlv, type, UTLTLV_DOUBLE, value);
}

int utltlv_put_string(utltlv_t tlv, int type, const char* text) {
    if (text == nullptr) return UTLTLV_ERR_NULL;
    return PutBytes(tlv, type, UTLTLV_STRING, text, strlen(text) + 1);
}

int utltlv_put_bytes(utltlv_t tlv, int type, const unsigned char* data, int length) {
    if (length < 0) return UTLTLV_ERR_LENGTH;
    if (data == nullptr && length > 0) return UTLTLV_ERR_NULL;
    return PutBytes(tlv, type, UTLTLV_BYTES, data, static_cast<size_t>(length));
}

int utltlv_put_size(utltlv_t tlv, int type, const TLVSize_t* size) {
    return PutWords(tlv, type, UTLTLV_SIZE, size, sizeof *size);
}

int utltlv_put_rect(utltlv_t tlv, int type, const TLVRect_t* rect) {
    return PutWords(tlv, type, UTLTLV_RECT, rect, sizeof *rect);
}

int utltlv_put_rule_areas(utltlv_t tlv, int type, const TLVRuleArea_t* areas, unsigned char count) {
    if (areas == nullptr && count > 0) return UTLTLV_ERR_NULL;
    for (int i = 0; i < count; ++i) {
        if (!IsPointCount(areas[i].point_count)) return UTLTLV_ERR_LENGTH;
    }
    return Put(tlv, type, UTLTLV_RULE_AREAS, count * sizeof *areas, [=](uint8_t* at) {
        for (int i = 0; i < count; ++i, at += sizeof *areas) StoreRuleArea(at, areas[i]);
    });
}

int utltlv_put_obj_areas(utltlv_t tlv, int type, const TLVObjArea_t* areas, unsigned char count) {
    return PutWords(tlv, type, UTLTLV_OBJ_AREAS, areas, count * sizeof *areas);
}

int utltlv_del_type(utltlv_t tlv, int type) {
    if (tlv == nullptr) return UTLTLV_ERR_NULL;
    const uint32_t* offset = tlv->index.Find(type);
    if (offset == nullptr) return UTLTLV_ERR_ABSENT;
    tlv->Remove(*offset);
    tlv->DropCopies();
    return 0;
}

int utltlv_get_uint8(utltlv_t tlv, int type, unsigned char* value) {
    return GetNumber(tlv, type, UTLTLV_UINT8, value);
}

int utltlv_get_uint16(utltlv_t tlv, int type, unsigned short* value) {
    return GetNumber(tlv, type, UTLTLV_UINT16, value);
}

int utltlv_get_uint32(utltlv_t tlv, int type, unsigned int* value) {
    return GetNumber(tlv, type, UTLTLV_UINT32, value);
}

int utltlv_get_uint64(utltlv_t tlv, int type, unsigned long long* value) {
    return GetNumber(tlv, type, UTLTLV_UINT64, value);
}

int utltlv_get_float(utltlv_t tlv, int type, float* value) {
    return GetReal<uint32_t>(tlv, type, UTLTLV_FLOAT, value);
}

int utltlv_get_double(utltlv_t tlv, int type, double* value) {
    return GetReal<uint64_t>(tlv, type, UTLTLV_DOUBLE, value);
}

int utltlv_get_bytes(utltlv_t tlv, int type, unsigned char* buf, int* length) {
    if (buf == nullptr || length == nullptr) return UTLTLV_ERR_NULL;
    Value value;
    const int result = Find(tlv, type, UTLTLV_BYTES, &value);
    if (result != 0) return result;
    const auto bytes = static_cast<int>(value.length);
    if (*length < bytes) return UTLTLV_ERR_LENGTH;
    memcpy(buf, value.data, value.length);
    *length = bytes;
    return 0;
}

int utltlv_get_bytes_ptr(utltlv_t tlv, int type, unsigned char** data, int* length) {
    if (data == nullptr || length == nullptr) return UTLTLV_ERR_NULL;
    Value value;
    const int result = Find(tlv, type, UTLTLV_BYTES, &value);
    if (result != 0) return result;
    *data = value.data;
    *length = static_cast<int>(value.length);
    return 0;
}

int utltlv_get_size(utltlv_t tlv, int type, TLVSize_t* size) {
    return GetRecord(tlv, type, UTLTLV_SIZE, size);
}

int utltlv_get_rect(utltlv_t tlv, int type, TLVRect_t* rect) {
    return GetRecord(tlv, type, UTLTLV_RECT, rect);
}

int utltlv_get_rule_areas(utltlv_t tlv, int type, TLVRuleArea_t** areas, int* count) {
    return GetAreas(tlv, type, UTLTLV_RULE_AREAS, areas, count);
}

int utltlv_get_obj_areas(utltlv_t tlv, int type, TLVObjArea_t** areas, int* count) {
    return GetAreas(tlv, type, UTLTLV_OBJ_AREAS, areas, count);
}

int utltlv_get_next(utltlv_t tlv, const int* after, int* type, int* kind) {
    if (tlv == nullptr || type == nullptr || kind == nullptr) return UTLTLV_ERR_NULL;
    size_t at = tlv->first;
    if (after != nullptr) {
        const uint32_t* offset = tlv->index.Find(*after);
        if (offset == nullptr) return UTLTLV_ERR_ABSENT;
        at = *offset + tlv->EntryAt(*offset).Bytes();
    }
    for (; at < tlv->message.size(); at += tlv->EntryAt(at).Bytes()) {
        const Entry entry = tlv->EntryAt(at);
        if (entry.kind == kDead) continue;
        *type = entry.type;
        *kind = entry.kind;
        return 0;
    }
    return UTLTLV_ERR_ABSENT;
}
