#pragma once

// A handling object driven the way the debugger agent drives it: every query goes through the
// trampolines of its callbacks record, whose reply writers record what they receive. Shared by
// the query and breakpoint tests.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "queries/FixtureHashText.h"
#include "queries/LogExpectations.h"
#include "queries/Replies.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace testing_support {

// An arbitrary breakpoint handle: the library never dereferences one.
inline void* BreakpointHandle(intptr_t value) {
    return reinterpret_cast<void*>(value);
}

// A protocol version as the fetch queries receive it: versionKnown, major, minor.
struct ClientVersion {
    int known;
    int major;
    int minor;
};

class DebuggerSession {
  public:
    // `logLevel` is the text of ORVEL_QUARN_DEBUG, or null to leave logging off. The variable is
    // set, in a fresh working directory, before the object reads it.
    explicit DebuggerSession(const char* logLevel = nullptr)
        : environment("ORVEL_QUARN_DEBUG", logLevel), object("/data/Placeholder.dll") {
        InstallWriters(&Record());
    }

    MonoDebuggerHandling& Object() { return object; }
    mdh_callbacks& Record() { return *object.Callbacks(); }
    MonoDebuggerHandlingInspector Inspect() { return MonoDebuggerHandlingInspector(object); }

    // Opens a compiled library for the session's life and hands it to the object as the host's
    // library_loaded does.
    void* Load(const std::string& name) {
        libraries.push_back(std::make_unique<LoadedLibrary>(name));
        void* handle = libraries.back()->Handle();
        object.ProcessLibraryMetadata(handle);
        return handle;
    }
    const LoadedLibrary& Library(size_t index) const { return *libraries.at(index); }

    // The method list; every earlier handle becomes stale.
    std::vector<void*> FetchMethods() {
        ReplyBuffer buffer;
        Record().fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
        return buffer.Methods();
    }

    // The handle of `method` among `handles` (read from the never-freed record), or null.
    static void* HandleOf(const std::vector<void*>& handles, const Hash128& method) {
        for (void* handle : handles) {
            const auto* entry = static_cast<const MethodCacheEntry*>(handle);
            if (entry->metadata->methodHashes[entry->methodIndex] == method) {
                return handle;
            }
        }
        return nullptr;
    }
    // Fetches a fresh method list and returns the handle of `method` in it.
    void* FreshHandle(const Hash128& method) { return HandleOf(FetchMethods(), method); }

    std::vector<Reply> DebugInfo(void* method, ClientVersion version) {
        ReplyBuffer buffer;
        Record().fetchDebugInfo(&buffer, method, version.known, version.major, version.minor);
        return buffer.replies;
    }
    std::vector<Reply> MethodInfo(void* method, ClientVersion version) {
        ReplyBuffer buffer;
        Record().fetchMethodInfo(&buffer, method, version.known, version.major, version.minor);
        return buffer.replies;
    }

    void SetBreakpoint(void* method, void* breakpoint) {
        Record().breakpointNotify(1, method, 0, breakpoint);
    }
    void RemoveBreakpoint(void* breakpoint) {
        Record().breakpointNotify(0, nullptr, 0, breakpoint);
    }
    bool BreakpointSet(Hash128 entryHash) {
        return Record().testBreakpointSet(reinterpret_cast<const mdh_hash128*>(&entryHash)) == 1;
    }

    std::vector<std::string> LogLines() const { return directory.LogLines(); }
    size_t LogMark() const { return LogLines().size(); }
    // The lines written since `mark` was taken.
    std::vector<std::string> LogSince(size_t mark) const {
        std::vector<std::string> lines = LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<ptrdiff_t>(mark));
        return lines;
    }
    bool LogExists() const { return directory.LogExists(); }

  private:
    TempWorkingDirectory directory;
    ScopedEnvironment environment;
    // Declared before the object so the libraries outlive it.
    std::vector<std::unique_ptr<LoadedLibrary>> libraries;
    MonoDebuggerHandling object;
};

}  // namespace testing_support
