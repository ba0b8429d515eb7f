// C-level wrappers: plain functions a trampoline can call, each forwarding its arguments
// unchanged to the member of the same name without the leading C.
#include "plugin/MonoDebuggerHandling.h"

void MonoDebuggerHandling::CQuarnFinishSetup(MonoDebuggerHandling* self) {
    self->QuarnFinishSetup();
}

int MonoDebuggerHandling::CQuarnIsFileQuarned(MonoDebuggerHandling* self, int ignoreCase,
                                              const char* path) {
    return self->QuarnIsFileQuarned(ignoreCase, path);
}

void MonoDebuggerHandling::CQuarnFetchFiles(MonoDebuggerHandling* self, void* buffer,
                                            unsigned int value, int a, int b, int c) {
    self->QuarnFetchFiles(buffer, value, a, b, c);
}

void MonoDebuggerHandling::CQuarnFetchMethods(MonoDebuggerHandling* self, void* buffer,
                                              void* idContext, int idArgument, int a, int b,
                                              int c) {
    self->QuarnFetchMethods(buffer, idContext, idArgument, a, b, c);
}

void MonoDebuggerHandling::CQuarnFetchDebugInfo(MonoDebuggerHandling* self, void* buffer,
                                                void* method, int versionKnown, int majorVersion,
                                                int minorVersion) {
    self->QuarnFetchDebugInfo(buffer, method, versionKnown, majorVersion, minorVersion);
}

void MonoDebuggerHandling::CQuarnFetchMethodInfo(MonoDebuggerHandling* self, void* buffer,
                                                 void* method, int versionKnown, int majorVersion,
                                                 int minorVersion) {
    self->QuarnFetchMethodInfo(buffer, method, versionKnown, majorVersion, minorVersion);
}

void MonoDebuggerHandling::CQuarnFetchParamInfo(MonoDebuggerHandling* self, void* buffer,
                                                void* method, int versionKnown, int majorVersion,
                                                int minorVersion) {
    self->QuarnFetchParamInfo(buffer, method, versionKnown, majorVersion, minorVersion);
}

void MonoDebuggerHandling::CQuarnFetchMethodName(MonoDebuggerHandling* self, void* buffer,
                                                 void* method, int versionKnown, int majorVersion,
                                                 int minorVersion) {
    self->QuarnFetchMethodName(buffer, method, versionKnown, majorVersion, minorVersion);
}

void MonoDebuggerHandling::CQuarnBreakpointNotify(MonoDebuggerHandling* self, int isSet,
                                                  void* method, int64_t unused, void* breakpoint) {
    self->QuarnBreakpointNotify(isSet, method, unused, breakpoint);
}

int MonoDebuggerHandling::CTestFetchEntryPointHash(MonoDebuggerHandling* self, void* method,
                                                   Hash128* result) {
    return self->TestFetchEntryPointHash(method, result);
}

int MonoDebuggerHandling::CTestFetchMethodHash(MonoDebuggerHandling* self, void* method,
                                               Hash128* result) {
    return self->TestFetchMethodHash(method, result);
}

int MonoDebuggerHandling::CTestBreakpointSet(MonoDebuggerHandling* self, Hash128* entryHash) {
    return self->TestBreakpointSet(entryHash);
}

uint32_t MonoDebuggerHandling::CTestFetchEntryPointCountForHash(MonoDebuggerHandling* self,
                                                                Hash128* entryHash) {
    return self->TestFetchEntryPointCountForHash(entryHash);
}
