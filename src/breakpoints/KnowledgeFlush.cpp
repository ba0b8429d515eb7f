// request_flush_client_debugger_knowledge: the debugger side's flush followed by the state dump.
#include "plugin/MonoDebuggerHandling.h"

// Asks the debugger side to flush what it knows, then dumps the state. Runs with the mutex
// released (the dump takes it).
void MonoDebuggerHandling::RequestFlushClientDebuggerKnowledge() {
    Log(1, "RequestFlushClientDebuggerKnowledge");
    if (callbacks->flushClientKnowledge != nullptr) {
        callbacks->flushClientKnowledge();
    }
    DumpState();
}
