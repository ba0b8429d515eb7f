#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace testing_support {

// Runs a shell command: its standard output, and in *status its exit status (-1: it did not
// exit normally).
inline std::string CommandOutput(const std::string& command, int* status = nullptr) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (size_t read; pipe != nullptr && (read = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, read);
    const int result = pipe != nullptr ? pclose(pipe) : -1;
    if (status != nullptr)
        *status = result != -1 && WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    return output;
}

}  // namespace testing_support
