#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mono_debugger_handling.h"

// The debugger side of the callbacks record as the session demo and the tests play it: reply
// writers that record each call into the buffer a query was given, counters for the shutdown and
// flush functions, and the record's address read from the command string.
namespace debugger_side {

// One reply-writer call as the debugger side received it.
struct Reply {
    enum class Kind { Byte, Int, Id, String, MethodId };
    Kind kind = Kind::Int;
    int64_t value = 0;          // Byte, Int, Id; idArgument for MethodId
    std::string text;           // String
    void* method = nullptr;     // MethodId
    void* idContext = nullptr;  // MethodId

    bool operator==(const Reply&) const = default;
};

Reply Byte(uint8_t value);
Reply Int(int32_t value);
Reply Id(int32_t value);
Reply String(std::string text);

// What the recording writers append to: pass its address as a query's buffer argument.
struct ReplyBuffer {
    std::vector<Reply> replies;
    // Method handles received through writeMethodId, in order.
    std::vector<void*> Methods() const;
};

// Takes a recorded reply apart in the order the query wrote it. Each Take throws
// std::runtime_error when the reply does not hold that kind next.
class ReplyReader {
  public:
    explicit ReplyReader(ReplyBuffer buffer) : replies(std::move(buffer.replies)) {}

    uint8_t TakeByte() { return static_cast<uint8_t>(Take(Reply::Kind::Byte).value); }
    int32_t TakeInt() { return static_cast<int32_t>(Take(Reply::Kind::Int).value); }
    int32_t TakeId() { return static_cast<int32_t>(Take(Reply::Kind::Id).value); }
    std::string TakeString() { return Take(Reply::Kind::String).text; }
    void* TakeMethod() { return Take(Reply::Kind::MethodId).method; }

  private:
    const Reply& Take(Reply::Kind kind);

    std::vector<Reply> replies;
    size_t next = 0;
};

// Fills the debugger side's writer slots (9 to 13) of a callbacks record with recorders. They
// only append, as the plug-in calls them while holding its lock.
void InstallWriters(mdh_callbacks* record);
// Fills the shutdownNotify and flushClientKnowledge slots with counters.
void InstallShutdownAndFlush(mdh_callbacks* record);
// How often the installed shutdown / flush functions ran (process-wide counters).
int ShutdownCalls();
int FlushCalls();
void ResetCounters();

// Reads the callbacks record's address from a command string's |CB| field; throws
// std::runtime_error when there is none.
mdh_callbacks* RecordFromCommand(const std::string& command);

}  // namespace debugger_side
