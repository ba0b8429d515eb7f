#include "RecordingDebugger.h"

#include <atomic>
#include <cstdlib>
#include <stdexcept>

namespace debugger_side {
namespace {

std::atomic<int> shutdownCalls{0};
std::atomic<int> flushCalls{0};

Reply Make(Reply::Kind kind, int64_t value) {
    Reply reply;
    reply.kind = kind;
    reply.value = value;
    return reply;
}

ReplyBuffer& Buffer(void* buffer) {
    return *static_cast<ReplyBuffer*>(buffer);
}

void WriteByte(void* buffer, uint8_t value) {
    Buffer(buffer).replies.push_back(Byte(value));
}
void WriteInt(void* buffer, int32_t value) {
    Buffer(buffer).replies.push_back(Int(value));
}
void WriteId(void* buffer, int32_t value) {
    Buffer(buffer).replies.push_back(Id(value));
}
void WriteString(void* buffer, const char* text) {
    Buffer(buffer).replies.push_back(String(text));
}
void WriteMethodId(void* buffer, void* idContext, int32_t idArgument, void* method) {
    Reply reply = Make(Reply::Kind::MethodId, idArgument);
    reply.method = method;
    reply.idContext = idContext;
    Buffer(buffer).replies.push_back(reply);
}
void ShutdownNotify() {
    ++shutdownCalls;
}
void FlushClientKnowledge() {
    ++flushCalls;
}

const char* KindName(Reply::Kind kind) {
    switch (kind) {
        case Reply::Kind::Byte:
            return "byte";
        case Reply::Kind::Int:
            return "int";
        case Reply::Kind::Id:
            return "id";
        case Reply::Kind::String:
            return "string";
        case Reply::Kind::MethodId:
            return "method id";
    }
    return "?";
}

}  // namespace

Reply Byte(uint8_t value) {
    return Make(Reply::Kind::Byte, value);
}
Reply Int(int32_t value) {
    return Make(Reply::Kind::Int, value);
}
Reply Id(int32_t value) {
    return Make(Reply::Kind::Id, value);
}
Reply String(std::string text) {
    Reply reply;
    reply.kind = Reply::Kind::String;
    reply.text = std::move(text);
    return reply;
}

std::vector<void*> ReplyBuffer::Methods() const {
    std::vector<void*> methods;
    for (const Reply& reply : replies) {
        if (reply.kind == Reply::Kind::MethodId) {
            methods.push_back(reply.method);
        }
    }
    return methods;
}

const Reply& ReplyReader::Take(Reply::Kind kind) {
    if (next >= replies.size()) {
        throw std::runtime_error(std::string("reply ended where a ") + KindName(kind) +
                                 " was expected");
    }
    const Reply& reply = replies[next++];
    if (reply.kind != kind) {
        throw std::runtime_error(std::string("reply holds a ") + KindName(reply.kind) +
                                 " where a " + KindName(kind) + " was expected");
    }
    return reply;
}

void InstallWriters(mdh_callbacks* record) {
    record->writeByte = WriteByte;
    record->writeInt = WriteInt;
    record->writeId = WriteId;
    record->writeString = WriteString;
    record->writeMethodId = WriteMethodId;
}

void InstallShutdownAndFlush(mdh_callbacks* record) {
    record->shutdownNotify = ShutdownNotify;
    record->flushClientKnowledge = FlushClientKnowledge;
}

int ShutdownCalls() {
    return shutdownCalls;
}
int FlushCalls() {
    return flushCalls;
}
void ResetCounters() {
    shutdownCalls = 0;
    flushCalls = 0;
}

mdh_callbacks* RecordFromCommand(const std::string& command) {
    static const std::string kMarker = "|CB|";
    const size_t field = command.find(kMarker);
    if (field == std::string::npos) {
        throw std::runtime_error("the command string carries no |CB| field: " + command);
    }
    const uint64_t address = std::strtoull(command.c_str() + field + kMarker.size(), nullptr, 10);
    return reinterpret_cast<mdh_callbacks*>(static_cast<uintptr_t>(address));
}

}  // namespace debugger_side
