#include "hybase/cjson_struct.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <string>

#include "hyplatform/arch.h"

namespace {

struct TreeDeleter {
    void operator()(cJSON* tree) const { cJSON_Delete(tree); }
};
using Tree = std::unique_ptr<cJSON, TreeDeleter>;

std::string Taken(char* text) {
    std::string copy = text ? text : "(null)";
    cJSON_free(text);
    return copy;
}

std::string Compact(cJSON* tree) { return Taken(cJSON_PrintUnformatted(Tree(tree).get())); }

struct Port {
    char name[8];
    uint16_t number;
};
const kinfo_t port_table[] = {KINFO_ROW(Port, name, KINFO_STRING),
                              KINFO_ROW(Port, number, KINFO_U16), KINFO_END};

// Room for any member under test; `next` stands in the row behind it and in the memory behind it.
struct Holder {
    alignas(8) char v[64];
    int32_t next;
};
kinfo_t Single(int32_t type, int32_t size = 0, const kinfo_t* table = nullptr) {
    return {sizeof(Holder), type, "v", 0, size, table, 0, 99, 0};
}
kinfo_t Array(int32_t type, int32_t count, int32_t size = 0, const kinfo_t* table = nullptr) {
    return {sizeof(Holder), KINFO_ARRAY, "v", 0, size, table, count, type, 0};
}
kinfo_t Vector(int32_t type, int32_t item_size, const kinfo_t* table = nullptr) {
    return {sizeof(Holder), KINFO_VECTOR, "v", 0, sizeof(HVector*), table, 0, type, item_size};
}

const char kNoTable[] =
    "ERROR: kinfo[i].sub_key should not be NULL\nERROR: kinfo[i].sub_key should not be NULL\n";

// Each case reads {"v": json} into bytes of `fill` and writes the structure again.
const struct {
    kinfo_t row;
    const char* json;
    const char* back;  // null: no member
    const char* said = "";
    int fill = 0;
} kCases[] = {
    {Single(KINFO_U32), "-1", "4294967295"},
    {Single(KINFO_U32), "4294967295", "2147483647"},
    {Single(KINFO_S32), "\"7\"", "0", "", 1},
    {Single(KINFO_STRING, 8), "\"0123456789\"", "\"0123456\"", "", 'x'},
    {Single(KINFO_STRING, 8), "5", "\"\"", "", 'x'},
    {Single(KINFO_STRING, 0), "\"a\"", "\"\"", "", 'x'},
    {Single(KINFO_STRPTR), "5", nullptr, "", 'x'},
    {Single(KINFO_OBJECT, 10, port_table), R"({"NUMBER":1,"number":2})",
     R"({"name":"","number":1})"},
    {Single(KINFO_OBJECT), "{\"a\":1}", "{}"},
    {Single(15), "1", nullptr, " 99 Not Support\n"},
    // A null keeps its element, but not one of the string types.
    {Array(KINFO_U8, 3), "[300,null,-1,4,5]", "[44,9,255]", "", 9},
    {Array(KINFO_CHAR, 2), "[-56]", "[200,0]"},
    {Array(KINFO_U16, 2), "[-1,65537]", "[65535,1]"},
    {Array(KINFO_S16, 2), "[32768,1]", "[-32768,1]"},
    {Array(KINFO_U32, 2), "[-1,2]", "[-1,2]"},
    {Array(KINFO_FLOAT, 2), "[0.1,2]", "[0.10000000149011612,2]"},
    {Array(KINFO_DOUBLE, 2), "[0.1,2]", "[0.1,2]"},
    {Array(KINFO_BOOL, 4), "[true,null,1,false]", "[true,true,false,false]", "", 1},
    {Array(KINFO_STRING, 3, 12), "[\"abcd\",null,\"e\"]", "[\"abc\",\"\",\"e\"]", "", 'x'},
    {Array(KINFO_STRING, 3, 2), "[\"abcd\"]", "[\"\",\"\",\"\"]"},
    {Array(KINFO_STRPTR, 2), "[null,\"p\"]", "[\"p\"]", "", 'x'},
    {Array(KINFO_S32, 0), "[1]", "[]"},
    {Array(KINFO_OBJECT, 4, 40, port_table), R"([null,{"number":256}])",
     R"([{"name":"","number":0},{"name":"","number":256}])"},
    {Array(KINFO_OBJECT, 4, 40, port_table), "[]", "[]"},
    {Array(KINFO_OBJECT, 4, 40), "[{},{}]", nullptr, kNoTable},
    // The size of such rows is not looked at, whatever a table written by hand says.
    {Array(KINFO_OBJECT, 4, 1, port_table), "[]", "[]"},
    {Array(KINFO_ARRAY, 2), "[1,2]", nullptr, " 12 Not Support\n 12 Not Support\n"},
    {Vector(KINFO_U8, 1), "[1,null,300]", "[1,44]"},
    {Vector(KINFO_U32, 4), "[-1]", "[4294967295]"},
    {Vector(KINFO_S32, 16), "[-5]", "[-5]"},
    // The first bytes of the double, not its value.
    {Vector(KINFO_FLOAT, 4), "[2,0.1]", "[0,-1.5881868392106856e-23]"},
    {Vector(KINFO_STRING, 4), "[\"abcd\",5,\"e\"]", "[\"abc\",\"\",\"e\"]"},
    {Vector(KINFO_OBJECT, 10, port_table), R"([{"name":"a"},null,{"number":2}])",
     R"([{"name":"a","number":0},{"name":"","number":2}])"},
    // Items too small for their type are neither read nor written beyond.
    {Vector(KINFO_S32, 2), "[1]", "[]"},
    {Vector(KINFO_STRPTR, 2), "[\"p\"]", "[]"},
    {Vector(KINFO_OBJECT, 3, port_table), "[{\"name\":\"abcdefg\"}]", "[]"},
    {Vector(KINFO_S32, -4), "[1]", "[]", "", 'x'},
    {Vector(KINFO_OBJECT, 10), "[{},{}]", nullptr, kNoTable},
    {Vector(KINFO_VECTOR, 4), "[1,2]", nullptr, " 13 Not Support\n 13 Not Support\n"},
};

TEST(CjsonStruct, EveryTypeConvertsByItsOwnRuleAndStopsNoOther) {
    for (const auto& c : kCases) {
        const kinfo_t table[] = {c.row, KINFO_ROW(Holder, next, KINFO_S32), KINFO_END};
        Holder holder;
        memset(&holder, c.fill, sizeof holder);
        Tree tree(cJSON_Parse(("{\"next\":5,\"v\":" + std::string(c.json) + "}").c_str()));
        testing::internal::CaptureStdout();
        EXPECT_EQ(cjson_json2object(table, tree.get(), &holder), &holder);
        const std::string text = Compact(cjson_object2json(table, &holder));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.said) << c.json;
        EXPECT_EQ(text, c.back ? "{\"v\":" + std::string(c.back) + ",\"next\":5}" : "{\"next\":5}");
        if (c.row.type == KINFO_VECTOR) HVector_Destroy(*reinterpret_cast<HVector**>(holder.v));
        cjson_string2object_free(table, &holder);
        cjson_string2object_free(table, &holder);  // the pointers are null by now
    }
}

