#pragma once

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "TableRows.h"
#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

// Hashes print as the log prints them in failure messages.
inline void PrintTo(const Hash128& hash, std::ostream* out) {
    *out << hash.ToString();
}

namespace testing_support {

// A pointer or handle as the log prints it ("%ld").
inline std::string PointerText(const void* pointer) {
    return std::to_string(reinterpret_cast<intptr_t>(pointer));
}

// A handling object that logs at level 1 (operation lines only, no state dump) into a fresh
// working directory, with the debugger side's shutdown and flush functions installed and
// their counters reset.
class LoggedHandling {
  public:
    LoggedHandling() {
        ResetCounters();
        InstallShutdownAndFlush(object.Callbacks());
    }

    MonoDebuggerHandling& Object() { return object; }
    MonoDebuggerHandlingInspector& Inspect() { return inspector; }

    std::vector<std::string> LogLines() const { return directory.LogLines(); }

    // Remembers how much of the log exists, so later lines can be read on their own.
    void MarkLog() { mark = directory.LogLines().size(); }
    std::vector<std::string> LinesSinceMark() const {
        std::vector<std::string> lines = directory.LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(mark));
        return lines;
    }
    // The lines since the mark that start with `prefix`, in log order.
    std::vector<std::string> LinesSinceMarkStartingWith(const std::string& prefix) const {
        std::vector<std::string> lines = LinesSinceMark();
        std::erase_if(lines, [&](const std::string& line) { return !line.starts_with(prefix); });
        return lines;
    }

  private:
    TempWorkingDirectory directory;
    ScopedEnvironment logLevel{"ORVEL_QUARN_DEBUG", "1"};
    MonoDebuggerHandling object{"/tmp/Placeholder.dll"};
    MonoDebuggerHandlingInspector inspector{object};
    size_t mark = 0;
};

// The two lines of a cache rebuild: totals over all items, then the distinct counts.
inline std::vector<std::string> CacheLines(int files, int distinctFiles, int methods,
                                           int distinctMethods) {
    return {
        "FilesCached : " + std::to_string(files) + " vs " + std::to_string(distinctFiles),
        "MethodsCached : " + std::to_string(methods) + " vs " + std::to_string(distinctMethods)};
}

// The item hashes of the registered records, in the registry's iteration order.
inline std::vector<Hash128> ItemHashes(const MonoDebuggerHandlingInspector& inspect) {
    std::vector<Hash128> hashes;
    for (const QuarnDebugMetadata* item : inspect.MetadataItems()) {
        hashes.push_back(item->hash);
    }
    return hashes;
}

// The registered record with this item hash, or null.
inline QuarnDebugMetadata* ItemWithHash(const MonoDebuggerHandlingInspector& inspect,
                                        const Hash128& hash) {
    for (QuarnDebugMetadata* item : inspect.MetadataItems()) {
        if (item->hash == hash) {
            return item;
        }
    }
    return nullptr;
}

// The items listed for a method hash in hashToMetadataList (empty when the key is absent).
inline std::vector<QuarnDebugMetadata*> ItemsListedFor(const MonoDebuggerHandlingInspector& inspect,
                                                       const Hash128& methodHash) {
    const auto found = inspect.HashToMetadataList().find(methodHash);
    return found == inspect.HashToMetadataList().end() ? std::vector<QuarnDebugMetadata*>{}
                                                       : found->second;
}

}  // namespace testing_support
