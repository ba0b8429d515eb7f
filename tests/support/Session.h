#pragma once

// A handling object driven as the debugger agent drives it: every query goes through the
// trampolines of its callbacks record, whose writers record the replies.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <fstream>
#include <iterator>

#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/ProgrammableLibrary.h"
#include "support/TempWorkingDirectory.h"

namespace testing_support {

inline void* Ptr(intptr_t value) {
    return reinterpret_cast<void*>(value);
}

// Replies on one line: ints, 'strings', #ids, m<argument>@<context>, byte runs as x<hex digits>.
inline std::string Text(const std::vector<Reply>& replies) {
    std::string text;
    for (size_t i = 0; i < replies.size(); ++i) {
        const Reply& r = replies[i];
        char hex[8];
        const bool run = i > 0 && replies[i - 1].kind == Reply::Kind::Byte;
        std::snprintf(hex, sizeof hex, run ? "%02X" : " x%02X", unsigned(r.value & 255));
        text += r.kind == Reply::Kind::Byte     ? hex
                : r.kind == Reply::Kind::String ? " '" + r.text + "'"
                : r.kind == Reply::Kind::Id     ? " #" + std::to_string(r.value)
                : r.kind == Reply::Kind::Int
                    ? " " + std::to_string(r.value)
                    : " m" + std::to_string(r.value) + "@" + PointerText(r.idContext);
    }
    return text.substr(text.empty() ? 0 : 1);
}

inline void* const kNative = reinterpret_cast<void*>(&NativeCode);

// A protocol version as the queries receive it: versionKnown, major, minor.
using ClientVersion = std::array<int, 3>;

struct DebuggerSession {
    // `logLevel`: ORVEL_QUARN_DEBUG (null: logging off), set before the object reads it.
    explicit DebuggerSession(const char* logLevel = nullptr)
        : environment("ORVEL_QUARN_DEBUG", logLevel) {
        InstallWriters(&record);
    }
    MonoDebuggerHandlingInspector Inspect() { return MonoDebuggerHandlingInspector(object); }

    // Opens a compiled library for the session's life and hands it over as the host does.
    void* Load(const std::string& name) {
        void* handle = libraries.emplace_back(name).Handle();
        object.ProcessLibraryMetadata(handle);
        return handle;
    }
    std::vector<void*> FetchMethods() {
        ReplyBuffer buffer;
        record.fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
        return buffer.Methods();
    }
    // The handle of `method` among `handles` (records are never freed), or null.
    static void* HandleOf(const std::vector<void*>& handles, const Hash128& method) {
        const auto found = std::find_if(handles.begin(), handles.end(), [&](void* handle) {
            const auto* entry = static_cast<const MethodCacheEntry*>(handle);
            return entry->metadata->methodHashes[entry->methodIndex] == method;
        });
        return found == handles.end() ? nullptr : *found;
    }
    // A per-method query into `reply`, as text.
    std::string Ask(decltype(mdh_callbacks::fetchDebugInfo) mdh_callbacks::*query, void* method,
                    ClientVersion v) {
        reply.replies.clear();
        (record.*query)(&reply, method, v[0], v[1], v[2]);
        return Text(reply.replies);
    }
    std::string Log() const {
        std::ifstream file(directory.LogPath());
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    size_t LogMark() const { return Log().size(); }
    std::string LogSince(size_t mark) const { return Log().substr(mark); }

    TempWorkingDirectory directory;
    ScopedEnvironment environment;
    std::deque<LoadedLibrary> libraries;  // outlive the object
    MonoDebuggerHandling object{"/data/Placeholder.dll"};
    mdh_callbacks& record = *object.Callbacks();
    ReplyBuffer reply;
};

}  // namespace testing_support
