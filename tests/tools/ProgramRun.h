#pragma once

#include <string>
#include <vector>

// What a program printed and how it ended.
struct ProgramRun {
    int status = -1;  // exit status
    std::string out;
    std::string err;

    std::vector<std::string> OutLines() const;
    std::vector<std::string> ErrLines() const;
    bool PrintedLine(const std::string& line) const;
};

// Runs `program` with `arguments` in the current working directory and waits for it.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments);

// A compiled library built for the tests, by target name.
std::string TestLibrary(const std::string& name);
