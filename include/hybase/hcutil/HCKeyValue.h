/// @file
/// @ingroup configuration
/// Texts of pairs such as "width=1920;height=1080", taken apart into an ordered map and put
/// together again.
#ifndef HYBASE_HCUTIL_HCKEYVALUE_H
#define HYBASE_HCUTIL_HCKEYVALUE_H

#include <hybase/export.h>

#include <map>
#include <string>

/// Texts of pairs such as "width=1920;height=1080", taken apart into an ordered map and put
/// together again.
///
/// The character between the pairs is the caller's choice, between key and value it is always '='.
///
/// @par Results
/// 0, or -1 for failure; nothing is logged, nothing throws.
///
/// @par Threads
/// One thread an object, also to read: Get adds what it does not find.
///
/// @ingroup configuration
class HYBASE_API HCKeyValue {
  public:
    HCKeyValue();                            ///< no pairs
    ~HCKeyValue();                           ///< forgets all pairs
    HCKeyValue(const HCKeyValue&) = delete;  ///< not to be copied
    HCKeyValue& operator=(const HCKeyValue&) = delete;

    /// Replaces all pairs with those of `text`: " a = 1 ;; b=2;" holds a=1 and b=2. Blanks (not
    /// tabs) around keys and values are dropped, separators in a row count as one, and of a key
    /// that repeats the last value counts. A key is all there is between a separator and the next
    /// '=': "abc;k=v" holds one key, "abc;k". A value may have a '=' in it. A separator of 0 makes
    /// all behind the first '=' one value. Returns 0, or -1 when no pair is held: the text has no
    /// '=', a key is empty (this discards all pairs), memory is short, or the text is null (this
    /// alone leaves the former pairs).
    int Parse(const char* text, char separator);

    /// Copies the value of the key to `value` and returns `value`. A key that is not there is added
    /// with an empty value; a null key gives an empty value and adds nothing.
    std::string& Get(const char* key, std::string& value);

    /// Sets the value of a key, which is added or replaced. -1 for nulls and for an empty key.
    int Set(const char* key, const char* value);

    /// Begins a walk over the pairs in ascending order of the keys. After Parse every walk begins
    /// with SeekSet().
    void SeekSet();

    /// Copies a pair and goes to the next one. Returns 0, or -1 when none is left.
    int GetNext(std::string& key, std::string& value);

    /// Sets `out` to all pairs in ascending order of the keys, the separator behind each, the last
    /// one included: "a=1;b=2;". Returns `out`.
    std::string& ToString(std::string& out, char separator);

    /// The value of a key in a text whose separator is ';', as it stands there, blanks included; of
    /// a key that repeats the first value counts. Returns 0, or -1 when the key is not there, which
    /// leaves `value` empty.
    static int GetValueWithKey(const char* text, const char* key, std::string& value);

  private:
    using Pairs = std::map<std::string, std::string>;

    Pairs m_pairs;
    Pairs::const_iterator m_next;
};

#endif
