// Differential fuzzing of the file matcher: FileNameMatches, and the whole QuarnIsFileQuarned
// query over the file names of a loaded compiled library, against a deliberately plain model of
// the matching rules written here. Any disagreement aborts.
//
// Input: one flags byte (bit 0: ignore case), then NUL-separated texts. The last text is the
// debugger's path; the ones before it (at most four) are the library's file names.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ProgrammableLibrary.h"
#include "plugin/MonoDebuggerHandling.h"
#include "queries/FileMatcher.h"

namespace {

namespace model {

// Every separator becomes '/', and with ignoreCase every byte its tolower(): two texts are
// equal under the byte rule exactly when their canonical forms are identical.
std::string Canonical(std::string_view text, bool ignoreCase) {
    std::string canonical;
    for (unsigned char c : text)
        canonical += c == '\\' ? '/' : ignoreCase ? char(std::tolower(c)) : char(c);
    return canonical;
}

// After the last '/'; with none, after the last '\'; with neither, everything.
std::string_view BaseName(std::string_view element) {
    const size_t slash = element.rfind('/');
    const size_t last = slash != element.npos ? slash : element.rfind('\\');
    return last == element.npos ? element : element.substr(last + 1);
}

bool Matches(std::string_view element, std::string_view path, bool ignoreCase) {
    const std::string wanted = Canonical(path, ignoreCase);
    if (wanted.find('/') == std::string::npos)
        return Canonical(BaseName(element), ignoreCase) == wanted;
    if (element.starts_with("./") || element.starts_with(".\\"))
        return wanted.ends_with(Canonical(element.substr(2), ignoreCase));
    return Canonical(element, ignoreCase) == wanted;
}

}  // namespace model

void Check(bool agrees, const char* what, const std::string& path) {
    if (!agrees) {
        std::fprintf(stderr, "%s disagrees with the model on the path '%s'\n", what, path.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ProgrammableLibrary compiledLibrary(0);
    FuzzInput input(data, size);
    const bool ignoreCase = (input.Byte() & 1) != 0;
    std::vector<std::string_view> texts;
    for (std::string_view rest = input.Rest();; rest.remove_prefix(texts.back().size() + 1)) {
        texts.push_back(rest.substr(0, rest.find('\0')));
        if (texts.back().size() == rest.size())
            break;
    }
    const std::string path(texts.back());
    texts.pop_back();
    texts.resize(std::min<size_t>(texts.size(), 4));

    // One item whose files are the texts (it is skipped, like any item, without files).
    std::string strings;
    std::vector<int32_t> offsets;
    bool anyMatches = false;
    for (std::string_view element : texts) {
        const bool expected = model::Matches(element, path, ignoreCase);
        Check(FileNameMatches(element, path, ignoreCase) == expected, "FileNameMatches", path);
        anyMatches = anyMatches || expected;
        offsets.push_back(int32_t(strings.size()));
        strings.append(element).push_back('\0');
    }

    const quarn_method_debug_info method{};
    const quarn_hash128 methodHash{0x1, 0x2};
    quarn_debug_item item{};
    item.methodCount = item.auxCount = 1, item.fileCount = int32_t(texts.size());
    item.methods = &method, item.methodHashes = &methodHash;
    item.fileNameOffsets = offsets.data(), item.stringTable = strings.data();
    const quarn_debug_library library{QUARN_DEBUG_FORMAT_VERSION, 1, &item};
    compiledLibrary.Describe(&library);
    MonoDebuggerHandling handling("");
    handling.ProcessLibraryMetadata(compiledLibrary.Handle());
    // Any non-zero value selects case-insensitive matching.
    Check((handling.QuarnIsFileQuarned(ignoreCase ? 2 : 0, path.c_str()) == 1) == anyMatches,
          "QuarnIsFileQuarned", path);
    compiledLibrary.Describe(nullptr);
    return 0;
}
