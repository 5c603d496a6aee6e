#include "hybase/hcutil/HCParseIni.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "hybase/hcutil/siphash.h"
#include "hybase/hcutil/whole_file.h"
#include "hybase/hlog.h"
#include "hybase/print.h"
#include "hyplatform/arch.h"

namespace {

// Where the records say they come from; people filter logs by it.
constexpr char kLogFile[] = "hcutil/HCParseIni";
constexpr char kLoader[] = "_load_by_stream";

constexpr size_t kPipeRoom = 4096;

// Reads to the end, wherever it was when the file was opened; a read that fails is the end, too, so
// a folder reads as an empty text. False, with errno set, for a file that is too long.
bool ReadAll(const WholeFile& file, std::string* text) {
    // One byte more than there is: the read that fills it shows that the file has grown.
    size_t room = file.Size() > 0 ? file.Size() + 1 : kPipeRoom;
    for (size_t size = 0;; room *= 2) {
        text->resize(room);
        const ssize_t got = file.Read(&(*text)[size], room - size);
        if (got > 0) size += static_cast<size_t>(got);
        if (size > WholeFile::kMaxSize) {
            errno = EFBIG;
            return false;
        }
        if (got >= 0 && size == room) continue;
        text->resize(size);
        return true;
    }
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Terminates the line in place behind its last character; what stands there is white space, the
// line feed, or the end of the text.
std::string_view Strip(char* line, char* end) {
    // A carriage return at the beginning belongs to the line.
    while (line < end && IsBlank(*line)) ++line;
    while (end > line && (IsBlank(end[-1]) || end[-1] == '\r')) --end;
    *end = '\0';
    return {line, static_cast<size_t>(end - line)};
}

// False when there is no memory for the copy.
bool Copy(std::string_view from, std::string& to) {
    try {
        to = from;
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

using KeyHash = SipHash<1, 3>;

// Secret, so that nobody can choose keys which all fall into one place of an index. Without random
// bytes any key serves: slower under attack, right all the same.
KeyHash::Key MakeSecret() {
    KeyHash::Key secret;
    if (arch_rand_bytes(&secret, sizeof secret) != 0)
        return {0x9E3779B97F4A7C15, 0xD1B54A32D192ED03};
    return secret;
}

uint32_t HashOf(std::string_view key) {
    static const KeyHash::Key secret = MakeSecret();
    return static_cast<uint32_t>(KeyHash::Of(secret, key));
}

// The entries in ascending order of their keys. Not kept by the maps themselves: an order costs
// more than the rest of a load, look-ups are faster without, and most sections are never walked.
template <class Map>
std::vector<const typename Map::value_type*> Sorted(const Map& map) {
    std::vector<const typename Map::value_type*> sorted;
    sorted.reserve(map.size());
    for (const auto& entry : map) sorted.push_back(&entry);
    std::sort(sorted.begin(), sorted.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    return sorted;
}

const HCIniSection* Section(const HCParseIni& ini, const std::string& name) {
    const HCIniSection* section = ini.GetSection(name);
    if (section == nullptr)
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, "GetValue", __LINE__, "section:%s not find\n",
                       name.c_str());
    return section;
}

}  // namespace

size_t HCIniHash::operator()(std::string_view key) const { return HashOf(key); }

size_t HCIniPairs::PlaceOf(std::string_view key, uint32_t hash) const {
    size_t place = hash & m_nMask;
    for (; m_slots[place].second != 0; place = (place + 1) & m_nMask) {
        const auto& [slot_hash, number] = m_slots[place];
        if (slot_hash == hash && m_pairs[number - 1].first == key) break;
    }
    return place;
}

const HCIniPairs::value_type* HCIniPairs::Find(std::string_view key) const {
    if (m_pairs.empty()) return nullptr;
    const uint32_t number = m_slots[PlaceOf(key, HashOf(key))].second;
    return number != 0 ? &m_pairs[number - 1] : nullptr;
}

void HCIniPairs::Add(std::string_view key, std::string_view value) {
    if (m_pairs.size() * 2 >= m_slots.size()) Grow();
    const uint32_t hash = HashOf(key);
    Slot& slot = m_slots[PlaceOf(key, hash)];
    if (slot.second != 0) return;
    m_pairs.emplace_back(key, value);
    slot = {hash, static_cast<uint32_t>(m_pairs.size())};
}

void HCIniPairs::Grow() {
    std::vector<Slot> slots(std::max<size_t>(m_slots.size() * 2, 16));
    m_nMask = slots.size() - 1;
    for (const Slot& slot : m_slots) {
        if (slot.second == 0) continue;
        size_t place = slot.first & m_nMask;
        while (slots[place].second != 0) place = (place + 1) & m_nMask;
        slots[place] = slot;
    }
    m_slots.swap(slots);
}

HCIniSection::HCIniSection(std::string_view name, std::shared_ptr<const std::string> text)
    : m_strName(name), m_text(std::move(text)) {}

const std::string_view* HCIniSection::Find(const std::string& key, const char* kind) const {
    const auto* found = m_values.Find(key);
    if (found != nullptr) return &found->second;
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, "GetValue", __LINE__, "sec:[%s] get %s:%s fail\n",
                   m_strName.c_str(), kind, key.c_str());
    return nullptr;
}

int HCIniSection::GetValue(const std::string& key, int& out) const {
    const std::string_view* value = Find(key, "Int");
    if (value == nullptr) return -1;
    out = atoi(value->data());
    return 0;
}

int HCIniSection::GetValue(const std::string& key, float& out) const {
    const std::string_view* value = Find(key, "float");
    if (value == nullptr) return -1;
    out = static_cast<float>(atof(value->data()));
    return 0;
}

int HCIniSection::GetValue(const std::string& key, std::string& out) const {
    const std::string_view* value = Find(key, "string");
    return value != nullptr && Copy(*value, out) ? 0 : -1;
}

int HCIniSection::GetValue(const std::string& key, char* buf, int size) const {
    const std::string_view* value = Find(key, "string");
    if (value == nullptr) return -1;
    // One byte more than value and terminator need is asked for, and has always been.
    if (buf == nullptr || size < 0 || value->size() + 1 >= static_cast<size_t>(size)) {
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, __func__, __LINE__,
                       "sec:[%s] get string:%s fail 2\n", m_strName.c_str(), key.c_str());
        return -1;
    }
    memcpy(buf, value->data(), value->size() + 1);
    return 0;
}

void HCIniSection::SeekSet() {
    try {
        if (m_sequence.empty()) m_sequence = Sorted(m_values);
    } catch (const std::bad_alloc&) {
        // GetNext finds nothing to walk.
    }
    m_nNext = 0;
}

int HCIniSection::GetNext(std::string& key, std::string& value) {
    if (m_nNext == m_sequence.size()) return -1;
    const auto& pair = *m_sequence[m_nNext];
    if (!Copy(pair.first, key) || !Copy(pair.second, value)) return -1;
    ++m_nNext;
    return 0;
}

void HCIniSection::Print() const try {
    ::Print("[%s]\n", m_strName.c_str());
    for (const auto* pair : Sorted(m_values))
        ::Print("\t%.*s=%s\n", static_cast<int>(pair->first.size()), pair->first.data(),
                pair->second.data());
} catch (const std::bad_alloc&) {
    return;
}

HCParseIni::HCParseIni() = default;

HCParseIni::~HCParseIni() = default;

int HCParseIni::LoadFile(const std::string& path) {
    try {
        const auto text = std::make_shared<std::string>();
        const WholeFile file(path.c_str(), WholeFile::kReadable);
        if (file.IsOpen() && ReadAll(file, text.get())) {
            Load(text);
            return 0;
        }
    } catch (const std::exception&) {  // no memory, or a length no string can have
        errno = ENOMEM;
    }
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, __func__, __LINE__, "open file:%s fail, err=%s\n",
                   path.c_str(), strerror(errno));
    return -1;
}

