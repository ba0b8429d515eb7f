#pragma once

#include <gtest/gtest.h>

#include "LoggedHandling.h"
#include "support/Fixtures.h"

namespace testing_support {

// A logging handling object beside the fixture libraries A (items A1, A2) and B (item B1),
// opened but not yet processed. A1 and B1 both hold the shared method and the shared file.
class LibrariesAAndB : public testing::Test {
  protected:
    void LoadBoth() {
        object.ProcessLibraryMetadata(a.Handle());
        object.ProcessLibraryMetadata(b.Handle());
    }

    LoggedHandling handling;
    MonoDebuggerHandling& object = handling.Object();
    MonoDebuggerHandlingInspector& inspect = handling.Inspect();
    LoadedLibrary a{"fixture_a"};
    LoadedLibrary b{"fixture_b"};
};

}  // namespace testing_support
