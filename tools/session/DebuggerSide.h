#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "mono_debugger_handling.h"

// One value a reply writer received.
struct ReplyValue {
    enum class Kind { Byte, Int, Id, String, MethodId };
    Kind kind;
    int64_t number = 0;      // Byte, Int, Id
    std::string text;        // String
    void* method = nullptr;  // MethodId
};

// The reply buffer the debugger side hands to a query: the writers append to it, and the
// debugger side takes the values back in the order the query wrote them.
class ReplyBuffer {
  public:
    void Append(ReplyValue value) { values.push_back(std::move(value)); }

    uint8_t TakeByte() { return static_cast<uint8_t>(Take(ReplyValue::Kind::Byte).number); }
    int32_t TakeInt() { return static_cast<int32_t>(Take(ReplyValue::Kind::Int).number); }
    int32_t TakeId() { return static_cast<int32_t>(Take(ReplyValue::Kind::Id).number); }
    std::string TakeString() { return Take(ReplyValue::Kind::String).text; }
    void* TakeMethod() { return Take(ReplyValue::Kind::MethodId).method; }

  private:
    // Throws std::runtime_error when the reply does not hold the expected kind next.
    const ReplyValue& Take(ReplyValue::Kind kind);

    std::vector<ReplyValue> values;
    size_t next = 0;
};

// The debugger agent's protocol version the queries are asked at: the newest the plug-in knows,
// so every optional reply field is written.
struct ProtocolVersion {
    int32_t major;
    int32_t minor;
};
inline constexpr ProtocolVersion kNewestProtocol{2, 32};

struct SourceFile {
    std::string name;
    std::array<uint8_t, 16> md5{};  // all zero: the file has no digest
};

struct SequencePointReply {
    int32_t ilOffset, startLine, file, startColumn, endLine, endColumn;
};

// A method's debug information as fetchDebugInfo replies at kNewestProtocol.
struct MethodDebugInfoReply {
    int32_t codeSize = 0;
    std::vector<SourceFile> files;
    std::vector<SequencePointReply> points;
};

// The debugger side of the callbacks record: it fills the reply writers and its shutdown and
// flush functions, then asks the plug-in through the library-filled slots.
class DebuggerSide {
  public:
    explicit DebuggerSide(mdh_callbacks* record);

    mdh_callbacks* Record() const { return record; }
    void FinishSetup() { record->finishSetup(); }

    bool IsFileQuarned(const std::string& path, bool ignoreCase = false) const;
    std::vector<std::string> FetchFiles() const;
    std::vector<void*> FetchMethods() const;
    MethodDebugInfoReply FetchDebugInfo(void* method) const;
    uint32_t FetchMethodToken(void* method) const;

    void SetBreakpoint(void* method, void* breakpoint) const;
    void RemoveBreakpoint(void* breakpoint) const;

    // The test hooks of the record.
    mdh_hash128 MethodHash(void* method) const;
    mdh_hash128 EntryPointHash(void* method) const;
    bool BreakpointSet(const mdh_hash128& entryHash) const;
    uint32_t EntryPointCount(const mdh_hash128& entryHash) const;

    // How often the plug-in called this side's flush and shutdown functions (process-wide).
    static int FlushRequests();
    static int ShutdownNotifications();

  private:
    mdh_callbacks* record;
};
