#include "support/MonoSide.h"

#include <atomic>
#include <cstdlib>

namespace testing_support {
namespace {

Reply Make(Reply::Kind kind, int64_t value) {
    Reply reply;
    reply.kind = kind;
    reply.value = value;
    return reply;
}

std::atomic<int> shutdownCalls{0};
std::atomic<int> flushCalls{0};

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
    const size_t start = command.find("|CB|") + 4;
    const size_t end = command.find("|CB|", start);
    const std::string number = command.substr(start, end - start);
    return reinterpret_cast<mdh_callbacks*>(std::strtoull(number.c_str(), nullptr, 10));
}

}  // namespace testing_support
