// quarn-debug-inspect: reads the debug tables of compiled libraries as libMonoDebuggerHandling
// does, prints them, checks them, or lists the file names a debugger path matches. See --help.
#include <iostream>

#include "InspectOptions.h"
#include "Report.h"

int main(int argc, char** argv) {
    try {
        const InspectOptions options = ParseInspectOptions(argc, argv);
        if (options.help) {
            std::cout << kInspectUsage;
            return 0;
        }
        std::vector<LibraryReport> reports;
        for (const std::string& path : options.libraries) {
            reports.push_back(InspectLibrary(path, options));
        }
        if (options.json) {
            PrintJson(std::cout, reports, options);
        } else {
            for (const LibraryReport& report : reports) {
                PrintText(std::cout, report, options);
            }
        }
        for (const LibraryReport& report : reports) {
            if (!report.problems.empty()) {
                return 1;
            }
        }
        return 0;
    } catch (const BadInput& error) {
        std::cerr << "quarn-debug-inspect: " << error.what() << "\n";
        return 2;
    }
}