struct Strings {
    char text[4];
    char names[2][4];
    char* heap;
    HVector* heaps;
    Port port;
};
const kinfo_t string_table[] = {
    KINFO_ROW(Strings, text, KINFO_STRING),
    KINFO_ROW_ARRAY(Strings, names, KINFO_STRING),
    KINFO_ROW(Strings, heap, KINFO_STRPTR),
    KINFO_ROW_VECTOR(Strings, heaps, KINFO_STRPTR, char*),
    KINFO_ROW_OBJECT_AS("Port-1", Strings, port, port_table),
    KINFO_END,
};

TEST(CjsonStruct, TextsAreFormattedAndStringsEndWithTheirMember) {
    const char* text = R"({"names":["a","b"],"heap":"h","heaps":["v"],"PORT-1":{"number":1}})";
    auto* s = static_cast<Strings*>(cjson_string2object(string_table, text, nullptr));
    EXPECT_EQ(memcmp(s->names, "a\0\0\0b\0\0", 8), 0);
    memset(s, 'x', sizeof s->text + sizeof s->names);
    cjson_json2object(string_table, Tree(cJSON_Parse(R"({"text":"t","names":["a"]})")).get(), s);
    EXPECT_EQ(memcmp(s->text, "t\0\0\0a\0\0\0xxxx", 12), 0);
    memset(s->text, 't', sizeof s->text);
    EXPECT_EQ(Taken(cjson_object2string(string_table, s)),
              "{\n\t\"text\":\t\"tttt\",\n\t\"names\":\t[\"a\", \"xxxx\"],\n\t\"heap\":\t\"h\",\n"
              "\t\"heaps\":\t[\"v\"],\n\t\"Port-1\":\t{\n\t\t\"name\":\t\"\",\n\t\t\"number\":"
              "\t1\n\t}\n}");
    free(*static_cast<char**>(HVector_At(s->heaps, 0)));
    HVector_Destroy(s->heaps);
    s->heaps = nullptr;
    cjson_string2object_array_free(string_table, s, 1);
    EXPECT_EQ(Taken(cjson_object2string(string_table, s)).find("\"heap\""), std::string::npos);
    free(s);
}

const char kAllFailed[] = R"([cjson_string2object] json_assert failed
[cjson_string2object_array] json_assert failed
[cjson_json2object] json_assert failed
[cjson_json2object_array] json_assert failed
[cjson_json2hvector] json_assert failed
)";

