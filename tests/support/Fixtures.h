#pragma once

#include <dlfcn.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "fixtures/FixtureTables.h"
#include "metadata/Hash128.h"
#include "mono_debugger_handling.h"

namespace testing_support {

// Built paths, set by the build.
inline std::string PluginPath() {
    return MDH_PLUGIN_PATH;
}
inline std::string CompiledLibraryPath(const std::string& name) {
    return std::string(MDH_COMPILED_DIR) + "/lib" + name + ".so";
}

// A pointer or handle as the log prints it ("%ld"). Breakpoint handles are never dereferenced.
inline std::string PointerText(const void* pointer) {
    return std::to_string(reinterpret_cast<intptr_t>(pointer));
}

// A quarn_hash128 or mdh_hash128 as a Hash128.
template <class TwoWords>
Hash128 ToHash(TwoWords h) {
    return Hash128{h.word0, h.word1};
}

// The fixtures' identities as Hash128 values.
inline const Hash128 kItemA1 = ToHash(quarn_hash128 FIXTURE_ITEM_A1);
inline const Hash128 kItemA2 = ToHash(quarn_hash128 FIXTURE_ITEM_A2);
inline const Hash128 kItemB1 = ToHash(quarn_hash128 FIXTURE_ITEM_B1);
inline const Hash128 kMethodShared = ToHash(quarn_hash128 FIXTURE_METHOD_SHARED);
inline const Hash128 kMethodA1Only = ToHash(quarn_hash128 FIXTURE_METHOD_A1_ONLY);
inline const Hash128 kMethodA2Only = ToHash(quarn_hash128 FIXTURE_METHOD_A2_ONLY);
inline const Hash128 kMethodB1Only = ToHash(quarn_hash128 FIXTURE_METHOD_B1_ONLY);

// A compiled library opened with dlopen for the test's life.
class LoadedLibrary {
  public:
    explicit LoadedLibrary(const std::string& name)
        : handle(dlopen(CompiledLibraryPath(name).c_str(), RTLD_NOW | RTLD_LOCAL), dlclose) {
        if (handle == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }

    void* Handle() const { return handle.get(); }
    template <class T>
    T* Symbol(const char* name) const {
        return reinterpret_cast<T*>(dlsym(handle.get(), name));
    }

  private:
    std::unique_ptr<void, int (*)(void*)> handle;
};

// The plug-in as a host loads it (dlopen, then kept for the process) and the exports a host
// calls, looked up by name.
struct PluginExports {
    template <class Function>
    static Function Find(const char* name) {
        static void* const plugin = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
        if (void* symbol = plugin != nullptr ? dlsym(plugin, name) : nullptr) {
            return reinterpret_cast<Function>(symbol);
        }
        throw std::runtime_error(std::string("no export ") + name);
    }
#define MDH_EXPORT(name) const decltype(&::name) name = Find<decltype(&::name)>(#name)
    MDH_EXPORT(initialize);
    MDH_EXPORT(startup);
    MDH_EXPORT(library_loaded);
    MDH_EXPORT(library_unloaded);
    MDH_EXPORT(clear_library_metadata);
    MDH_EXPORT(register_entry);
    MDH_EXPORT(request_flush_client_debugger_knowledge);
    MDH_EXPORT(shut_down);
    MDH_EXPORT(dispose);
#undef MDH_EXPORT
};

}  // namespace testing_support
