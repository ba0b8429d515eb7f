#pragma once

#include <stdexcept>
#include <string>
#include <vector>

// Malformed command line: reported as one line, exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Input the session cannot use (a library, a breakpoint position): one line, exit status 1.
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A source position given as FILE:LINE.
struct BreakLocation {
    std::string file;
    int line = 0;

    std::string Text() const { return file + ":" + std::to_string(line); }
};

struct SessionOptions {
    std::vector<std::string> libraries;      // empty: the bundled sample
    std::vector<BreakLocation> breakpoints;  // empty: the sample's default position
    int logLevel = 3;
    bool help = false;
};

// Reads argv[1..]; throws UsageError.
SessionOptions ParseSessionOptions(int argc, char** argv);

// Splits FILE:LINE at its last colon (file names may hold colons); throws UsageError.
BreakLocation ParseBreakLocation(const std::string& text);

extern const char* const kSessionUsage;
