#include "BundledFiles.h"

#include <unistd.h>

#include <climits>

namespace {

std::string ProgramDirectory() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) {
        return ".";
    }
    const std::string program(path, static_cast<size_t>(length));
    return program.substr(0, program.rfind('/'));
}

// The installed copy when there is one, so an installed program never picks up a build tree.
std::string Locate(const char* relativeToProgram, const char* builtPath) {
    const std::string installed = ProgramDirectory() + "/" + relativeToProgram;
    return access(installed.c_str(), F_OK) == 0 ? installed : builtPath;
}

}  // namespace

std::string BundledPluginPath() {
    return Locate(QDS_INSTALLED_PLUGIN, QDS_BUILT_PLUGIN);
}
std::string BundledSamplePath() {
    return Locate(QDS_INSTALLED_SAMPLE, QDS_BUILT_SAMPLE);
}
