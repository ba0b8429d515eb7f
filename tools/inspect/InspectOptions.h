#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// Bad command line or unusable input: one line on stderr, exit status 2.
struct BadInput : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct InspectOptions {
    std::vector<std::string> libraries;
    bool json = false;
    bool check = false;
    std::optional<std::string> matchPath;
    bool ignoreCase = false;
    bool help = false;
};

// Reads argv[1..]; throws BadInput.
InspectOptions ParseInspectOptions(int argc, char** argv);

extern const char* const kInspectUsage;
