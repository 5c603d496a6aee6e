// What the benchmarks share: how ours and the peers are set against each other, and a place for the
// files they read.
#ifndef HYBASE_BENCH_COMPARE_H
#define HYBASE_BENCH_COMPARE_H

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

// Name of our side in every comparison.
inline constexpr char kOurs[] = "hybase";

// Adds one side of the comparison `what`. `goal`: what our time may be at most as a multiple of
// this side's; 0 for none. Names are told apart at their last '/'. The result may be tuned further.
template <class Body>
benchmark::internal::Benchmark* CompareMeasured(const std::string& what, const std::string& who,
                                                Body body, double goal = 0) {
    auto measure = [body, goal](benchmark::State& state) {
        body(state);
        using benchmark::Counter;
        if (goal > 0) state.counters["goal"] = Counter(goal, Counter::kAvgThreads);
    };
    return benchmark::RegisterBenchmark((what + "/" + who).c_str(), measure);
}

// The same, timed by the wall clock. (CompareMeasured leaves it to the caller to say
// UseManualTime.)
template <class Body>
benchmark::internal::Benchmark* Compare(const std::string& what, const std::string& who, Body body,
                                        double goal = 0) {
    return CompareMeasured(what, who, body, goal)->UseRealTime();
}

// For checks of what a side has done: a side that did not do its work has no time.
inline void Require(benchmark::State& state, bool done, const char* otherwise) {
    if (!done) state.SkipWithError(otherwise);
}

// A folder that goes away with its files when the object does.
class TempFolder {
  public:
    TempFolder() : path_((std::filesystem::temp_directory_path() / "bench_XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) abort();
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string operator/(const char* name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Runs what was added. Returns the exit status of the program.
inline int RunComparisons(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

#endif
