#include "support/TempWorkingDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace testing_support {

TempWorkingDirectory::TempWorkingDirectory() {
    char buffer[4096];
    if (getcwd(buffer, sizeof buffer) == nullptr) {
        throw std::runtime_error("no working directory");
    }
    previous = buffer;
    std::string pattern = (std::filesystem::temp_directory_path() / "mdh-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot create a temporary directory");
    }
    path = pattern;
    if (chdir(path.c_str()) != 0) {
        throw std::runtime_error("cannot enter " + path);
    }
}

TempWorkingDirectory::~TempWorkingDirectory() {
    if (chdir(previous.c_str()) == 0) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
}

std::vector<std::string> TempWorkingDirectory::LogLines() const {
    std::vector<std::string> lines;
    std::ifstream log(LogPath());
    for (std::string line; std::getline(log, line);) {
        lines.push_back(line);
    }
    return lines;
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name(name) {
    const char* old = std::getenv(name);
    hadValue = old != nullptr;
    if (hadValue) {
        saved = old;
    }
    if (value == nullptr) {
        unsetenv(name);
    } else {
        setenv(name, value, 1);
    }
}

ScopedEnvironment::~ScopedEnvironment() {
    if (hadValue) {
        setenv(name.c_str(), saved.c_str(), 1);
    } else {
        unsetenv(name.c_str());
    }
}

}  // namespace testing_support
