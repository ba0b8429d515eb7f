/* A host in strict C11 against the public headers alone: one session from initialize to dispose
   of the plug-in named on the command line. Exits with 0 only when the record named by the
   command string is as right after start-up. Also built against an installed package. */
#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include "mono_debugger_handling.h"
#include "quarn_debug_producer.h" /* installed beside it for compiler back ends */

int main(int argc, char** argv) {
    static const char* const kNames[] = {"initialize", "startup", "shut_down", "dispose"};
    static const char kPrefix[] = "$load_debugger_interface |CB|";
    __typeof__(&initialize) initialize_fn;
    __typeof__(&startup) startup_fn;
    __typeof__(&shut_down) shut_down_fn;
    __typeof__(&dispose) dispose_fn;
    void* functions[] = {&initialize_fn, &startup_fn, &shut_down_fn, &dispose_fn};
    void* library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    for (int i = 0; i < 4; ++i) {
        void* symbol = library != NULL ? dlsym(library, kNames[i]) : NULL;
        if (symbol == NULL) {
            return 2;
        }
        memcpy(functions[i], &symbol, sizeof symbol); /* ISO C has no object-to-function cast */
    }
    mdh_handle handle = initialize_fn("/host/Orvel.Quarn.Placeholder.dll");
    const char* command = startup_fn(handle);
    int ok = strncmp(command, kPrefix, strlen(kPrefix)) == 0;
    const mdh_callbacks* record =
        ok ? (const mdh_callbacks*)(uintptr_t)strtoull(command + strlen(kPrefix), NULL, 10) : NULL;
    /* Set by the library: the first slot. Left to the debugger side: slots 9 to 15. */
    ok = ok && record->finishSetup != NULL && record->writeByte == NULL &&
         record->flushClientKnowledge == NULL;
    shut_down_fn(handle);
    dispose_fn(handle);
    dlclose(library);
    return ok ? 0 : 1;
}
