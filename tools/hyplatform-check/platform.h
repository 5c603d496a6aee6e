// The platform library under test. It is loaded in the process of each check anew, never linked.
#ifndef HYPLATFORM_CHECK_PLATFORM_H
#define HYPLATFORM_CHECK_PLATFORM_H

#include <hyplatform/arch.h>

#include <string>

#include "functions.h"

// A pointer for each function that has a check, under the function's own name: lib.arch_time().
struct Platform {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a name in parentheses declares nothing
#define HYPLATFORM_MEMBER(name) decltype(&::name) name;
    HYPLATFORM_WRITTEN(HYPLATFORM_MEMBER)
#undef HYPLATFORM_MEMBER
};

// What Load found. A function that is missing is replaced by one that fails the check which calls
// it and says why.
extern Platform lib;

// Loads the library into this process. The empty text, or why that was not possible.
std::string Load(const std::string& library);

// Whether the loaded library has the function.
bool IsExported(const char* function);

// Whether the loaded library was linked with -Bsymbolic.
bool IsBoundToItself();

#endif
