#include "DebuggerSide.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>

namespace {

std::atomic<int> flushRequests{0};
std::atomic<int> shutdownNotifications{0};

ReplyBuffer& BufferOf(void* buffer) {
    return *static_cast<ReplyBuffer*>(buffer);
}

// The reply writers. The plug-in calls them while it holds its lock: they only append.
void WriteByte(void* buffer, uint8_t value) {
    BufferOf(buffer).Append({ReplyValue::Kind::Byte, value, {}, nullptr});
}
void WriteInt(void* buffer, int32_t value) {
    BufferOf(buffer).Append({ReplyValue::Kind::Int, value, {}, nullptr});
}
void WriteId(void* buffer, int32_t id) {
    BufferOf(buffer).Append({ReplyValue::Kind::Id, id, {}, nullptr});
}
void WriteString(void* buffer, const char* text) {
    BufferOf(buffer).Append({ReplyValue::Kind::String, 0, text, nullptr});
}
void WriteMethodId(void* buffer, void*, int32_t, void* method) {
    BufferOf(buffer).Append({ReplyValue::Kind::MethodId, 0, {}, method});
}
void NotifyShutdown() {
    ++shutdownNotifications;
}
void FlushClientKnowledge() {
    ++flushRequests;
}

const char* KindName(ReplyValue::Kind kind) {
    switch (kind) {
        case ReplyValue::Kind::Byte:
            return "byte";
        case ReplyValue::Kind::Int:
            return "int";
        case ReplyValue::Kind::Id:
            return "id";
        case ReplyValue::Kind::String:
            return "string";
        case ReplyValue::Kind::MethodId:
            return "method id";
    }
    return "?";
}

}  // namespace

const ReplyValue& ReplyBuffer::Take(ReplyValue::Kind kind) {
    if (next >= values.size()) {
        throw std::runtime_error(std::string("reply ended where a ") + KindName(kind) +
                                 " was expected");
    }
    const ReplyValue& value = values[next++];
    if (value.kind != kind) {
        throw std::runtime_error(std::string("reply holds a ") + KindName(value.kind) +
                                 " where a " + KindName(kind) + " was expected");
    }
    return value;
}

DebuggerSide::DebuggerSide(mdh_callbacks* record) : record(record) {
    record->writeByte = WriteByte;
    record->writeInt = WriteInt;
    record->writeId = WriteId;
    record->writeString = WriteString;
    record->writeMethodId = WriteMethodId;
    record->shutdownNotify = NotifyShutdown;
    record->flushClientKnowledge = FlushClientKnowledge;
}

bool DebuggerSide::IsFileQuarned(const std::string& path, bool ignoreCase) const {
    return record->isFileQuarned(ignoreCase ? 1 : 0, path.c_str()) != 0;
}

std::vector<std::string> DebuggerSide::FetchFiles() const {
    ReplyBuffer reply;
    record->fetchFiles(&reply, 0, 1, kNewestProtocol.major, kNewestProtocol.minor);
    std::vector<std::string> files(static_cast<size_t>(reply.TakeInt()));
    for (std::string& file : files) {
        file = reply.TakeString();
    }
    return files;
}

std::vector<void*> DebuggerSide::FetchMethods() const {
    ReplyBuffer reply;
    record->fetchMethods(&reply, nullptr, 0, 1, kNewestProtocol.major, kNewestProtocol.minor);
    std::vector<void*> methods(static_cast<size_t>(reply.TakeInt()));
    for (void*& method : methods) {
        method = reply.TakeMethod();
    }
    return methods;
}

MethodDebugInfoReply DebuggerSide::FetchDebugInfo(void* method) const {
    ReplyBuffer reply;
    record->fetchDebugInfo(&reply, method, 1, kNewestProtocol.major, kNewestProtocol.minor);
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
    ReplyBuffer reply;
    record->fetchMethodInfo(&reply, method, 1, kNewestProtocol.major, kNewestProtocol.minor);
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

int DebuggerSide::FlushRequests() {
    return flushRequests;
}
int DebuggerSide::ShutdownNotifications() {
    return shutdownNotifications;
}
