// Runs a fuzz target without libFuzzer: every file named on the command line and every file in
// every directory named, in name order, once each. The normal test suite replays the checked-in
// corpora this way; a target that finds a fault aborts, which fails the test.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

std::vector<std::filesystem::path> InputFiles(int argc, char** argv) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path argument(argv[i]);
        if (!std::filesystem::is_directory(argument)) {
            files.push_back(argument);
            continue;
        }
        std::vector<std::filesystem::path> entries;
        for (const auto& entry : std::filesystem::directory_iterator(argument)) {
            if (entry.is_regular_file()) {
                entries.push_back(entry.path());
            }
        }
        std::sort(entries.begin(), entries.end());
        files.insert(files.end(), entries.begin(), entries.end());
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::filesystem::path> files = InputFiles(argc, argv);
    for (const std::filesystem::path& file : files) {
        std::ifstream stream(file, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)),
                                      std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return files.empty() ? 1 : 0;  // an empty corpus would test nothing
}
