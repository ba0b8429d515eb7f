// quarn-debug-session: one debugging session against libMonoDebuggerHandling, with this program
// as the host and as the debugger side. See --help.
#include <iostream>

#include "Options.h"
#include "Session.h"

namespace {

int Fail(const std::string& message, int status) {
    std::cout.flush();
    std::cerr << "quarn-debug-session: " << message << "\n";
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        SessionOptions options = ParseSessionOptions(argc, argv);
        if (options.help) {
            std::cout << kSessionUsage;
            return 0;
        }
        Session(std::move(options), std::cout).Run();
        return 0;
    } catch (const UsageError& error) {
        return Fail(std::string(error.what()) + " (see --help)", 2);
    } catch (const std::exception& error) {
        return Fail(error.what(), 1);
    }
}
