/* Loads the plug-in at the path the package gave, starts one handling object and prints what it
   saw. Built against the installed headers only. */
#include <dlfcn.h>
#include <stdio.h>

#include "mono_debugger_handling.h"
#include "quarn_debug_producer.h" /* installed beside it for compiler back ends */

int main(void) {
    void* plugin = dlopen(PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    /* Typed by the installed declarations; dlsym's object pointers stored the POSIX way. */
    __typeof__(&initialize) initialize_fn;
    __typeof__(&startup) startup_fn;
    __typeof__(&dispose) dispose_fn;
    if (plugin == NULL || !(*(void**)(&initialize_fn) = dlsym(plugin, "initialize")) ||
        !(*(void**)(&startup_fn) = dlsym(plugin, "startup")) ||
        !(*(void**)(&dispose_fn) = dlsym(plugin, "dispose"))) {
        fprintf(stderr, "host: %s\n", dlerror());
        return 1;
    }
    mdh_handle handle = initialize_fn("Orvel.Quarn.Placeholder.dll");
    printf("plugin: %s\ncommand: %s\n", PLUGIN_PATH, startup_fn(handle));
    dispose_fn(handle);
    return dlclose(plugin);
}
