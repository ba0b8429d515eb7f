// Opening, separating and writing the log file; every failure is silent so that logging can
// never disturb the host.
#include "plugin/DebugLogWriter.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr const char* kModeChangeSeparator = "----SCRIPT-COMPILATION-MODE-CHANGE----";
constexpr mode_t kLogDirectoryMode = 0775;
constexpr size_t kWorkingDirectoryBufferSize = 4096;
}  // namespace

DebugLogWriter::DebugLogWriter(int level, std::string name) : level(level) {
    // Process-wide: set by the first writer that finds the working directory, never reset.
    static bool initialised = false;

    char workingDirectory[kWorkingDirectoryBufferSize];
    if (getcwd(workingDirectory, sizeof workingDirectory) == nullptr) {
        return;
    }
    const std::string directory = std::string(workingDirectory) + "/Logs";
    mkdir(directory.c_str(), kLogDirectoryMode);  // an existing directory is the normal case
    const std::string path = directory + "/" + name;
    if (!initialised) {
        stream.open(path, std::ios::out | std::ios::trunc);
    } else {
        stream.open(path, std::ios::out | std::ios::app);
        Log(1, kModeChangeSeparator);
    }
    initialised = true;
}

void DebugLogWriter::Log(int messageLevel, std::string_view text) {
    if (level < messageLevel) {
        return;
    }
    LogImpl(text);
}

void DebugLogWriter::LogImpl(std::string_view text) {
    std::lock_guard<std::mutex> guard(writeMutex);
    if (!stream.is_open()) {
        return;
    }
    stream << text << '\n';
    stream.flush();
    stream.flush();
}