int HCParseIni::Parse(const std::string& text) {
    hlog_printf_ex(HLOG_LEVEL_INFO, kLogFile, __func__, __LINE__,
                   "loading cfg string:%s, this=%p\n", text.c_str(), static_cast<void*>(this));
    try {
        Load(std::make_shared<std::string>(text));
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
}

// Takes the text apart in place: every line, and so every value, is terminated there.
void HCParseIni::Load(const std::shared_ptr<std::string>& text) {
    Sections sections;
    std::unique_ptr<HCIniSection> discarded;
    HCIniSection* current = nullptr;
    char* const text_end = text->data() + text->size();
    for (char *begin = text->data(), *end; begin < text_end; begin = end + 1) {
        end = static_cast<char*>(memchr(begin, '\n', text_end - begin));
        if (end == nullptr) end = text_end;
        const std::string_view line = Strip(begin, end);
        if (line.empty() || line[0] == ';') continue;
        if (line[0] != '[') {
            AddKey(current, line);
            continue;
        }
        const size_t close = line.find(']');
        if (close == std::string_view::npos) {
            hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLoader, __LINE__,
                           "section title has not close, %s\n", line.data());
            continue;
        }
        const std::string_view name = line.substr(1, close - 1);
        std::unique_ptr<HCIniSection> section(new HCIniSection(name, text));
        current = section.get();
        // When the name repeats, the first section stays and this one takes its keys along.
        if (!sections.try_emplace(name, std::move(section)).second) discarded = std::move(section);
    }
    m_sections.swap(sections);
}

void HCParseIni::AddKey(HCIniSection* section, std::string_view line) {
    if (section == nullptr) {
        hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, kLoader, __LINE__, "line has no section, %s\n",
                       line.data());
        return;
    }
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos)
        section->m_values.Add("", "");
    else
        section->m_values.Add(line.substr(0, equals), line.substr(equals + 1));
}

HCIniSection* HCParseIni::GetSection(const std::string& name) const {
    const auto found = m_sections.find(name);
    if (found != m_sections.end()) return found->second.get();
    hlog_printf_ex(HLOG_LEVEL_ERR, kLogFile, __func__, __LINE__, "get section:%s fail\n",
                   name.c_str());
    return nullptr;
}

int HCParseIni::GetValue(const std::string& section, const std::string& key, int& out) const {
    const HCIniSection* found = Section(*this, section);
    return found != nullptr ? found->GetValue(key, out) : -1;
}

int HCParseIni::GetValue(const std::string& section, const std::string& key, float& out) const {
    const HCIniSection* found = Section(*this, section);
    return found != nullptr ? found->GetValue(key, out) : -1;
}

int HCParseIni::GetValue(const std::string& section, const std::string& key,
                         std::string& out) const {
    const HCIniSection* found = Section(*this, section);
    return found != nullptr ? found->GetValue(key, out) : -1;
}

int HCParseIni::GetValue(const std::string& section, const std::string& key, char* buf,
                         int size) const {
    const HCIniSection* found = Section(*this, section);
    return found != nullptr ? found->GetValue(key, buf, size) : -1;
}

void HCParseIni::Print() const try {
    for (const auto* entry : Sorted(m_sections)) entry->second->Print();
} catch (const std::bad_alloc&) {
    return;
}
