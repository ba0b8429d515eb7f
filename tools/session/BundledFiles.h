#pragma once

#include <string>

// The plug-in and the sample this program was built with. An installed program finds them
// relative to its own location (bin/ -> the plug-in directory); in the build tree it uses the
// paths the build baked in.
std::string BundledPluginPath();
std::string BundledSamplePath();
