/// @file
/// @ingroup configuration
/// Settings in INI form, read from a file or a string, with typed look-ups.
#ifndef HYBASE_HCUTIL_HCPARSEINI_H
#define HYBASE_HCUTIL_HCPARSEINI_H

#include <hybase/export.h>
#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

/// @ingroup configuration
/// Places keys in an index in a way that nobody can foresee: SipHash-1-3 with a key that is random
/// in each process. For the classes below.
struct HCIniHash {
    size_t operator()(std::string_view key) const;  ///< the place of `key`
};

/// @ingroup configuration
/// The pairs of a section in the order of the file, with an index of their keys. For the classes
/// below.
class HCIniPairs {
  public:
    using value_type = std::pair<std::string_view, std::string_view>;  ///< key and value

    const value_type* Find(std::string_view key) const;      ///< the pair, null when there is none
    void Add(std::string_view key, std::string_view value);  ///< unless there is a pair of this key

    size_t size() const { return m_pairs.size(); }                                     ///< pairs
    std::vector<value_type>::const_iterator begin() const { return m_pairs.begin(); }  ///< first
    std::vector<value_type>::const_iterator end() const {
        return m_pairs.end();
    }  ///< behind the last

  private:
    // A place of the index: the hash of a key, and the number of its pair from 1, 0 for none. Keys
    // are looked for from the place of their hash on.
    using Slot = std::pair<uint32_t, uint32_t>;
    size_t PlaceOf(std::string_view key, uint32_t hash) const;
    void Grow();

    std::vector<value_type> m_pairs;
    std::vector<Slot> m_slots;  // a power of two of them, at most half in use
    size_t m_nMask = 0;         // how many there are, less one
};

/// @ingroup configuration
/// One section of an INI file. Made and owned by an HCParseIni; only a walk changes it.
class HYBASE_API HCIniSection {
  public:
    HCIniSection(const HCIniSection&) = delete;  ///< not to be copied
    HCIniSection& operator=(const HCIniSection&) = delete;

    /// Sets `out` to the value of a key as a whole number (atoi). Returns 0; -1 when the key is not
    /// there, `out` is unchanged then.
    int GetValue(const std::string& key, int& out) const;

    /// The same as a fraction (atof).
    int GetValue(const std::string& key, float& out) const;

    /// The same as a text. -1 also when memory is short.
    int GetValue(const std::string& key, std::string& out) const;

    /// The same into `size` bytes at `buf`. Needs room for the value, its terminator and one byte
    /// more: a buffer that the value would just fill is refused.
    int GetValue(const std::string& key, char* buf, int size) const;

    /// Begins a walk over the section in ascending order of the keys. A section has one position:
    /// two walks disturb each other.
    void SeekSet();

    /// Copies a pair and goes to the next one. Returns 0, or -1 (without a record) when none is
    /// left.
    int GetNext(std::string& key, std::string& value);

    /// Prints `"[name]"` and a line `"<tab>key=value"` for each key in ascending order to standard
    /// output.
    void Print() const;

  private:
    friend class HCParseIni;
    using Values = HCIniPairs;

    HCIniSection(std::string_view name, std::shared_ptr<const std::string> text);
    const std::string_view* Find(const std::string& key, const char* kind) const;

    std::string m_strName;
    Values m_values;                                    // views into m_text
    std::vector<const Values::value_type*> m_sequence;  // of a walk; empty before the first one
    size_t m_nNext = 0;                                 // position in m_sequence
    std::shared_ptr<const std::string> m_text;          // shared by the sections of one load
};

/// Settings in INI form, read from a file or a string, with typed look-ups.
///
///     HCParseIni ini;
///     int port = 80;
///     if (ini.LoadFile("/etc/door.ini") == 0) ini.GetValue("net", "port", port);
///
/// The form, line by line, after white space at both ends has been taken off:
///
///     ; a comment. Only a ';' at the beginning makes one: "#x=1" is a key.
///     [net]
///     port=80
///
///     [name]     begins a section; the name is everything up to the first ']', blanks included.
///     key=value  belongs to the section above it. Blanks around the first '=' stay with key and
///                value; nothing is quoted or escaped. A line without '=' is an empty key with an
///                empty value.
///
/// What stands first wins: of a key that repeats within its section the first value counts, and a
/// section whose name repeats is discarded whole. A header without ']' and keys before the first
/// header are dropped with an ERR record; no line makes a load fail. Names and keys are compared as
/// bytes, upper and lower case differ.
///
/// @par Results
/// 0, or -1 with an ERR record (none where memory is short) and the output left as it was.
/// A number is read with atoi or atof: a text that is none gives 0, and that is a success. Nothing
/// throws.
///
/// @par Threads
/// An object and its sections are for one thread at a time.
///
/// @ingroup configuration
class HYBASE_API HCParseIni {
  public:
    HCParseIni();  ///< no sections

    /// Deletes the sections.
    ~HCParseIni();

    HCParseIni(const HCParseIni&) = delete;  ///< not to be copied
    HCParseIni& operator=(const HCParseIni&) = delete;

    /// Replaces all sections with those of a file: a regular one, or a pipe, which is read to its
    /// end. A folder, and what cannot be read, counts as empty. Returns 0, or -1 when it cannot be
    /// opened, is a device or longer than 2147483646 bytes, or when memory is short; the former
    /// sections then stay.
    int LoadFile(const std::string& path);

    /// The same with the text itself, which is copied. -1 only when memory is short.
    int Parse(const std::string& text);

    /// The section, null with an ERR record when there is none. Valid until the next load.
    HCIniSection* GetSection(const std::string& name) const;

    /// The value of a key in a section, as HCIniSection::GetValue() gives it.
    int GetValue(const std::string& section, const std::string& key, int& out) const;

    /// The same as a fraction.
    int GetValue(const std::string& section, const std::string& key, float& out) const;

    /// The same as a text.
    int GetValue(const std::string& section, const std::string& key, std::string& out) const;

    /// The same into a buffer of `size` bytes.
    int GetValue(const std::string& section, const std::string& key, char* buf, int size) const;

    /// Prints all sections in ascending order of their names.
    void Print() const;

  private:
    // By their names, which are views into the text that the sections keep.
    using Sections = std::unordered_map<std::string_view, std::unique_ptr<HCIniSection>, HCIniHash>;

    void Load(const std::shared_ptr<std::string>& text);
    static void AddKey(HCIniSection* section, std::string_view line);

    Sections m_sections;
};

#endif
