// The built plug-in's program headers and dynamic section, which decide how the loader maps it.
#include <gtest/gtest.h>

#include "support/Command.h"
#include "support/Fixtures.h"

namespace {

using testing_support::CommandOutput;
using testing_support::PluginPath;

// No segment both writable and executable: that includes a GNU_STACK of "RWE", and a missing
// GNU_STACK would leave the stack executable. GNU_RELRO with BIND_NOW: the loader makes the
// relocated data, the whole GOT included, read-only once it has bound every symbol.
TEST(PluginHardening, NoWritableCodeNoExecutableStackFullRelroAndNoTextRelocations) {
    const std::string segments = CommandOutput("readelf -lW " + PluginPath());
    EXPECT_NE(segments.find("LOAD"), std::string::npos) << segments;
    EXPECT_EQ(segments.find("WE"), std::string::npos) << segments;  // flags R, W, E in columns
    EXPECT_NE(segments.find("GNU_STACK"), std::string::npos);
    EXPECT_NE(segments.find("GNU_RELRO"), std::string::npos);
    const std::string dynamic = CommandOutput("readelf -d " + PluginPath());
    EXPECT_NE(dynamic.find("BIND_NOW"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos);
}

}  // namespace
