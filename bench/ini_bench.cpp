// Loading an INI file of 10,000 keys in 100 sections, and looking keys up in a random order.
#include <glib.h>
#include <hybase/hcutil/HCParseIni.h>
#include <ini.h>
#include <iniparser/iniparser.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "compare.h"

namespace {

constexpr int kSections = 100;
constexpr int kKeys = 100;  // of each section
constexpr char kLoad[] = "INI load, 10,000 keys";
constexpr char kLookUpText[] = "INI look-up of a text";
constexpr char kLookUpNumber[] = "INI look-up of a number";

// One key as each library wants it named, and what its value is.
struct Key {
    std::string section;
    std::string name;
    std::string section_and_name;  // "section:name"
    int number;
};

struct IniFile {
    std::string path;
    size_t size;
    std::vector<Key> keys;  // in a random order
};

IniFile MakeFile(const std::string& path) {
    IniFile file = {path, 0, {}};
    std::mt19937 random(1);
    std::string text;
    for (int s = 0; s < kSections; ++s) {
        const std::string section = "channel_" + std::to_string(s);
        text += "[" + section + "]\n";
        for (int k = 0; k < kKeys; ++k) {
            const std::string name = "threshold_" + std::to_string(k);
            const int number = static_cast<int>(random() % 1000000);
            text += name + "=" + std::to_string(number) + "\n";
            file.keys.push_back({section, name, section + ":" + name, number});
        }
        text += "\n";
    }
    std::shuffle(file.keys.begin(), file.keys.end(), random);
    std::ofstream(path, std::ios::binary) << text;
    file.size = text.size();
    return file;
}

// A side is a class that loads a file when it is made, answers Text and Number, and frees all it
// has in its destructor.

class Hybase {
  public:
    explicit Hybase(const IniFile& file) { ini_.LoadFile(file.path); }
    int Number(const Key& key) {
        int number = -1;
        ini_.GetValue(key.section, key.name, number);
        return number;
    }
    // Into a string that is used again, as a program would.
    size_t Text(const Key& key) {
        ini_.GetValue(key.section, key.name, text_);
        return text_.size();
    }

  private:
    HCParseIni ini_;
    std::string text_;
};

class Glib {
  public:
    explicit Glib(const IniFile& file) : keys_(g_key_file_new()) {
        g_key_file_load_from_file(keys_, file.path.c_str(), G_KEY_FILE_NONE, nullptr);
    }
    ~Glib() { g_key_file_free(keys_); }
    Glib(const Glib&) = delete;
    Glib& operator=(const Glib&) = delete;
    int Number(const Key& key) {
        return g_key_file_get_integer(keys_, key.section.c_str(), key.name.c_str(), nullptr);
    }
    // The value as it stands in the file; g_key_file_get_string, which takes escapes apart, is
    // slower.
    size_t Text(const Key& key) {
        char* text = g_key_file_get_value(keys_, key.section.c_str(), key.name.c_str(), nullptr);
        const size_t length = strlen(text);
        g_free(text);
        return length;
    }

  private:
    GKeyFile* keys_;
};

// inih keeps nothing itself: its users put what it finds into a map.
class InihAndMap {
  public:
    explicit InihAndMap(const IniFile& file) {
        auto add = [](void* to, const char* section, const char* name, const char* value) {
            (*static_cast<Sections*>(to))[section].emplace(name, value);
            return 1;
        };
        ini_parse(file.path.c_str(), add, &sections_);
    }
    int Number(const Key& key) { return atoi(Find(key).c_str()); }
    size_t Text(const Key& key) {
        text_ = Find(key);
        return text_.size();
    }

  private:
    using Sections = std::map<std::string, std::map<std::string, std::string>>;

    const std::string& Find(const Key& key) const {
        return sections_.find(key.section)->second.find(key.name)->second;
    }

    Sections sections_;
    std::string text_;
};

class Iniparser {
  public:
    explicit Iniparser(const IniFile& file) : dictionary_(iniparser_load(file.path.c_str())) {}
    ~Iniparser() { iniparser_freedict(dictionary_); }
    Iniparser(const Iniparser&) = delete;
    Iniparser& operator=(const Iniparser&) = delete;
    int Number(const Key& key) {
        return iniparser_getint(dictionary_, key.section_and_name.c_str(), -1);
    }
    // Stays in the dictionary: nothing is copied.
    size_t Text(const Key& key) {
        return strlen(iniparser_getstring(dictionary_, key.section_and_name.c_str(), ""));
    }

  private:
    dictionary* dictionary_;
};

template <class Side>
void Load(benchmark::State& state, const IniFile& file) {
    for (auto _ : state) Side side(file);
    Side side(file);
    Require(state, side.Number(file.keys[0]) == file.keys[0].number, "wrong value");
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(file.size));
}

// One look-up an iteration: look_up(side, key), of which right(result, key) says whether it is.
template <class Side, class LookUp, class Right>
void LookUpEach(benchmark::State& state, const IniFile& file, LookUp look_up, Right right) {
    Side side(file);
    size_t next = 0;
    size_t wrong = 0;
    for (auto _ : state) {
        const Key& key = file.keys[next];
        wrong += right(look_up(side, key), key) ? 0 : 1;
        next = next + 1 < file.keys.size() ? next + 1 : 0;
    }
    Require(state, wrong == 0, "wrong value");
    state.SetItemsProcessed(state.iterations());
}

template <class Side>
void Add(const char* who, const IniFile& file, double load_goal, double look_up_goal) {
    const auto load = [&file](benchmark::State& state) { Load<Side>(state, file); };
    const auto text = [&file](benchmark::State& state) {
        LookUpEach<Side>(
            state, file, [](Side& side, const Key& key) { return side.Text(key); },
            [](size_t length, const Key& key) {
                return length == std::to_string(key.number).size();
            });
    };
    const auto number = [&file](benchmark::State& state) {
        LookUpEach<Side>(
            state, file, [](Side& side, const Key& key) { return side.Number(key); },
            [](int number, const Key& key) { return number == key.number; });
    };
    Compare(kLoad, who, load, load_goal)->Unit(benchmark::kMicrosecond);
    Compare(kLookUpText, who, text, look_up_goal);
    Compare(kLookUpNumber, who, number, look_up_goal);
}

}  // namespace

int main(int argc, char** argv) {
    const TempFolder folder;
    const IniFile file = MakeFile(folder / "settings.ini");
    Add<Hybase>(kOurs, file, 0, 0);
    Add<Glib>("GKeyFile", file, 0.667, 1.0);
    Add<InihAndMap>("inih + std::map", file, 0, 0);
    Add<Iniparser>("iniparser", file, 0, 0);
    return RunComparisons(argc, argv);
}
