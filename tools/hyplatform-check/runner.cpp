#include "runner.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "check.h"
#include "platform.h"

namespace {

void MakeReport() {
    void* shared =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        perror("hyplatform-check: cannot get memory");
        exit(2);
    }
    report = static_cast<Report*>(shared);
}

// What the check starts belongs to its group and ends with it; a crash leaves no core file, and a
// sanitizer does not turn it into an exit.
void BecomeChild() {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) signal(number, SIG_DFL);
    // What the library prints does not belong among the results.
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

// Whether the child has ended by itself.
bool AwaitEnd(pid_t child, double limit_seconds, int* status) {
    const double end = Seconds() + limit_seconds;
    while (waitpid(child, status, WNOHANG) == 0) {
        if (Seconds() > end) return false;
        SleepMs(1);
    }
    return true;
}

std::string While() {
    return report->step[0] != '\0' ? std::string(" while checking ") + report->step : "";
}

std::string Reason(int status) {
    if (report->reason[0] != '\0') return report->reason;
    if (WIFSIGNALED(status))
        return "crashed with signal " + std::to_string(WTERMSIG(status)) + While();
    return "ended the process with status " + std::to_string(WEXITSTATUS(status)) + While();
}

}  // namespace

const std::vector<Function>& Functions() {
#define HYPLATFORM_CHECKED(name) {#name, check_##name},
#define HYPLATFORM_PRESENT(name) {#name, nullptr},
    static const std::vector<Function> functions = {HYPLATFORM_WRITTEN(HYPLATFORM_CHECKED)
                                                        HYPLATFORM_COMMON(HYPLATFORM_PRESENT)};
#undef HYPLATFORM_CHECKED
#undef HYPLATFORM_PRESENT
    return functions;
}

Outcome RunApart(const std::function<void()>& body, double limit_seconds) {
    if (report == nullptr) MakeReport();
    *report = {};
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) return {false, "not checked: the system gives no process"};
    if (child == 0) {
        BecomeChild();
        body();
        _exit(0);
    }
    setpgid(child, child);
    int status = 0;
    const bool ended = AwaitEnd(child, limit_seconds, &status);
    kill(-child, SIGKILL);
    if (!ended) {
        waitpid(child, &status, 0);
        char text[48];
        snprintf(text, sizeof text, "no end within %g s", limit_seconds);
        return {false, text + While()};
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {true, {}};
    return {false, Reason(status)};
}

Outcome RunCheck(const Function& function, const std::string& library, double limit_seconds) {
    const auto body = [&] {
        const std::string problem = Load(library);
        Expect(problem.empty(), "cannot be loaded: %s", problem.c_str());
        Expect(IsExported(function.name), "not exported");
        if (function.check != nullptr) function.check();
    };
    return RunApart(body, limit_seconds);
}
