#pragma once

#include <optional>
#include <string>
#include <vector>

namespace testing_support {

// Moves the process into a fresh temporary directory for the test's life (the log is written
// under the working directory), and back afterwards.
class TempWorkingDirectory {
  public:
    TempWorkingDirectory();
    ~TempWorkingDirectory();
    TempWorkingDirectory(const TempWorkingDirectory&) = delete;
    TempWorkingDirectory& operator=(const TempWorkingDirectory&) = delete;

    std::string LogPath() const { return path + "/Logs/quarn-mono-debug.log"; }
    // The log's lines (without their newlines); empty when there is no log file.
    std::vector<std::string> LogLines() const;

  private:
    std::string previous, path;
};

// Sets (or, with a null value, unsets) an environment variable for a scope.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();

  private:
    std::string name;
    std::optional<std::string> saved;
};

}  // namespace testing_support
