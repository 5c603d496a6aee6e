// hyplatform-check: tells whether a platform library keeps what arch.h promises and is complete.

#include <stdio.h>
#include <unistd.h>

#include <string>

#include "check.h"
#include "options.h"
#include "platform.h"
#include "runner.h"

namespace {

enum ExitStatus { kAllPassed = 0, kSomeFailed = 1, kNotLoaded = 2, kBadUsage = 3 };

std::string JsonText(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        char escaped[8];
        snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
        if (c == '"' || c == '\\')
            out += {'\\', c};
        else if (static_cast<unsigned char>(c) < ' ')
            out += escaped;
        else
            out += c;
    }
    return out + '"';
}

// Writes the results as they come.
class Results {
  public:
    Results(const Options& options) : m_json(options.json), m_colour(isatty(STDOUT_FILENO) == 1) {
        if (m_json) printf("{\"library\": %s, \"results\": [", JsonText(options.library).c_str());
    }

    void Add(const char* name, const Outcome& outcome) {
        const int before = m_passed + m_failed;
        ++(outcome.passed ? m_passed : m_failed);
        if (m_json)
            printf("%s\n  {\"function\": \"%s\", \"passed\": %s, \"reason\": %s}",
                   before > 0 ? "," : "", name, outcome.passed ? "true" : "false",
                   JsonText(outcome.reason).c_str());
        else if (outcome.passed)
            printf("%spass%s  %s\n", Colour("\033[32m"), Colour("\033[0m"), name);
        else
            printf("%sFAIL%s  %s  %s\n", Colour("\033[1;31m"), Colour("\033[0m"), name,
                   outcome.reason.c_str());
        fflush(stdout);
    }

    int Finish() const {
        if (m_json)
            printf("\n], \"passed\": %d, \"failed\": %d}\n", m_passed, m_failed);
        else
            printf("%d passed, %d failed\n", m_passed, m_failed);
        if (fflush(stdout) != 0 || ferror(stdout) != 0) {
            fprintf(stderr, "hyplatform-check: cannot write the results\n");
            return kBadUsage;
        }
        return m_failed == 0 ? kAllPassed : kSomeFailed;
    }

  private:
    const char* Colour(const char* code) const { return m_colour ? code : ""; }

    bool m_json, m_colour;
    int m_passed = 0, m_failed = 0;
};

// Loading runs code of the library, too: it happens in a process of its own.
bool CanBeLoaded(const std::string& library, double limit_seconds) {
    const Outcome outcome = RunApart(
        [&] {
            const std::string problem = Load(library);
            Expect(problem.empty(), "%s", problem.c_str());
            if (IsBoundToItself())
                fprintf(stderr,
                        "hyplatform-check: warning: linked with -Bsymbolic, so programs cannot "
                        "take its functions over\n");
        },
        limit_seconds);
    if (!outcome.passed)
        fprintf(stderr, "hyplatform-check: cannot load the library: %s\n", outcome.reason.c_str());
    return outcome.passed;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const ParseResult parsed = ParseOptions(argc, argv, options);
    if (parsed != ParseResult::kRun) return parsed == ParseResult::kDone ? kAllPassed : kBadUsage;
    if (options.list) {
        for (const Function& function : options.functions) puts(function.name);
        return kAllPassed;
    }
    if (!CanBeLoaded(options.library, options.limit_seconds)) return kNotLoaded;
    Results results(options);
    for (const Function& function : options.functions)
        results.Add(function.name, RunCheck(function, options.library, options.limit_seconds));
    return results.Finish();
}
