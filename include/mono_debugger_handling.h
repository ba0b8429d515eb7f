/*
 * Public C interface of the libMonoDebuggerHandling plug-in.
 *
 * A host dlopen()s libMonoDebuggerHandling.so, looks these fourteen functions up with dlsym()
 * (or links against them) and drives one handling object per debugging session:
 *
 *   initialize -> startup -> { library_loaded | library_unloaded | clear_library_metadata |
 *   register_entry | request_flush_client_debugger_knowledge }* -> shut_down -> dispose
 *
 * The debugger side (the managed agent) reaches the same object through the callbacks record,
 * whose address travels in the command string returned by startup().
 *
 * Compiles as C11 and as C++. Only fixed-width types cross the boundary.
 */
#ifndef MONO_DEBUGGER_HANDLING_H
#define MONO_DEBUGGER_HANDLING_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Opaque handle of one handling object; returned by initialize(), released by dispose(). */
typedef struct MdhHandlingObject* mdh_handle;

/*
 * 128-bit identifier of compiled items, methods and entry points: 16 bytes, word0 first, in the
 * machine's little-endian order. Passed by value it travels as two 64-bit integer arguments.
 */
typedef struct mdh_hash128 {
    uint64_t word0; /* bytes 0 to 7 */
    uint64_t word1; /* bytes 8 to 15 */
} mdh_hash128;

/* Host callback of an entry point without a stub: callback(context, 32, target). */
typedef void (*mdh_entry_callback)(void* context, int32_t kind, void* target);

/*
 * The callbacks record: 160 bytes, twenty 8-byte function pointers, zero when created.
 * Slots marked "library" hold trampolines written by initialize(); slots marked "debugger side"
 * are filled by the managed agent after it has read the record's address from the command
 * string. Method handles (void* method) are opaque to the debugger side.
 */
typedef struct mdh_callbacks {
    /* library: finish the set-up of the record */
    void (*finishSetup)(void);
    /* library: 1 when a source path is compiled natively */
    int32_t (*isFileQuarned)(int32_t ignoreCase, const char* path);
    /* library: breakpoint set (isSet != 0) or removed */
    void (*breakpointNotify)(int32_t isSet, void* method, int64_t unused, void* breakpoint);
    /* library: the method list (issues fresh method handles) */
    void (*fetchMethods)(void* buffer, void* idContext, int32_t idArgument, int32_t, int32_t,
                         int32_t);
    /* library: the file list */
    void (*fetchFiles)(void* buffer, uint32_t value, int32_t, int32_t, int32_t);
    /* library: files, digests and sequence points of a method, by protocol version */
    void (*fetchDebugInfo)(void* buffer, void* method, int32_t versionKnown, int32_t major,
                           int32_t minor);
    /* library: attributes and token of a method */
    void (*fetchMethodInfo)(void* buffer, void* method, int32_t versionKnown, int32_t major,
                            int32_t minor);
    /* library: signature of a method (always empty) */
    void (*fetchParamInfo)(void* buffer, void* method, int32_t versionKnown, int32_t major,
                           int32_t minor);
    /* library: name of a method (always the empty string) */
    void (*fetchMethodName)(void* buffer, void* method, int32_t versionKnown, int32_t major,
                            int32_t minor);
    /* debugger side: reply writers, called while the library holds its lock; they must not
       call back into the library */
    void (*writeByte)(void* buffer, uint8_t value);
    void (*writeInt)(void* buffer, int32_t value);
    void (*writeId)(void* buffer, int32_t id);
    void (*writeString)(void* buffer, const char* text);
    void (*writeMethodId)(void* buffer, void* idContext, int32_t idArgument, void* method);
    /* debugger side: called by shut_down() when not null */
    void (*shutdownNotify)(void);
    /* debugger side: called on every knowledge flush when not null; cleared by shut_down() */
    void (*flushClientKnowledge)(void);
    /* library: test hooks over the breakpoint and entry point bookkeeping */
    int32_t (*testFetchEntryPointHash)(void* method, mdh_hash128* result);
    int32_t (*testFetchMethodHash)(void* method, mdh_hash128* result);
    int32_t (*testBreakpointSet)(const mdh_hash128* entryHash);
    uint32_t (*testFetchEntryPointCountForHash)(const mdh_hash128* entryHash);
} mdh_callbacks;

