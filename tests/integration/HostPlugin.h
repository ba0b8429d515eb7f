#pragma once

// The plug-in as a host sees it: the shared object opened with dlopen and the exports that drive
// a debugging run looked up by name. Nothing of the library's internals is used.

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "mono_debugger_handling.h"

namespace testing_support {

class HostPlugin {
    // First: the exports below are looked up in it as they are initialised.
    void* library;

  public:
    explicit HostPlugin(const std::string& path)
        : library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (library == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~HostPlugin() { dlclose(library); }
    HostPlugin(const HostPlugin&) = delete;
    HostPlugin& operator=(const HostPlugin&) = delete;

    decltype(&::initialize) initialize = Export<decltype(::initialize)>("initialize");
    decltype(&::dispose) dispose = Export<decltype(::dispose)>("dispose");
    decltype(&::startup) startup = Export<decltype(::startup)>("startup");
    decltype(&::shut_down) shut_down = Export<decltype(::shut_down)>("shut_down");
    decltype(&::library_loaded) library_loaded =
        Export<decltype(::library_loaded)>("library_loaded");
    decltype(&::library_unloaded) library_unloaded =
        Export<decltype(::library_unloaded)>("library_unloaded");
    decltype(&::clear_library_metadata) clear_library_metadata =
        Export<decltype(::clear_library_metadata)>("clear_library_metadata");
    decltype(&::register_entry) register_entry =
        Export<decltype(::register_entry)>("register_entry");
    decltype(&::request_flush_client_debugger_knowledge) request_flush_client_debugger_knowledge =
        Export<decltype(::request_flush_client_debugger_knowledge)>(
            "request_flush_client_debugger_knowledge");

  private:
    template <class Function>
    Function* Export(const char* name) const {
        auto* function = reinterpret_cast<Function*>(dlsym(library, name));
        if (function == nullptr) {
            throw std::runtime_error(std::string("missing export ") + name);
        }
        return function;
    }
};

}  // namespace testing_support
