#include "InspectOptions.h"

const char* const kInspectUsage =
    "usage: quarn-debug-inspect [--json] [--check] [--match PATH [--ignore-case]] LIB.so...\n"
    "\n"
    "Loads compiled libraries and reads their debug tables through \"quarn.debug_query\" as\n"
    "libMonoDebuggerHandling does. Without options it prints the header and every item: hash,\n"
    "counts, files with their MD5 digests, methods with their hashes, files and sequence "
    "points.\n"
    "\n"
    "  --check        validate the tables; exit status 1 when a problem is found\n"
    "  --match PATH   list the file names the debugger would treat as PATH\n"
    "  --ignore-case  compare letters without case in --match\n"
    "  --json         print one JSON document instead of text\n"
    "  --help         this text\n"
    "\n"
    "Exit status: 0 done, 1 problems found by --check, 2 bad input.\n";

InspectOptions ParseInspectOptions(int argc, char** argv) {
    InspectOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            options.help = true;
        } else if (argument == "--json") {
            options.json = true;
        } else if (argument == "--check") {
            options.check = true;
        } else if (argument == "--ignore-case") {
            options.ignoreCase = true;
        } else if (argument == "--match") {
            if (++i == argc) {
                throw BadInput("--match needs a PATH");
            }
            options.matchPath = argv[i];
        } else if (argument.rfind("--", 0) == 0) {
            throw BadInput("unknown option '" + argument + "'");
        } else {
            options.libraries.push_back(argument);
        }
    }
    if (options.ignoreCase && !options.matchPath) {
        throw BadInput("--ignore-case applies to --match only");
    }
    if (options.libraries.empty() && !options.help) {
        throw BadInput("no library given");
    }
    return options;
}
