#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "quarn_debug_producer.h"

// One copy of the programmable compiled library (libfixture_programmable_<copy>.so), opened for
// the rest of the process: its debug query answers from the description given last.
class ProgrammableLibrary {
  public:
    explicit ProgrammableLibrary(int copy) {
        const std::string path = std::string(MDH_COMPILED_DIR) + "/libfixture_programmable_" +
                                 std::to_string(copy) + ".so";
        handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            std::fprintf(stderr, "cannot load %s: %s\n", path.c_str(), dlerror());
            std::abort();
        }
        describe = reinterpret_cast<void (*)(const quarn_debug_library*)>(
            dlsym(handle, "programmable_set_library"));
    }

    void* Handle() const { return handle; }
    // The tables the library's debug query answers from, until the next call.
    void Describe(const quarn_debug_library* library) const { describe(library); }

  private:
    void* handle;
    void (*describe)(const quarn_debug_library*);
};
