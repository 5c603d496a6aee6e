// Runs each check in a process of its own, so that one that crashes or hangs takes nothing along.
#ifndef HYPLATFORM_CHECK_RUNNER_H
#define HYPLATFORM_CHECK_RUNNER_H

#include <functional>
#include <string>
#include <vector>

struct Function {
    const char* name;
    void (*check)();  // null: it only has to be there
};

// All functions, in the order of the headers.
const std::vector<Function>& Functions();

struct Outcome {
    bool passed = false;
    std::string reason;  // why it did not pass
};

// Runs `body` in a child process that may take so many seconds. Nothing is left of it afterwards.
Outcome RunApart(const std::function<void()>& body, double limit_seconds);

// Loads the library and runs the check of one function.
Outcome RunCheck(const Function& function, const std::string& library, double limit_seconds);

#endif
