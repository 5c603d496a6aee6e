// docs/examples/struct_mapping.c
#include <hybase/cjson_struct.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct {
    char ip[16];
    uint16_t port;
} Network;

typedef struct {
    char name[32];
    int32_t enabled;  // a boolean
    double gain;
    char* comment;  // a heap string, null for none
    Network network;
    int32_t presets[4];
    Network servers[3];
    HVector* users;  // items: char[16]
} Device;

static const kinfo_t network_table[] = {
    KINFO_ROW_AS("ip-address", Network, ip, KINFO_STRING),
    KINFO_ROW(Network, port, KINFO_U16),
    KINFO_END,
};

static const kinfo_t device_table[] = {
    KINFO_ROW(Device, name, KINFO_STRING),
    KINFO_ROW(Device, enabled, KINFO_BOOL),
    KINFO_ROW(Device, gain, KINFO_DOUBLE),
    KINFO_ROW(Device, comment, KINFO_STRPTR),
    KINFO_ROW_OBJECT(Device, network, network_table),
    KINFO_ROW_ARRAY(Device, presets, KINFO_S32),
    KINFO_ROW_OBJECT_ARRAY(Device, servers, network_table),
    KINFO_ROW_VECTOR(Device, users, KINFO_STRING, char[16]),
    KINFO_END,
};

static const char kConfig[] =
    "{\"name\": \"gate\", \"enabled\": true, \"gain\": 1.5, \"comment\": \"north side\","
    " \"network\": {\"IP-Address\": \"192.168.1.64\", \"port\": 8080},"
    " \"presets\": [10, 20], \"servers\": [{\"ip-address\": \"10.0.0.1\", \"port\": 80}],"
    " \"users\": [\"admin\", \"guest\"]}";

// What a device sends when only two settings are to change.
static const char kChange[] = "{\"gain\": 2.25, \"network\": {\"port\": 9090}}";

int main(void) {
    // All of it: members without a key become 0.
    Device device;
    if (!cjson_string2object(device_table, kConfig, &device)) return EXIT_FAILURE;
    printf("%s at %s:%d, %d users\n", device.name, device.network.ip, device.network.port,
           (int)HVector_Cnt(device.users));

    // A part of it: members without a key keep their values.
    cJSON* change = cJSON_Parse(kChange);
    cjson_json2object(device_table, change, &device);
    cJSON_Delete(change);

    char* text = cjson_object2string(device_table, &device);
    if (!text) return EXIT_FAILURE;
    puts(text);
    const int changed = strstr(text, "2.25") && strstr(text, "9090") && strstr(text, "north side");
    cJSON_free(text);

    // Heap strings and vectors are ours to free, the structure lies on the stack.
    cjson_string2object_free(device_table, &device);
    HVector_Destroy(device.users);
    return changed ? EXIT_SUCCESS : EXIT_FAILURE;
}
