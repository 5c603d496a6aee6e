// docs/examples/configuration.cpp
//
// To be run in examples/device: reads the settings and the table of channels that lie there.
#include <hybase/hcutil/HCCsv.h>
#include <hybase/hcutil/HCKeyValue.h>
#include <hybase/hcutil/HCParseIni.h>
#include <hybase/hlog.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

// What the readers have to complain about, without level, file and line.
static void ShowRecord(const char* text, int32_t) { printf("  log: %s", strstr(text, "] ") + 2); }

// ---- Settings ----

// A whole number within limits; without the key the value stays as it is. GetValue with an int
// takes "80x" for 80 and "many" for 0: what people write by hand deserves a closer look.
static bool ReadNumber(const HCParseIni& ini, const char* section, const char* key, long least,
                       long most, int* value) {
    std::string text;
    if (ini.GetValue(section, key, text) != 0) return true;
    char* end;
    const long number = strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0' || number < least || number > most) {
        printf("[%s] %s: '%s' is no number from %ld to %ld\n", section, key, text.c_str(), least,
               most);
        return false;
    }
    *value = static_cast<int>(number);
    return true;
}

static bool ReadSettings() {
    HCParseIni ini;
    if (ini.LoadFile("device.ini") != 0) return false;

    char ip[16] = "0.0.0.0";
    int port = 80, files = 3, slots = 8;
    float gain = 1.5F;
    ini.GetValue("net", "ip", ip, sizeof(ip));
    const bool good = ReadNumber(ini, "net", "port", 0, 65535, &port) &&
                      ReadNumber(ini, "log", "files", 1, 100, &files);
    printf("listen at %s:%d, keep %d log files\n", ip, port, files);

    // Nobody has set these two: a record each, and the values stay.
    ini.GetValue("net", "slots", slots);
    ini.GetValue("audio", "gain", gain);
    printf("%d slots, gain %.1f\n", slots, gain);

    // All keys of a section, in the order of their bytes: name=level;password
    HCIniSection* accounts = ini.GetSection("accounts");
    if (accounts == nullptr) return false;
    std::string name, value;
    accounts->SeekSet();
    while (accounts->GetNext(name, value) == 0)
        printf("account %s, level %d\n", name.c_str(), atoi(value.c_str()));
    return good && port == 8600;
}

// What a careless hand or an enemy may have written. Every line is either taken or left out.
static bool ReadNonsense() {
    HCParseIni ini;
    ini.Parse(
        "port=1\n"           // no section yet
        "[net\n"             // no ]
        "  [net] ; yes\r\n"  // white space and what follows the ] are nothing
        "port=80\n"
        "port=81\n"         // the first one counts
        "host = camera \n"  // the key is "host ", the value " camera"
        "#ttl=5\n"          // the key is "#ttl"
        "just words\n"      // an empty key with an empty value
        "[net]\n"           // this section is never seen
        "ttl=9\n");
    ini.Print();
    int port = 0;
    return ini.GetValue("net", "port", port) == 0 && port == 80;
}

// ---- Pairs in one line ----

static bool ReadPairs() {
    const char* text = " width = 1920 ;;height=1080; codec=h264";
    HCKeyValue pairs;
    if (pairs.Parse(text, ';') != 0) return false;
    std::string width, rate, all;
    printf("%s wide, '%s' a second\n", pairs.Get("width", width).c_str(),
           pairs.Get("rate", rate).c_str());
    pairs.Set("rate", "25");
    printf("%s\n", pairs.ToString(all, ';').c_str());

    // One look-up in a text, without taking it apart. Blanks count here.
    std::string codec, height;
    const int no_codec = HCKeyValue::GetValueWithKey(text, "codec", codec);
    const int no_height = HCKeyValue::GetValueWithKey(text, "height", height);
    printf("codec %d '%s', height %d '%s'\n", no_codec, codec.c_str(), no_height, height.c_str());
    return no_codec == -1 && height == "1080";
}

// ---- A table ----

static bool ReadTable() {
    HCCsv table;
    if (table.Open("channels.csv") != 0) return false;
    std::string name, address;
    for (int row = 2; row <= table.GetRowCnt(); row++)  // row 1 is the heading
        printf("%s at %s\n", table.GetValue(row, 1, name).c_str(),
               table.GetValue(row, "address", address).c_str());

    std::string width, nothing;
    table.GetValue("garden", "width", width);
    table.GetValue("cellar", "width", nothing);
    printf("garden '%s', cellar '%s', row %d\n", width.c_str(), nothing.c_str(),
           table.getrow("cellar"));
    return width == "1280" && nothing.empty();
}

int main() {
    hlogParam_t param = {HLOG_LEVEL_ERR, HLOG_LEVEL_ERR, 0, "", 0, 0};
    hlog_set_param(&param);
    hlog_regirst(ShowRecord);
    return ReadSettings() && ReadNonsense() && ReadPairs() && ReadTable() ? EXIT_SUCCESS
                                                                          : EXIT_FAILURE;
}
