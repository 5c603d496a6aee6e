// Log records with a message of 100 characters: each written to the file before the call returns,
// and such as are below the level. Both sides write date, time with milliseconds, level, file, line
// and function, and rotate at 64 MB.
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_DEBUG
#include <hybase/hlog.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdio.h>

#include <filesystem>
#include <memory>
#include <string>

#include "compare.h"

namespace {

constexpr size_t kMaxSize = 64 << 20;
constexpr int kNumber = 1234567;
constexpr char kText[] =
    "a text as long as those that devices write all day, from the first word to the last";
static_assert(sizeof("channel 1234567: ") - 1 + sizeof(kText) - 1 == 100);

void SetUpHybase(const std::string& folder) {
    std::filesystem::create_directory(folder);
    hlogParam_t param = {HLOG_LEVEL_INFO, -1, 1, "", kMaxSize, 2};
    snprintf(param.dir, sizeof param.dir, "%s", folder.c_str());
    hlog_set_param(&param);
}

std::shared_ptr<spdlog::logger> MakeSpdlog(const std::string& path) {
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, kMaxSize, 1);
    auto logger = std::make_shared<spdlog::logger>("bench", sink);
    logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e][%l][%s:%#][%!] %v");
    logger->set_level(spdlog::level::info);
    logger->flush_on(spdlog::level::trace);
    return logger;
}

void Hybase(benchmark::State& state) {
    for (auto _ : state) HLOG_INFO("channel %d: %s\n", kNumber, kText);
}

void HybaseBelow(benchmark::State& state) {
    for (auto _ : state) HLOG_DEBUG("channel %d: %s\n", kNumber, kText);
}

void Spdlog(benchmark::State& state, spdlog::logger* logger) {
    for (auto _ : state) SPDLOG_LOGGER_INFO(logger, "channel {}: {}", kNumber, kText);
}

void SpdlogBelow(benchmark::State& state, spdlog::logger* logger) {
    for (auto _ : state) SPDLOG_LOGGER_DEBUG(logger, "channel {}: {}", kNumber, kText);
}

}  // namespace

int main(int argc, char** argv) {
    const TempFolder folder;
    SetUpHybase(folder / "hybase");
    const auto logger = MakeSpdlog(folder / "spdlog.log");
    const auto spdlog = [&](benchmark::State& state) { Spdlog(state, logger.get()); };
    const auto below = [&](benchmark::State& state) { SpdlogBelow(state, logger.get()); };
    Compare("log to a file, 1 thread", kOurs, Hybase);
    Compare("log to a file, 1 thread", "spdlog", spdlog, 0.95);
    Compare("log to a file, 4 threads", kOurs, Hybase)->Threads(4);
    Compare("log to a file, 4 threads", "spdlog", spdlog, 0.95)->Threads(4);
    Compare("log below the level", kOurs, HybaseBelow);
    Compare("log below the level", "spdlog", below, 0.5);
    const int status = RunComparisons(argc, argv);
    const hlogParam_t closed = {HLOG_LEVEL_ERR, -1, 0, "", 0, 0};
    hlog_set_param(&closed);
    return status;
}
