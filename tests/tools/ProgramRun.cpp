#include "ProgramRun.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/Fixtures.h"

extern char** environ;

namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// The environment for the program: this process's, except that a leak checker (in the
// sanitized builds) keeps its list of suppressed leaks to itself, so stderr holds only what the
// program wrote.
std::vector<std::string> ChildEnvironment() {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        environment.emplace_back(*entry);
        if (environment.back().rfind("LSAN_OPTIONS=", 0) == 0) {
            environment.back() += ":print_suppressions=0";
        }
    }
    return environment;
}

}  // namespace

std::vector<std::string> ProgramRun::OutLines() const {
    return Lines(out);
}
std::vector<std::string> ProgramRun::ErrLines() const {
    return Lines(err);
}

bool ProgramRun::PrintedLine(const std::string& line) const {
    const std::vector<std::string> lines = OutLines();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// stdout and stderr go to files of their own, read back once the program has ended.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
    char outPath[] = "/tmp/program-out-XXXXXX";
    char errPath[] = "/tmp/program-err-XXXXXX";
    const int outFile = mkstemp(outPath);
    const int errFile = mkstemp(errPath);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outFile, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errFile, STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<std::string> environment = ChildEnvironment();
    std::vector<char*> envp;
    for (std::string& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    pid_t child = 0;
    const int spawned =
        posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ProgramRun run;
    int waitStatus = 0;
    if (spawned == 0 && waitpid(child, &waitStatus, 0) == child && WIFEXITED(waitStatus)) {
        run.status = WEXITSTATUS(waitStatus);
    }
    close(outFile);
    close(errFile);
    run.out = ReadFile(outPath);
    run.err = ReadFile(errPath);
    unlink(outPath);
    unlink(errPath);
    if (spawned != 0) {
        throw std::runtime_error("cannot start " + program);
    }
    return run;
}

std::string TestLibrary(const std::string& name) {
    return testing_support::CompiledLibraryPath(name);
}
