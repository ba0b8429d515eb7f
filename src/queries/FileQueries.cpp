// isFileQuarned and fetchFiles: the debugger side's questions about source files.
#include <cstring>

#include "plugin/MonoDebuggerHandling.h"
#include "queries/FileMatcher.h"

using logfmt::Int;
using logfmt::Ptr;

int MonoDebuggerHandling::QuarnIsFileQuarned(int ignoreCase, const char* path) {
    MutexLock lock(mutex);
    const std::string_view wanted(path);
    const bool found = fileNames.Candidates(wanted, ignoreCase != 0, [&](std::string_view name) {
        return FileNameMatches(name, wanted, ignoreCase != 0);
    });
    Log(1, "IsQuarned : ", Int{ignoreCase}, " ", wanted, found ? " : TRUE" : " : FALSE");
    return found ? 1 : 0;
}

void MonoDebuggerHandling::QuarnFetchFiles(void* buffer, unsigned int value, int, int, int) {
    Log(1, "FetchFiles : ", Ptr(buffer), " ", logfmt::UInt{value}, " ");
    MutexLock lock(mutex);
    const auto count = static_cast<int32_t>(fileNames.size());
    Log(1, "    TotalFiles : ", Int{count});
    callbacks->writeInt(buffer, count);
    fileNames.ForEach([&](const char* name) {
        callbacks->writeString(buffer, name);
        Log(3, "        Path : ", name);
    });
}
