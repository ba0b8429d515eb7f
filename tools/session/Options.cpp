#include "Options.h"

#include <getopt.h>

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
    static const option kLongOptions[] = {{"help", no_argument, nullptr, 'h'},
                                          {"library", required_argument, nullptr, 'l'},
                                          {"break", required_argument, nullptr, 'b'},
                                          {"log-level", required_argument, nullptr, 'v'},
                                          {}};
    SessionOptions options;
    opterr = 0;  // getopt stays quiet: every error is one UsageError
    for (int option; (option = getopt_long(argc, argv, ":h", kLongOptions, nullptr)) != -1;) {
        const std::string given = argv[optind - 1];
        switch (option) {
            case 'h':
                options.help = true;
                break;
            case 'l':
                options.libraries.push_back(optarg);
                break;
            case 'b':
                options.breakpoints.push_back(ParseBreakLocation(optarg));
                break;
            case 'v':
                options.logLevel = ParseInteger(optarg, "--log-level");
                break;
            case ':':
                throw UsageError("option " + given + " needs a value");
            default:
                throw UsageError("unknown argument '" + given + "'");
        }
    }
    if (optind < argc) {
        throw UsageError("unknown argument '" + std::string(argv[optind]) + "'");
    }
    return options;
}
