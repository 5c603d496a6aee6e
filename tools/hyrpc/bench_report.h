// What a bench found, in numbers.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "json_output.h"

namespace hyrpc {

struct BenchReport {
    int connections = 0;
    int calls_a_connection = 0;
    std::vector<double> times_ms;  // of the calls answered
    int errors = 0;                // answers that report an error
    int different = 0;             // answers unlike the first one of all
    int unanswered = 0;            // each ends its connection's part
    double seconds = 0;            // from the first call to the last answer
};

// Both sort the times.
std::string BenchText(BenchReport& report);
void AddBenchJson(BenchReport& report, cJSON* object);

}  // namespace hyrpc
