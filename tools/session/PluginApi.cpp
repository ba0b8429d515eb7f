#include "PluginApi.h"

#include <dlfcn.h>

#include "Options.h"
#include "RecordingDebugger.h"

PluginApi::PluginApi(const std::string& path) : path(path) {
    // Kept mapped after dlclose, as hosts keep their plug-ins: the plug-in's log writer lives
    // until the process ends by design.
    library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        throw InputError("cannot load the plug-in: " + std::string(dlerror()));
    }
    Bind(initialize, "initialize");
    Bind(dispose, "dispose");
    Bind(startup, "startup");
    Bind(shut_down, "shut_down");
    Bind(library_loaded, "library_loaded");
    Bind(library_unloaded, "library_unloaded");
    Bind(clear_library_metadata, "clear_library_metadata");
    Bind(register_entry, "register_entry");
    Bind(request_flush_client_debugger_knowledge, "request_flush_client_debugger_knowledge");
    Bind(jit_allocate_memory, "jit_allocate_memory");
    Bind(jit_write_to_memory, "jit_write_to_memory");
    Bind(jit_free_memory, "jit_free_memory");
    Bind(get_context_for_current_thread, "get_context_for_current_thread");
    Bind(jit_get_cpu_architecture, "jit_get_cpu_architecture");
}

PluginApi::~PluginApi() {
    dlclose(library);
}

template <class Function>
void PluginApi::Bind(Function& slot, const char* name) {
    slot = reinterpret_cast<Function>(dlsym(library, name));
    if (slot == nullptr) {
        dlclose(library);
        throw InputError(path + ": not the plug-in, it exports no '" + name + "'");
    }
}

mdh_callbacks* HandlingObject::Callbacks() const {
    return debugger_side::RecordFromCommand(plugin.startup(handle));
}
