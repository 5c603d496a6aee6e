#include "bench.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

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
    Bench(const Options& options, const std::string& binary)
        : m_options(options), m_binary(binary), m_tallies(options.connections) {}

    // One after the other: a service lets few wait at its door, and the others would try again only
    // after seconds.
    Outcome Connect() {
        for (int i = 0; i < m_options.connections; i++) {
            // Never deleted, like the client of a single call.
            m_clients.push_back(new Client(m_options, nullptr));
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
        const auto began = Clock::now();
        for (size_t i = 0; i < m_clients.size(); i++)
            threads.emplace_back([this, i] { CallAll(*m_clients[i], m_tallies[i]); });
        if (isatty(STDERR_FILENO)) ShowProgress();
        for (auto& thread : threads) thread.join();
        m_seconds = MillisecondsSince(began) / 1000;
    }

    bool Report(FILE* results, Outcome& outcome) const {
        std::vector<double> times;
        int errors = 0;
        int different = 0;
        for (const Tally& tally : m_tallies) {
            times.insert(times.end(), tally.times_ms.begin(), tally.times_ms.end());
            errors += tally.errors;
            different += tally.different;
            if (outcome == Outcome::kAnswered) outcome = tally.outcome;
        }
        fprintf(results, "connections     %d\n", m_options.connections);
        fprintf(results, "calls           %zu\n", times.size());
        fprintf(results, "errors          %d\n", errors);
        fprintf(results, "other answers   %d\n", different);
        if (times.empty()) return false;
        std::sort(times.begin(), times.end());
        fprintf(results, "calls a second  %.0f\n", times.size() / m_seconds);
        fprintf(results, "p50, ms         %.3f\n", times[times.size() / 2]);
        fprintf(results, "p99, ms         %.3f\n", times[times.size() * 99 / 100]);
        fprintf(results, "slowest, ms     %.3f\n", times.back());
        return errors == 0 && different == 0 && outcome == Outcome::kAnswered;
    }

  private:
    void CallAll(Client& client, Tally& tally) {
        for (int i = 0; i < m_options.count; i++, m_done++) {
            Response response;
            client.ResetDeadline();
            const auto began = Clock::now();
            tally.outcome = client.Call(m_binary, response);
            if (tally.outcome != Outcome::kAnswered) return;
            tally.times_ms.push_back(MillisecondsSince(began));
            if (response.errorcode != 0) tally.errors++;
            if (WithoutNumber(response.text) != m_expected) tally.different++;
        }
    }

    void ShowProgress() {
        const long all = static_cast<long>(m_options.connections) * m_options.count;
        long before = -1;
        // Ends as well when nothing moves any more: a call that fails ends its connection's part.
        for (long done = 0; done < all && done != before; done = m_done) {
            before = done;
            fprintf(stderr, "\r%ld of %ld calls ", done, all);
            std::this_thread::sleep_for(kProgressPeriod);
        }
        fprintf(stderr, "\r%*s\r", 40, "");
    }

    const Options& m_options;
    const std::string& m_binary;
    std::vector<Client*> m_clients;
    std::vector<Tally> m_tallies;  // one a connection, written by its thread
    std::string m_expected;
    std::atomic<long> m_done{0};
    double m_seconds = 0;
};

}  // namespace

bool RunBench(const Options& options, const std::string& binary, FILE* results, Outcome& outcome) {
    // Never deleted: it holds what the connections' threads may still look at.
    auto* bench = new Bench(options, binary);
    outcome = bench->Connect();
    if (outcome != Outcome::kAnswered) return false;
    bench->Run();
    return bench->Report(results, outcome);
}

}  // namespace hyrpc
