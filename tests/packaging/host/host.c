/* Loads the plug-in at the path the package gave, starts one handling object and prints what it
   saw. Built against the installed headers only. */
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include "mono_debugger_handling.h"
#include "quarn_debug_producer.h"

_Static_assert(QUARN_DEBUG_FORMAT_VERSION == 0x20000, "the producer helper is installed");

/* dlsym's object pointer, taken as a function pointer the POSIX way. */
#define LOOK_UP(library, function, name) (*(void**)(&(function)) = dlsym((library), (name)))

int main(void) {
    void* plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "host: %s\n", dlerror());
        return 1;
    }
    mdh_handle (*initialize_fn)(const char*);
    const char* (*startup_fn)(mdh_handle);
    void (*dispose_fn)(mdh_handle);
    if (!LOOK_UP(plugin, initialize_fn, "initialize") || !LOOK_UP(plugin, startup_fn, "startup") ||
        !LOOK_UP(plugin, dispose_fn, "dispose")) {
        fprintf(stderr, "host: missing export\n");
        return 1;
    }
    mdh_handle handle = initialize_fn("Orvel.Quarn.Placeholder.dll");
    printf("plugin: %s\ncommand: %s\n", PLUGIN_PATH, startup_fn(handle));
    dispose_fn(handle);
    dlclose(plugin);
    return 0;
}
