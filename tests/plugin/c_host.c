/*
 * A minimal host written in C11 against the public header only: loads the plug-in given as the
 * first argument, creates a handling object, prints the command string and the callbacks
 * record, shuts it down and disposes of it. Exits with 0 only when the record looks as the
 * debugger side expects it right after start-up.
 */
#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mono_debugger_handling.h"

typedef mdh_handle (*initialize_function)(const char*);
typedef const char* (*startup_function)(mdh_handle);
typedef void (*handle_function)(mdh_handle);

static const char kCommandPrefix[] = "$load_debugger_interface |CB|";
enum { kSlotCount = sizeof(mdh_callbacks) / sizeof(void*) };

/* Looks an export up; ISO C has no cast from object to function pointer, so copy the bits. */
static int resolve(void* library, const char* name, void* function, size_t size) {
    void* symbol = dlsym(library, name);
    if (symbol == NULL) {
        fprintf(stderr, "missing export %s\n", name);
        return 0;
    }
    memcpy(function, &symbol, size);
    return 1;
}

/* The record's slots as plain words, in record order. */
static void read_slots(const mdh_callbacks* record, uint64_t slots[kSlotCount]) {
    memcpy(slots, record, sizeof(mdh_callbacks));
}

/* Prints the record and checks slot 0 (library) and slots 9 to 15 (debugger side). */
static int check_record(const mdh_callbacks* record) {
    uint64_t slots[kSlotCount];
    int ok = 1;
    int slot;
    read_slots(record, slots);
    for (slot = 0; slot < kSlotCount; ++slot) {
        const int debuggerSide = slot >= 9 && slot <= 15;
        printf("slot %2d at byte %3d: 0x%016" PRIx64 "\n", slot, slot * 8, slots[slot]);
        if ((slot == 0 && slots[slot] == 0) || (debuggerSide && slots[slot] != 0)) {
            fprintf(stderr, "unexpected value in slot %d\n", slot);
            ok = 0;
        }
    }
    return ok;
}

static int run_session(initialize_function initialize_fn, startup_function startup_fn,
                       handle_function shut_down_fn, handle_function dispose_fn) {
    mdh_handle handle = initialize_fn("/host/Orvel.Quarn.Placeholder.dll");
    const char* command = startup_fn(handle);
    int ok = strncmp(command, kCommandPrefix, strlen(kCommandPrefix)) == 0;
    printf("%s\n", command);
    if (ok) {
        const mdh_callbacks* record =
            (const mdh_callbacks*)(uintptr_t)strtoull(command + strlen(kCommandPrefix), NULL, 10);
        ok = check_record(record);
    } else {
        fprintf(stderr, "command string does not start with \"%s\"\n", kCommandPrefix);
    }
    shut_down_fn(handle);
    dispose_fn(handle);
    return ok;
}

int main(int argc, char** argv) {
    void* library;
    initialize_function initialize_fn;
    startup_function startup_fn;
    handle_function shut_down_fn;
    handle_function dispose_fn;
    int ok;

    if (argc != 2) {
        fprintf(stderr, "usage: %s <path of libMonoDebuggerHandling.so>\n", argv[0]);
        return 2;
    }
    library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    ok = resolve(library, "initialize", &initialize_fn, sizeof initialize_fn) &&
         resolve(library, "startup", &startup_fn, sizeof startup_fn) &&
         resolve(library, "shut_down", &shut_down_fn, sizeof shut_down_fn) &&
         resolve(library, "dispose", &dispose_fn, sizeof dispose_fn) &&
         run_session(initialize_fn, startup_fn, shut_down_fn, dispose_fn);
    dlclose(library);
    return ok ? 0 : 1;
}
