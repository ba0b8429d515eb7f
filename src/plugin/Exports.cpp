// The fourteen C exports of the plug-in. Each forwards to one member; none takes the lock.
#include "mono_debugger_handling.h"
#include "plugin/MonoDebuggerHandling.h"
#include "trampoline/ExecutableMemory.h"

#define MDH_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Per-thread chain pointer for the host and compiled code; the library never touches it.
// Default TLS model: initial-exec could make dlopen fail for want of static TLS space.
thread_local void* contextChainPtr = nullptr;

MonoDebuggerHandling* Object(mdh_handle handle) {
    return reinterpret_cast<MonoDebuggerHandling*>(handle);
}

}  // namespace

// The object's memory is obtained before the path is read, so a null path throws
// std::logic_error out of here after that memory is released.
MDH_EXPORT mdh_handle initialize(const char* placeholderAssemblyPath) {
    return reinterpret_cast<mdh_handle>(
        new MonoDebuggerHandling(std::string(placeholderAssemblyPath)));
}

MDH_EXPORT void dispose(mdh_handle handle) {
    delete Object(handle);
}

MDH_EXPORT const char* startup(mdh_handle handle) {
    return Object(handle)->FetchDebuggerEnableCommand();
}

MDH_EXPORT void shut_down(mdh_handle handle) {
    Object(handle)->Shutdown();
}

MDH_EXPORT void library_loaded(mdh_handle handle, void* library) {
    Object(handle)->ProcessLibraryMetadata(library);
}

MDH_EXPORT void library_unloaded(mdh_handle handle, void* library) {
    Object(handle)->UnloadLibraryMetadata(library);
}

MDH_EXPORT void clear_library_metadata(mdh_handle handle) {
    Object(handle)->ClearLibraryMetadata();
}

MDH_EXPORT void register_entry(mdh_handle handle, void* library, mdh_hash128 entryHash,
                               void* native, void* stub, mdh_entry_callback callback,
                               void* callbackContext) {
    Object(handle)->RegisterEntryPoint(library, Hash128{entryHash.word0, entryHash.word1}, native,
                                       stub, reinterpret_cast<void*>(callback), callbackContext);
}

MDH_EXPORT void request_flush_client_debugger_knowledge(mdh_handle handle) {
    Object(handle)->RequestFlushClientDebuggerKnowledge();
}

// Sizes are unsigned 32-bit, widened by zero-extension: 4 GiB and more cannot be asked for.
MDH_EXPORT void* jit_allocate_memory(uint32_t size) {
    return JitAllocateMemory(size);
}

MDH_EXPORT void jit_write_to_memory(void* destination, const void* source, uint32_t size) {
    JitBeginWriteToMemory();
    JitWriteToMemory(static_cast<uint8_t*>(destination), source, size);
    JitEndWriteToMemory(static_cast<uint8_t*>(destination), size);
}

MDH_EXPORT void jit_free_memory(void* memory, uint32_t size) {
    JitFreeMemory(static_cast<uint8_t*>(memory), size);
}

MDH_EXPORT void** get_context_for_current_thread(void) {
    return &contextChainPtr;
}

// 0 is what this x86-64 build reports.
MDH_EXPORT int32_t jit_get_cpu_architecture(void) {
    return 0;
}
