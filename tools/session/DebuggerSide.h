#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "RecordingDebugger.h"
#include "mono_debugger_handling.h"
#include "queries/ProtocolVersion.h"

// The debugger agent's protocol version the queries are asked at: the newest the plug-in knows,
// so every optional reply field is written.
inline constexpr ProtocolVersion kNewestProtocol{1, 2, 32};

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
// flush functions with the recording ones, then asks the plug-in through the library-filled
// slots and reads the recorded replies.
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

  private:
    mdh_callbacks* record;
};
