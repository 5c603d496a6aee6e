#include "bench_report.h"

#include <stdio.h>

#include <algorithm>

namespace hyrpc {
namespace {

// The smallest time that so many percent of the calls did not exceed.
double Percentile(const std::vector<double>& sorted, size_t percent) {
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

struct Times {
    double calls_a_second;
    double p50_ms;
    double p99_ms;
    double max_ms;
};

Times Evaluate(BenchReport& report) {
    std::vector<double>& times = report.times_ms;
    if (times.empty()) return {};
    std::sort(times.begin(), times.end());
    return {static_cast<double>(times.size()) / report.seconds, Percentile(times, 50),
            Percentile(times, 99), times.back()};
}

}  // namespace

std::string BenchText(BenchReport& report) {
    const Times times = Evaluate(report);
    char text[400];
    snprintf(text, sizeof text,
             "connections     %d\n"
             "calls           %zu\n"
             "errors          %d\n"
             "other answers   %d\n"
             "unanswered      %d\n"
             "seconds         %.3f\n",
             report.connections, report.times_ms.size(), report.errors, report.different,
             report.unanswered, report.seconds);
    if (report.times_ms.empty()) return text;
    const std::string counts = text;
    snprintf(text, sizeof text,
             "calls a second  %.0f\n"
             "p50, ms         %.3f\n"
             "p99, ms         %.3f\n"
             "max, ms         %.3f\n",
             times.calls_a_second, times.p50_ms, times.p99_ms, times.max_ms);
    return counts + text;
}

void AddBenchJson(BenchReport& report, cJSON* object) {
    const Times times = Evaluate(report);
    cJSON_AddNumberToObject(object, "connections", report.connections);
    cJSON_AddNumberToObject(object, "calls_per_connection", report.calls_a_connection);
    cJSON_AddNumberToObject(object, "calls", static_cast<double>(report.times_ms.size()));
    cJSON_AddNumberToObject(object, "errors", report.errors);
    cJSON_AddNumberToObject(object, "other_answers", report.different);
    cJSON_AddNumberToObject(object, "unanswered", report.unanswered);
    AddRounded(object, "seconds", report.seconds);
    if (report.times_ms.empty()) return;
    AddRounded(object, "calls_per_second", times.calls_a_second);
    AddRounded(object, "p50_ms", times.p50_ms);
    AddRounded(object, "p99_ms", times.p99_ms);
    AddRounded(object, "max_ms", times.max_ms);
}

}  // namespace hyrpc