TEST(CjsonStruct, FailuresNameTheCallAndGiveNull) {
    int32_t count = 5;
    Port port = {"old", 1};
    const kinfo_t empty[] = {KINFO_END};
    testing::internal::CaptureStdout();
    EXPECT_EQ(cjson_string2object(port_table, "{\"name\":", &port), nullptr);
    EXPECT_EQ(cjson_string2object_array(port_table, nullptr, nullptr, 3, &count), nullptr);
    EXPECT_EQ(cjson_json2object(port_table, nullptr, &port), nullptr);
    EXPECT_EQ(cjson_json2object_array(port_table, nullptr, &port, 1, nullptr), nullptr);
    EXPECT_EQ(cjson_json2hvector(port_table, nullptr, nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), kAllFailed);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(cjson_string2object(empty, "{\"name\":1}", &port), &port);
    EXPECT_EQ(Compact(cjson_object2json(empty, &port)), "{}");
    Tree tree(cjson_object2json(port_table, &port));
    port.name[0] = 'O';
    EXPECT_EQ(Compact(tree.release()), R"({"name":"old","number":1})");
    EXPECT_EQ(cjson_object2string(port_table, nullptr), nullptr);
    EXPECT_EQ(cjson_object_array2json(port_table, nullptr, 1), nullptr);
    EXPECT_EQ(Compact(cjson_hvector2json(port_table, nullptr)), "[]");
}

TEST(CjsonStruct, ArraysAreFilledUpToTheMaximumOrMadeForAll) {
    const char* text = R"([{"name":"a","number":1},{"number":2},{"number":3}])";
    const Tree tree(cJSON_Parse(text));
    int32_t count = -1;
    Port ports[3] = {{"x", 7}, {"y", 8}, {"z", 9}};
    EXPECT_EQ(cjson_json2object_array(port_table, tree.get(), ports, 2, &count), ports);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(Compact(cjson_object_array2json(port_table, ports, 3)),
              R"([{"name":"a","number":1},{"name":"y","number":2},{"name":"z","number":9}])");
    EXPECT_EQ(cjson_string2object_array(port_table, text, ports, 2, &count), ports);
    EXPECT_EQ(Compact(cjson_object_array2json(port_table, ports + 1, 2)),
              R"([{"name":"","number":2},{"name":"z","number":9}])");
    cjson_json2object_array(port_table, tree.get(), ports, -1, &count);
    EXPECT_EQ(count, 0);

    void* made = cjson_json2object_array(port_table, tree.get(), nullptr, 1, &count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(Compact(cjson_object_array2json(port_table, made, count)),
              R"([{"name":"a","number":1},{"name":"","number":2},{"name":"","number":3}])");
    free(made);
    made = cjson_string2object_array(port_table, "[]", nullptr, 9, nullptr);
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(Taken(cjson_object_array2string(port_table, made, 0)), "[]");
    free(made);
}

TEST(CjsonStruct, VectorsOfStructuresRepeatWhatAnElementLeavesOut) {
    const Tree tree(cJSON_Parse(R"([{"number":1},{"name":"b"}])"));
    for (uint32_t item_size : {0u, 100u}) {
        HVector* given = item_size ? HVector_Create(item_size, 1) : nullptr;
        HVector* vector = cjson_json2hvector(port_table, tree.get(), given);
        EXPECT_EQ(HVector_GetItemSize(vector), given ? 100 : sizeof(Port));
        vector = cjson_json2hvector(port_table, tree.get(), vector);  // cleared, not added to
        Tree back(cjson_hvector2json(port_table, vector));
        HVector_Destroy(vector);
        EXPECT_EQ(Compact(back.release()), R"([{"name":"","number":1},{"name":"b","number":1}])");
    }
}

TEST(CjsonStruct, NumbersEnterVectorsAsTheBytesOfAnInt) {
    const kinfo_t bytes[] = {Vector(KINFO_U8, 4), KINFO_END};
    const kinfo_t ints[] = {Vector(KINFO_S32, 4), KINFO_END};
    Holder holder;
    cjson_string2object(bytes, R"({"v":[300]})", &holder);
    EXPECT_EQ(Compact(cjson_object2json(ints, &holder)), R"({"v":[300]})");
    HVector_Destroy(*reinterpret_cast<HVector**>(holder.v));
}

struct Node {
    HVector* nodes;
};
const kinfo_t node_table[] = {KINFO_ROW_OBJECT_VECTOR(Node, nodes, node_table, Node), KINFO_END};

void DestroyNodes(HVector* nodes) {
    for (int32_t i = 0; i < HVector_Cnt(nodes); i++)
        DestroyNodes(static_cast<Node*>(HVector_At(nodes, i))->nodes);
    HVector_Destroy(nodes);
}

void* ReadAndWriteDeepTree(void*) {
    std::string text;
    for (int i = 0; i < 499; i++) text = R"({"nodes":[)" + text + "]}";
    Node root{};
    EXPECT_EQ(cjson_string2object(node_table, text.c_str(), &root), &root);
    EXPECT_EQ(Compact(cjson_object2json(node_table, &root)), text);
    DestroyNodes(root.nodes);
    return nullptr;
}

TEST(CjsonStruct, TheDeepestTreeThatParsesFitsTheStackOfAThread) {
    arch_thread_join(arch_thread_create("deep", ReadAndWriteDeepTree, nullptr), nullptr);
}

}  // namespace
