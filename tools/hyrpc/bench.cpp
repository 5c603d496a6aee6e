#include "bench.h"

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "bench_report.h"

namespace hyrpc {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kProgressPeriod = std::chrono::milliseconds(200);

double MillisecondsSince(Clock::time_point began) {
    return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

// What one connection saw.
struct Tally {
    std::vector<double> times_ms;
    int errors = 0;
    int different = 0;  // answers unlike the first one of all, their number apart
    Outcome outcome = Outcome::kAnswered;
    Clock::time_point ended;
};

// Answers repeat the number of their call; apart from that they are to be alike.
std::string WithoutNumber(std::string text) {
    const size_t key = text.find("\"sentcnt\"");
    const size_t end = key == std::string::npos ? key : text.find_first_of(",}", key);
    if (end != std::string::npos) text.erase(key, end - key);
    return text;
}

class Bench {
  public:
    Bench(const Options& options, const std::string& binary, Output& output)
        : m_options(options),
          m_binary(binary),
          m_output(output),
          m_tallies(options.connections),
          m_busy(options.connections) {}

    // One after the other: a service lets few wait at its door, and the others would try again only
    // after seconds.
    Outcome Connect() {
        for (int i = 0; i < m_options.connections; i++) {
            // Never deleted, like the client of a single call.
            m_clients.push_back(new Client(m_options, m_output, nullptr));
            const Outcome outcome = m_clients.back()->Open();
            if (outcome != Outcome::kAnswered) return outcome;
        }
        Response first;
        m_clients[0]->ResetDeadline();
        const Outcome outcome = m_clients[0]->Call(m_binary, first);
        m_expected = WithoutNumber(first.text);
        return outcome;
    }

    void Run() {
        std::vector<std::thread> threads;
        m_began = Clock::now();
        for (size_t i = 0; i < m_clients.size(); i++)
            threads.emplace_back([this, i] { CallAll(*m_clients[i], m_tallies[i]); });
        if (isatty(STDERR_FILENO)) ShowProgress();
        for (auto& thread : threads) thread.join();
    }

    BenchReport Report() const {
        BenchReport report;
        report.connections = m_options.connections;
        report.calls_a_connection = m_options.count;
        Clock::time_point ended = m_began;
        for (const Tally& tally : m_tallies) {
            report.times_ms.insert(report.times_ms.end(), tally.times_ms.begin(),
                                   tally.times_ms.end());
            report.errors += tally.errors;
            report.different += tally.different;
            if (tally.outcome != Outcome::kAnswered) report.unanswered++;
            ended = std::max(ended, tally.ended);
        }
        report.seconds = std::chrono::duration<double>(ended - m_began).count();
        return report;
    }

    // The first failure, kAnswered for none.
    Outcome FirstFailure() const {
        for (const Tally& tally : m_tallies)
            if (tally.outcome != Outcome::kAnswered) return tally.outcome;
        return Outcome::kAnswered;
    }

  private:
    void CallAll(Client& client, Tally& tally) {
        for (int i = 0; i < m_options.count && tally.outcome == Outcome::kAnswered; i++)
            CallOnce(client, tally);
        tally.ended = Clock::now();
        std::lock_guard<std::mutex> lock(m_mutex);
        m_busy--;
        m_all_done.notify_all();
    }

    void CallOnce(Client& client, Tally& tally) {
        Response response;
        client.ResetDeadline();
        const auto began = Clock::now();
        tally.outcome = client.Call(m_binary, response);
        if (tally.outcome != Outcome::kAnswered) return;
        tally.times_ms.push_back(MillisecondsSince(began));
        if (response.errorcode != 0) tally.errors++;
        if (WithoutNumber(response.text) != m_expected) tally.different++;
        m_done++;
    }

    // One line that is written over itself, and gone when the calls are.
    void ShowProgress() {
        const long all = static_cast<long>(m_options.connections) * m_options.count;
        int width = 0;
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_all_done.wait_for(lock, kProgressPeriod, [this] { return m_busy == 0; })) {
            const long done = m_done;
            const double seconds = MillisecondsSince(m_began) / 1000;
            width = std::max(width, fprintf(stderr, "\r%ld of %ld calls, %.0f a second ", done, all,
                                            static_cast<double>(done) / seconds));
            fflush(stderr);
        }
        if (width > 0) fprintf(stderr, "\r%*s\r", width, "");
    }

    const Options& m_options;
    const std::string& m_binary;
    Output& m_output;
    std::vector<Client*> m_clients;
    std::vector<Tally> m_tallies;  // one a connection, written by its thread
    std::string m_expected;
    std::atomic<long> m_done{0};
    Clock::time_point m_began;
    std::mutex m_mutex;
    std::condition_variable m_all_done;
    int m_busy;  // connections still at it; guarded by m_mutex
};

std::string Complaint(const BenchReport& report) {
    return std::to_string(report.errors) + " of " + std::to_string(report.times_ms.size()) +
           " answers were errors, " + std::to_string(report.different) +
           " differed from the first one";
}

}  // namespace

Ending RunBench(const Options& options, const std::string& binary, Output& output, cJSON* details) {
    // Never deleted: it holds what the connections' threads may still look at.
    auto* bench = new Bench(options, binary, output);
    const Outcome connected = bench->Connect();
    if (connected != Outcome::kAnswered) return EndingOf(connected, options, output);
    bench->Run();

    BenchReport report = bench->Report();
    if (options.json)
        AddBenchJson(report, details);
    else
        output.Write(BenchText(report));
    const Outcome failure = bench->FirstFailure();
    if (failure != Outcome::kAnswered) return EndingOf(failure, options, output);
    if (report.errors == 0 && report.different == 0) return {};
    return {kMethodError, report.errors > 0 ? "method_error" : "other_answers", Complaint(report)};
}

}  // namespace hyrpc
