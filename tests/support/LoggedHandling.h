#pragma once

#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace testing_support {

// A handling object logging operation lines only (level 1) into a fresh working directory.
struct LoggedHandling {
    void MarkLog() { mark = directory.LogLines().size(); }
    std::vector<std::string> LinesSinceMark() const {
        const std::vector<std::string> lines = directory.LogLines();
        return {lines.begin() + static_cast<std::ptrdiff_t>(mark), lines.end()};
    }

    TempWorkingDirectory directory;
    ScopedEnvironment logLevel{"ORVEL_QUARN_DEBUG", "1"};
    MonoDebuggerHandling object{"/tmp/Placeholder.dll"};
    MonoDebuggerHandlingInspector inspect{object};
    size_t mark = 0;
};

}  // namespace testing_support
