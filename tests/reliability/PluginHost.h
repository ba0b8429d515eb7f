#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "mono_debugger_handling.h"
#include "support/Fixtures.h"

namespace reliability {

// The built plug-in opened with dlopen and its exports resolved by name, as a host uses it.
class PluginHost {
    void* library;  // first: the exports below are resolved from it during construction

  public:
    PluginHost() : library(dlopen(testing_support::PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (library == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~PluginHost() { dlclose(library); }
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    decltype(&::initialize) initialize = Resolve<decltype(&::initialize)>("initialize");
    decltype(&::dispose) dispose = Resolve<decltype(&::dispose)>("dispose");
    decltype(&::startup) startup = Resolve<decltype(&::startup)>("startup");
    decltype(&::library_loaded) libraryLoaded =
        Resolve<decltype(&::library_loaded)>("library_loaded");
    decltype(&::library_unloaded) libraryUnloaded =
        Resolve<decltype(&::library_unloaded)>("library_unloaded");
    decltype(&::clear_library_metadata) clearLibraryMetadata =
        Resolve<decltype(&::clear_library_metadata)>("clear_library_metadata");
    decltype(&::register_entry) registerEntry =
        Resolve<decltype(&::register_entry)>("register_entry");
    decltype(&::request_flush_client_debugger_knowledge) requestFlush =
        Resolve<decltype(&::request_flush_client_debugger_knowledge)>(
            "request_flush_client_debugger_knowledge");

  private:
    template <class Function>
    Function Resolve(const char* name) const {
        void* symbol = dlsym(library, name);
        if (symbol == nullptr) {
            throw std::runtime_error(std::string("plug-in export missing: ") + name);
        }
        return reinterpret_cast<Function>(symbol);
    }
};

}  // namespace reliability
