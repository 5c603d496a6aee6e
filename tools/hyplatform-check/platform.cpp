#include "platform.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include "check.h"

Platform lib;

namespace {

void* g_library;

#define HYPLATFORM_NAME(name) #name,
const char* const kNames[] = {HYPLATFORM_WRITTEN(HYPLATFORM_NAME)};
#undef HYPLATFORM_NAME

#define HYPLATFORM_INDEX(name) kIndexOf_##name,
enum Index { HYPLATFORM_WRITTEN(HYPLATFORM_INDEX) };
#undef HYPLATFORM_INDEX

// Stands in for a missing function.
template <int Index, class Function>
struct Absent;

template <int Index, class Result, class... Args>
struct Absent<Index, Result (*)(Args...)> {
    static Result Call(Args...) {
        Fail("not checked: it takes %s, which is missing", kNames[Index]);
    }
};

template <int Index, class Function>
void Find(Function* function) {
    void* symbol = dlsym(g_library, kNames[Index]);
    *function =
        symbol != nullptr ? reinterpret_cast<Function>(symbol) : &Absent<Index, Function>::Call;
}

}  // namespace

std::string Load(const std::string& library) {
    g_library = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (g_library == nullptr) return dlerror();
#define HYPLATFORM_FIND(name) Find<kIndexOf_##name>(&lib.name);
    HYPLATFORM_WRITTEN(HYPLATFORM_FIND)
#undef HYPLATFORM_FIND
    return {};
}

bool IsExported(const char* function) { return dlsym(g_library, function) != nullptr; }

bool IsBoundToItself() {
    link_map* map = nullptr;
    if (dlinfo(g_library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return false;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_SYMBOLIC) return true;
        if (entry->d_tag == DT_FLAGS && (entry->d_un.d_val & DF_SYMBOLIC) != 0) return true;
    }
    return false;
}
