#pragma once

#include <string>

#include "mono_debugger_handling.h"

// The plug-in as a host sees it: a dlopen()ed shared object and its fourteen exports, looked up
// with dlsym. Nothing of the plug-in is linked into this program.
class PluginApi {
  public:
    // Throws InputError when the file cannot be loaded or lacks an export.
    explicit PluginApi(const std::string& path);
    ~PluginApi();
    PluginApi(const PluginApi&) = delete;
    PluginApi& operator=(const PluginApi&) = delete;

    const std::string& Path() const { return path; }

    decltype(&::initialize) initialize = nullptr;
    decltype(&::dispose) dispose = nullptr;
    decltype(&::startup) startup = nullptr;
    decltype(&::shut_down) shut_down = nullptr;
    decltype(&::library_loaded) library_loaded = nullptr;
    decltype(&::library_unloaded) library_unloaded = nullptr;
    decltype(&::clear_library_metadata) clear_library_metadata = nullptr;
    decltype(&::register_entry) register_entry = nullptr;
    decltype(&::request_flush_client_debugger_knowledge) request_flush_client_debugger_knowledge =
        nullptr;
    decltype(&::jit_allocate_memory) jit_allocate_memory = nullptr;
    decltype(&::jit_write_to_memory) jit_write_to_memory = nullptr;
    decltype(&::jit_free_memory) jit_free_memory = nullptr;
    decltype(&::get_context_for_current_thread) get_context_for_current_thread = nullptr;
    decltype(&::jit_get_cpu_architecture) jit_get_cpu_architecture = nullptr;

  private:
    template <class Function>
    void Bind(Function& slot, const char* name);

    std::string path;
    void* library = nullptr;
};

// A handling object of the plug-in, disposed when it goes out of scope.
class HandlingObject {
  public:
    HandlingObject(const PluginApi& plugin, const char* placeholderAssemblyPath)
        : plugin(plugin), handle(plugin.initialize(placeholderAssemblyPath)) {}
    ~HandlingObject() { plugin.dispose(handle); }
    HandlingObject(const HandlingObject&) = delete;
    HandlingObject& operator=(const HandlingObject&) = delete;

    mdh_handle Handle() const { return handle; }
    // The callbacks record whose address the command string of startup() carries.
    mdh_callbacks* Callbacks() const;

  private:
    const PluginApi& plugin;
    mdh_handle handle;
};
