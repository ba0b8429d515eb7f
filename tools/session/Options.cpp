#include "Options.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

const char* const kSessionUsage =
    "usage: quarn-debug-session [--library PATH]... [--break FILE:LINE]... [--log-level N]\n"
    "\n"
    "Runs one debugging session against libMonoDebuggerHandling, playing both the host and the\n"
    "debugger side: loads compiled libraries, registers their entry points with jump stubs,\n"
    "lists the files, methods and sequence points the plug-in reports, then sets each\n"
    "breakpoint, shows which entry points switched to managed code and removes it again.\n"
    "\n"
    "  --library PATH     a compiled library to load (repeatable; default: the bundled sample)\n"
    "  --break FILE:LINE  a breakpoint position (repeatable; default: a line of the sample)\n"
    "  --log-level N      ORVEL_QUARN_DEBUG for the run (default 3; the log is written to\n"
    "                     Logs/quarn-mono-debug.log under the working directory)\n"
    "  --help             this text\n";

namespace {

int ParseInteger(const std::string& text, const std::string& what) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < INT_MIN || value > INT_MAX) {
        throw UsageError(what + " must be a whole number, not '" + text + "'");
    }
    return static_cast<int>(value);
}

// The value after an option, which must be there.
const std::string& ValueOf(const std::vector<std::string>& arguments, size_t& i) {
    if (i + 1 >= arguments.size()) {
        throw UsageError("option " + arguments[i] + " needs a value");
    }
    return arguments[++i];
}

}  // namespace

BreakLocation ParseBreakLocation(const std::string& text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        throw UsageError("breakpoint '" + text + "' is not of the form FILE:LINE");
    }
    BreakLocation location{text.substr(0, colon),
                           ParseInteger(text.substr(colon + 1), "the LINE of --break")};
    if (location.line < 1) {
        throw UsageError("the LINE of breakpoint '" + text + "' must be 1 or more");
    }
    return location;
}

SessionOptions ParseSessionOptions(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    SessionOptions options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--help" || option == "-h") {
            options.help = true;
        } else if (option == "--library") {
            options.libraries.push_back(ValueOf(arguments, i));
        } else if (option == "--break") {
            options.breakpoints.push_back(ParseBreakLocation(ValueOf(arguments, i)));
        } else if (option == "--log-level") {
            options.logLevel = ParseInteger(ValueOf(arguments, i), "--log-level");
        } else {
            throw UsageError("unknown argument '" + option + "'");
        }
    }
    return options;
}