/* The layout is an ABI shared with the debugger side: pinned here, byte for byte. */
#ifdef __cplusplus
#define MDH_STATIC_ASSERT static_assert
#else
#define MDH_STATIC_ASSERT _Static_assert
#endif
MDH_STATIC_ASSERT(sizeof(mdh_hash128) == 16, "mdh_hash128 is 16 bytes");
MDH_STATIC_ASSERT(offsetof(mdh_hash128, word1) == 8, "word1 at byte 8");
MDH_STATIC_ASSERT(sizeof(mdh_callbacks) == 160, "callbacks record is 160 bytes");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, finishSetup) == 0, "slot 0");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, isFileQuarned) == 8, "slot 1");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, breakpointNotify) == 16, "slot 2");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchMethods) == 24, "slot 3");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchFiles) == 32, "slot 4");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchDebugInfo) == 40, "slot 5");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchMethodInfo) == 48, "slot 6");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchParamInfo) == 56, "slot 7");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, fetchMethodName) == 64, "slot 8");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, writeByte) == 72, "slot 9");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, writeInt) == 80, "slot 10");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, writeId) == 88, "slot 11");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, writeString) == 96, "slot 12");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, writeMethodId) == 104, "slot 13");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, shutdownNotify) == 112, "slot 14");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, flushClientKnowledge) == 120, "slot 15");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, testFetchEntryPointHash) == 128, "slot 16");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, testFetchMethodHash) == 136, "slot 17");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, testBreakpointSet) == 144, "slot 18");
MDH_STATIC_ASSERT(offsetof(mdh_callbacks, testFetchEntryPointCountForHash) == 152, "slot 19");

/* ---- Lifecycle ------------------------------------------------------------------------- */

/* Creates a handling object. The path (of the placeholder assembly) must not be null. */
mdh_handle initialize(const char* placeholderAssemblyPath);
/* Destroys the object; every trampoline address becomes invalid. A null handle is ignored. */
void dispose(mdh_handle handle);
/* The command string for the managed side, owned by the object, valid until dispose(). */
const char* startup(mdh_handle handle);
/* Calls the debugger side's shutdownNotify and stops further flush requests. */
void shut_down(mdh_handle handle);

/* ---- Compiled libraries and entry points ----------------------------------------------- */

/* Reads the debug tables of a compiled library (a dlopen() handle) through
   "quarn.debug_query". */
void library_loaded(mdh_handle handle, void* library);
/* Drops the items and entry points of a library; call before dlclose(). */
void library_unloaded(mdh_handle handle, void* library);
/* Drops every item and entry point; breakpoints are kept. */
void clear_library_metadata(mdh_handle handle);
/*
 * Registers one compiled entry point. Give a jump stub (target word at byte 2, alternate at
 * byte 16) or, with stub null, a callback told callback(callbackContext, 32, target).
 */
void register_entry(mdh_handle handle, void* library, mdh_hash128 entryHash, void* native,
                    void* stub, mdh_entry_callback callback, void* callbackContext);
/* Asks the debugger side to flush what it knows, then logs the state dump. */
void request_flush_client_debugger_knowledge(mdh_handle handle);

/* ---- Helpers that take no handle ------------------------------------------------------- */

/* Maps readable, writable and executable memory; returns the platform's result unchanged
   (MAP_FAILED, not null, on failure). */
void* jit_allocate_memory(uint32_t size);
void jit_write_to_memory(void* destination, const void* source, uint32_t size);
void jit_free_memory(void* memory, uint32_t size);
/* Address of the calling thread's context chain pointer (null on a fresh thread). */
void** get_context_for_current_thread(void);
/* 0: x86-64. */
int32_t jit_get_cpu_architecture(void);

#ifdef __cplusplus
}
#endif

#endif /* MONO_DEBUGGER_HANDLING_H */
