// The one place that decides which wrapper, with how many arguments, each library slot of the
// callbacks record gets, and therefore where each trampoline lands in the code buffer.
#include "plugin/MonoDebuggerHandling.h"

namespace {

template <class Slot>
void Store(Slot& slot, void* trampolineEntry) {
    slot = reinterpret_cast<Slot>(trampolineEntry);
}

template <class Function>
void* Address(Function function) {
    return reinterpret_cast<void*>(function);
}

}  // namespace

// Fills the library's slots of the callbacks record. The order fixes where each trampoline
// lands in the code buffer (offsets 8, 42, 82, 131, 184, 233, 282, 331, 380, 426, 466, 506,
// 543; 580 bytes used), which the debugger side never relies on but tests pin.
void MonoDebuggerHandling::GenerateCallbackTrampolines() {
    Trampoline<MonoDebuggerHandling>& t = *trampoline;
    CallbacksRecord& r = *callbacks;
    Store(r.finishSetup, t.GenerateTrampoline0Params(Address(&CQuarnFinishSetup)));
    Store(r.isFileQuarned, t.GenerateTrampoline2Params(Address(&CQuarnIsFileQuarned)));
    Store(r.fetchFiles, t.GenerateTrampoline5Params(Address(&CQuarnFetchFiles)));
    Store(r.fetchMethods, t.GenerateTrampoline6Params(Address(&CQuarnFetchMethods)));
    Store(r.fetchDebugInfo, t.GenerateTrampoline5Params(Address(&CQuarnFetchDebugInfo)));
    Store(r.fetchMethodInfo, t.GenerateTrampoline5Params(Address(&CQuarnFetchMethodInfo)));
    Store(r.fetchParamInfo, t.GenerateTrampoline5Params(Address(&CQuarnFetchParamInfo)));
    Store(r.fetchMethodName, t.GenerateTrampoline5Params(Address(&CQuarnFetchMethodName)));
    Store(r.breakpointNotify, t.GenerateTrampoline4Params(Address(&CQuarnBreakpointNotify)));
    Store(r.testFetchEntryPointHash,
          t.GenerateTrampoline2Params(Address(&CTestFetchEntryPointHash)));
    Store(r.testFetchMethodHash, t.GenerateTrampoline2Params(Address(&CTestFetchMethodHash)));
    Store(r.testBreakpointSet, t.GenerateTrampoline1Params(Address(&CTestBreakpointSet)));
    Store(r.testFetchEntryPointCountForHash,
          t.GenerateTrampoline1Params(Address(&CTestFetchEntryPointCountForHash)));
}
