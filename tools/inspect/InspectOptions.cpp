#include "InspectOptions.h"

#include <getopt.h>

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
    static const option kLongOptions[] = {
        {"help", no_argument, nullptr, 'h'},        {"json", no_argument, nullptr, 'j'},
        {"check", no_argument, nullptr, 'c'},       {"ignore-case", no_argument, nullptr, 'i'},
        {"match", required_argument, nullptr, 'm'}, {}};
    InspectOptions options;
    opterr = 0;  // getopt stays quiet: every error is one BadInput
    for (int option; (option = getopt_long(argc, argv, ":h", kLongOptions, nullptr)) != -1;) {
        switch (option) {
            case 'h':
                options.help = true;
                break;
            case 'j':
                options.json = true;
                break;
            case 'c':
                options.check = true;
                break;
            case 'i':
                options.ignoreCase = true;
                break;
            case 'm':
                options.matchPath = optarg;
                break;
            case ':':
                throw BadInput("--match needs a PATH");
            default:
                throw BadInput("unknown option '" + std::string(argv[optind - 1]) + "'");
        }
    }
    options.libraries.assign(argv + optind, argv + argc);
    if (options.ignoreCase && !options.matchPath) {
        throw BadInput("--ignore-case applies to --match only");
    }
    if (options.libraries.empty() && !options.help) {
        throw BadInput("no library given");
    }
    return options;
}
