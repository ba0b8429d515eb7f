// fetchMethodInfo, fetchParamInfo and fetchMethodName: the fixed attributes, empty signature and
// empty name that every compiled method reports.
#include "plugin/MonoDebuggerHandling.h"
#include "queries/ProtocolVersion.h"

using logfmt::Ptr;

namespace {
// Private | HideBySig in the ECMA-335 method attribute flags.
constexpr int32_t kMethodAttributes = 0x81;
// The type id of the return type in the parameter reply.
constexpr int32_t kReturnTypeId = 1;
}  // namespace

void MonoDebuggerHandling::QuarnFetchMethodInfo(void* buffer, void* method, int versionKnown,
                                                int majorVersion, int minorVersion) {
    Log(1, "FetchMethodInfo : ", Ptr(buffer), " ", Ptr(method));
    MutexLock lock(mutex);
    MethodCacheEntry* entry;
    QuarnDebugMetadata* item;
    // An invalid handle gets token 0, silently.
    const uint32_t token =
        MethodPtrToMethodCacheEntry(method, entry, item) ? entry->methodToken : 0;
    const ProtocolVersion version{versionKnown, majorVersion, minorVersion};
    callbacks->writeInt(buffer, kMethodAttributes);
    callbacks->writeInt(buffer, 0);  // implementation flags
    callbacks->writeInt(buffer, static_cast<int32_t>(token));
    if (version.AtLeast2(12)) {
        callbacks->writeByte(buffer, 0);  // no generic attributes
        callbacks->writeId(buffer, 0);    // no generic method definition
    }
    if (version.AtLeast2(15)) {
        callbacks->writeInt(buffer, 0);  // no generic arguments
    }
}

// Compiled methods carry no signature: no lock, the handle is not looked at.
void MonoDebuggerHandling::QuarnFetchParamInfo(void* buffer, void* method, int, int, int) {
    Log(1, "FetchParamInfo : ", Ptr(buffer), " ", Ptr(method));
    callbacks->writeInt(buffer, 0);  // calling convention
    callbacks->writeInt(buffer, 0);  // parameters
    callbacks->writeInt(buffer, 0);  // generic parameters
    callbacks->writeId(buffer, kReturnTypeId);
}

// Compiled methods carry no name: no lock, the handle is not looked at.
void MonoDebuggerHandling::QuarnFetchMethodName(void* buffer, void* method, int, int, int) {
    Log(1, "FetchMethodName : ", Ptr(buffer), " ", Ptr(method));
    callbacks->writeString(buffer, "");
}
