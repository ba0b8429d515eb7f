#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mono_debugger_handling.h"

namespace testing_support {

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

// A debugger side whose writers append what they receive to the reply buffer passed to the
// queries (the buffer argument is a ReplyBuffer*).
struct ReplyBuffer {
    std::vector<Reply> replies;
    // Method handles received through writeMethodId, in order.
    std::vector<void*> Methods() const;
};

// Fills the debugger side's writer slots (9 to 13) of a callbacks record with recorders, and
// optionally the shutdown and flush slots with counters.
void InstallWriters(mdh_callbacks* record);
void InstallShutdownAndFlush(mdh_callbacks* record);
// How often the installed shutdown / flush functions ran (process-wide counters).
int ShutdownCalls();
int FlushCalls();
void ResetCounters();

// Reads the callbacks record address from a command string's |CB| field.
mdh_callbacks* RecordFromCommand(const std::string& command);

}  // namespace testing_support
