// Runs a fuzz target without libFuzzer on one input file, or on every file of a corpus directory
// in name order, once each. The normal test suite replays the checked-in corpora this way;
// a target that finds a fault aborts, which fails the test.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s INPUT_FILE_OR_CORPUS_DIRECTORY\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> files;
    if (!std::filesystem::is_directory(argv[1]))
        files.emplace_back(argv[1]);
    else
        for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
        std::ifstream stream(file, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(stream)),
                                      std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return files.empty() ? 1 : 0;  // an empty corpus would test nothing
}
