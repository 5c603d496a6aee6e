// docs/examples/functions.cpp
//
// Every example of docs/functions.md, in the order and the words of that page. A line that does not
// give what the page says is printed, and the program fails.
#include <hybase/cjson_struct.h>
#include <hybase/hlog.h>
#include <hybase/hstring.h>
#include <hybase/htime.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

static int wrong_lines = 0;
#define SHOW(result)                                \
    do {                                            \
        if (result) break;                          \
        printf("line %d: %s\n", __LINE__, #result); \
        ++wrong_lines;                              \
    } while (0)

static std::string record;
static void KeepRecord(const char* text, int32_t length) { record.assign(text, length); }

static void Logging() {
    hlogParam_t param = {HLOG_LEVEL_WARN, HLOG_LEVEL_INFO, 0, "", 1 << 20, 5};
    hlog_set_param(&param);
    hlog_regirst(KeepRecord);
    hlog_printf_ex(HLOG_LEVEL_INFO, "src/door.cpp", "Open", 12, "gate %d\n", 7);
    SHOW(record == "[INFO][door.cpp:12][Open] gate 7\n");
    HLOG_ERR("gate %d is stuck\n", 7);
    SHOW(record.find("][Logging] gate 7 is stuck\n") != std::string::npos);
    hlog_set_print(hlog_print_debug);
    hlog_set_print(nullptr);
    hlog_regirst(nullptr);
}

typedef struct {
    char name[8];
    int32_t number;
    char* note;
} Port;

static const kinfo_t table[] = {
    KINFO_ROW(Port, name, KINFO_STRING),
    KINFO_ROW(Port, number, KINFO_S32),
    KINFO_ROW(Port, note, KINFO_STRPTR),
    KINFO_END,
};

static void StructMapping() {
    Port port;
    cjson_string2object(table, R"({"name": "eth0", "note": "up"})", &port);
    SHOW(std::string(port.name) == "eth0" && port.number == 0 && std::string(port.note) == "up");
    cjson_string2object_free(table, &port);
    SHOW(port.note == nullptr);

    Port ports[4];
    int32_t count;
    cjson_string2object_array(table, R"([{"number": 1}, {"number": 2}])", ports, 4, &count);
    SHOW(count == 2 && ports[0].number == 1 && ports[1].number == 2);
    cjson_string2object_array_free(table, ports, count);

    cJSON* tree = cJSON_Parse(R"({"number": 9})");
    cjson_json2object(table, tree, &port);
    SHOW(std::string(port.name) == "eth0" && port.number == 9);
    cJSON_Delete(tree);

    tree = cJSON_Parse(R"([{"note": "up"}, {"note": "down"}])");
    cjson_json2object_array(table, tree, ports, 1, &count);
    SHOW(count == 1 && std::string(ports[0].note) == "up");
    cjson_json2object_array_free(table, ports, count);
    SHOW(ports[0].note == nullptr);
    cJSON_Delete(tree);

    char* text = cjson_object2string(table, &port);
    SHOW(std::string(text) == "{\n\t\"name\":\t\"eth0\",\n\t\"number\":\t9\n}");
    cJSON_free(text);
    text = cjson_object_array2string(table, ports, 2);
    SHOW(std::string(text).substr(0, 2) == "[{");
    cJSON_free(text);

    tree = cjson_object2json(table, &port);
    SHOW(cJSON_GetObjectItem(tree, "number")->valueint == 9);
    cJSON_Delete(tree);
    tree = cjson_object_array2json(table, ports, 2);
    SHOW(cJSON_GetArraySize(tree) == 2);
    HVector* vector = cjson_json2hvector(table, tree, nullptr);
    SHOW(HVector_Cnt(vector) == 2);
    cJSON_Delete(tree);
    tree = cjson_hvector2json(table, vector);
    SHOW(cJSON_GetArraySize(tree) == 2);
    cJSON_Delete(tree);
    HVector_Destroy(vector);
}

static void Strings() {
    char* argv[4];
    char line[] = "move 'north gate' 7";
    SHOW(HString_CmdParser(line, argv, 3) == 3 && std::string(argv[1]) == "north gate");
    char fields[] = "a,,b";
    SHOW(HString_ConvertToArgv_ex(fields, 4, ',', argv, 4) == 2 && std::string(argv[1]) == "b");
    char words[] = " up \t down";
    SHOW(HString_ConvertToArgv(words, 10, argv, 4) == 2 && std::string(argv[1]) == "down");

    char out[16];
    SHOW(HString_GetLine("ab\ncd", out, sizeof(out)) == 3 && std::string(out) == "ab\n");
    char path[16] = "a-b-c";
    SHOW(HString_WordReplace(path, nullptr, 16, "-", ", ") == 7 && std::string(path) == "a, b, c");
    uint8_t bytes[2];
    SHOW(HString_HexParse("0aFf", bytes) == 2 && bytes[0] == 0x0A && bytes[1] == 0xFF);
    char* text = HString_HexPrint(bytes, 2, 1);
    SHOW(std::string(text) == "0AFF");
    free(text);
}

static std::string Text(const HTime_t& date) {
    char text[32];
    return HTime_time2str(&date, 0, "YYYY-MM-DD hh:mm:ss", text);
}

// The program runs in the zone UTC, so local time is UTC here.
static void Dates() {
    SHOW(HTime_mkgmtime_ex(2024, 2, 29, 12, 0, 0) == 1709208000);
    HTime_t date = {2024, 2, 29, 12, 0, 0};
    SHOW(HTime_mkgmtime(&date) == 1709208000);
    SHOW(HTime_mktime_ex(2024, 2, 29, 12, 0, 0) == 1709208000);
    SHOW(HTime_mktime(&date) == 1709208000);

    time_t seconds = 951868800;
    HTime_gmtime(&seconds, &date);
    SHOW(Text(date) == "2000-03-01 00:00:00");
    HTime_localtime(&seconds, &date);
    SHOW(Text(date) == "2000-03-01 00:00:00");
    HTime_add(&date, -1, &date);
    SHOW(Text(date) == "2000-02-29 23:59:59");
    HTime_get_localtime(&date);
    SHOW(date.year >= 1970);

    HTime_t start = {2024, 1, 1, 10, 0, 0}, end = {2024, 1, 3, 5, 0, 0}, starts[8], ends[8];
    SHOW(HTime_split_into_day(&start, &end, starts, ends, 7) == 3);
    SHOW(Text(starts[0]) == "2024-01-01 10:00:00" && Text(ends[0]) == "2024-01-01 23:59:59");

    char text[32];
    SHOW(std::string(HTime_time2str(&start, 0, "YY/M/D hh:mm", text)) == "24/01/01 10:00");
    struct tm tm {};
    SHOW(HTime_str2tm("2024-02-29T12:00:00", &tm) == &tm && tm.tm_mon == 1 && tm.tm_mday == 29);
    HTime_elapsed("loaded");
}

int main() {
    setenv("TZ", "UTC0", 1);
    Logging();
    StructMapping();
    Strings();
    Dates();
    return wrong_lines == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
