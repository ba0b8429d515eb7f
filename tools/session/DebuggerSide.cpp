#include "DebuggerSide.h"

#include <algorithm>

using debugger_side::ReplyBuffer;
using debugger_side::ReplyReader;

namespace {

// Runs a fetch query at kNewestProtocol; `leading` are its arguments between the buffer and the
// version. The reader walks the recorded reply.
template <class Query, class... Leading>
ReplyReader AskAtNewestProtocol(Query query, Leading... leading) {
    ReplyBuffer buffer;
    query(&buffer, leading..., kNewestProtocol.versionKnown, kNewestProtocol.majorVersion,
          kNewestProtocol.minorVersion);
    return ReplyReader(std::move(buffer));
}

}  // namespace

DebuggerSide::DebuggerSide(mdh_callbacks* record) : record(record) {
    debugger_side::InstallWriters(record);
    debugger_side::InstallShutdownAndFlush(record);
}

bool DebuggerSide::IsFileQuarned(const std::string& path, bool ignoreCase) const {
    return record->isFileQuarned(ignoreCase ? 1 : 0, path.c_str()) != 0;
}

std::vector<std::string> DebuggerSide::FetchFiles() const {
    ReplyReader reply = AskAtNewestProtocol(record->fetchFiles, 0);
    std::vector<std::string> files(static_cast<size_t>(reply.TakeInt()));
    for (std::string& file : files) {
        file = reply.TakeString();
    }
    return files;
}

std::vector<void*> DebuggerSide::FetchMethods() const {
    ReplyReader reply = AskAtNewestProtocol(record->fetchMethods, nullptr, 0);
    std::vector<void*> methods(static_cast<size_t>(reply.TakeInt()));
    for (void*& method : methods) {
        method = reply.TakeMethod();
    }
    return methods;
}

MethodDebugInfoReply DebuggerSide::FetchDebugInfo(void* method) const {
    ReplyReader reply = AskAtNewestProtocol(record->fetchDebugInfo, method);
    MethodDebugInfoReply info;
    info.codeSize = reply.TakeInt();
    info.files.resize(static_cast<size_t>(std::max(reply.TakeInt(), 0)));
    for (SourceFile& file : info.files) {
        file.name = reply.TakeString();
        for (uint8_t& byte : file.md5) {
            byte = reply.TakeByte();
        }
    }
    info.points.resize(static_cast<size_t>(std::max(reply.TakeInt(), 0)));
    for (SequencePointReply& point : info.points) {
        point.ilOffset = reply.TakeInt();
        point.startLine = reply.TakeInt();
        point.file = reply.TakeInt();
        point.startColumn = reply.TakeInt();
        point.endLine = reply.TakeInt();
        point.endColumn = reply.TakeInt();
    }
    return info;
}

uint32_t DebuggerSide::FetchMethodToken(void* method) const {
    ReplyReader reply = AskAtNewestProtocol(record->fetchMethodInfo, method);
    reply.TakeInt();  // attributes
    reply.TakeInt();  // implementation flags
    return static_cast<uint32_t>(reply.TakeInt());
}

void DebuggerSide::SetBreakpoint(void* method, void* breakpoint) const {
    record->breakpointNotify(1, method, 0, breakpoint);
}

void DebuggerSide::RemoveBreakpoint(void* breakpoint) const {
    record->breakpointNotify(0, nullptr, 0, breakpoint);
}

mdh_hash128 DebuggerSide::MethodHash(void* method) const {
    mdh_hash128 hash{};
    record->testFetchMethodHash(method, &hash);
    return hash;
}

mdh_hash128 DebuggerSide::EntryPointHash(void* method) const {
    mdh_hash128 hash{};
    record->testFetchEntryPointHash(method, &hash);
    return hash;
}

bool DebuggerSide::BreakpointSet(const mdh_hash128& entryHash) const {
    return record->testBreakpointSet(&entryHash) != 0;
}

uint32_t DebuggerSide::EntryPointCount(const mdh_hash128& entryHash) const {
    return record->testFetchEntryPointCountForHash(&entryHash);
}
