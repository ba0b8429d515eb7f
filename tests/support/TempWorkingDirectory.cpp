#include "support/TempWorkingDirectory.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace testing_support {

namespace fs = std::filesystem;

TempWorkingDirectory::TempWorkingDirectory() : previous(fs::current_path()) {
    std::string pattern = (fs::temp_directory_path() / "mdh-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("cannot create a temporary directory");
    fs::current_path(path = pattern);
}

TempWorkingDirectory::~TempWorkingDirectory() {
    std::error_code ignored;
    fs::current_path(previous, ignored);
    fs::remove_all(path, ignored);
}

std::vector<std::string> TempWorkingDirectory::LogLines() const {
    std::vector<std::string> lines;
    std::ifstream log(LogPath());
    for (std::string line; std::getline(log, line);)
        lines.push_back(line);
    return lines;
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value) : name(name) {
    if (const char* old = std::getenv(name))
        saved = old;
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
}

ScopedEnvironment::~ScopedEnvironment() {
    saved ? setenv(name.c_str(), saved->c_str(), 1) : unsetenv(name.c_str());
}

}  // namespace testing_support
