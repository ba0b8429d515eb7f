// Differential fuzzing of the file matcher: FileNameMatches, and the whole QuarnIsFileQuarned
// query over the file names of a loaded compiled library, against a deliberately plain model of
// the matching rules written here. Any disagreement aborts.
//
// Input: one flags byte (bit 0: ignore case), then NUL-separated texts. The last text is the
// debugger's path; the ones before it (at most four) are the library's file names.

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzInput.h"
#include "ProgrammableLibrary.h"
#include "plugin/MonoDebuggerHandling.h"
#include "queries/FileMatcher.h"

namespace {

namespace model {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// Every separator becomes '/', and with ignoreCase every byte its tolower(): two texts are
// equal under the byte rule exactly when their canonical forms are identical.
std::string Canonical(std::string_view text, bool ignoreCase) {
    std::string canonical;
    for (char c : text) {
        if (IsSeparator(c)) {
            canonical += '/';
        } else {
            canonical +=
                ignoreCase ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : c;
        }
    }
    return canonical;
}

// After the last '/'; with none, after the last '\'; with neither, everything.
std::string_view BaseName(std::string_view element) {
    for (char separator : {'/', '\\'}) {
        const size_t last = element.rfind(separator);
        if (last != std::string_view::npos) {
            return element.substr(last + 1);
        }
    }
    return element;
}

bool Matches(std::string_view element, std::string_view path, bool ignoreCase) {
    const std::string wanted = Canonical(path, ignoreCase);
    if (wanted.find('/') == std::string::npos) {
        return Canonical(BaseName(element), ignoreCase) == wanted;
    }
    if (element.size() >= 2 && element[0] == '.' && IsSeparator(element[1])) {
        const std::string suffix = Canonical(element.substr(2), ignoreCase);
        return wanted.size() >= suffix.size() && wanted.ends_with(suffix);
    }
    return Canonical(element, ignoreCase) == wanted;
}

}  // namespace model

[[noreturn]] void Disagree(const char* what, std::string_view element, std::string_view path,
                           bool ignoreCase) {
    std::fprintf(stderr, "%s disagrees with the model: element '%.*s' path '%.*s' ignoreCase %d\n",
                 what, static_cast<int>(element.size()), element.data(),
                 static_cast<int>(path.size()), path.data(), ignoreCase ? 1 : 0);
    std::abort();
}

std::vector<std::string_view> SplitAtNul(std::string_view text) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (size_t end = text.find('\0'); end != std::string_view::npos;
         start = end + 1, end = text.find('\0', start)) {
        parts.push_back(text.substr(start, end - start));
    }
    parts.push_back(text.substr(start));
    return parts;
}

// One item whose files are the given names (it is skipped, like any item, without files).
struct FileNameTables {
    explicit FileNameTables(const std::vector<std::string_view>& names) {
        for (std::string_view name : names) {
            offsets.push_back(static_cast<int32_t>(strings.size()));
            strings.append(name).push_back('\0');
        }
        item.methodCount = 1;
        item.fileCount = static_cast<int32_t>(names.size());
        item.auxCount = 1;
        item.methods = &method;
        item.fileNameOffsets = offsets.data();
        item.stringTable = strings.data();
        item.methodHashes = &methodHash;
        library = {QUARN_DEBUG_FORMAT_VERSION, 1, &item};
    }

    std::string strings;
    std::vector<int32_t> offsets;
    quarn_method_debug_info method{};
    quarn_hash128 methodHash{0x1, 0x2};
    quarn_debug_item item{};
    quarn_debug_library library{};
};

constexpr size_t kMaxNames = 4;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ProgrammableLibrary compiledLibrary(0);
    FuzzInput input(data, size);
    const bool ignoreCase = (input.Byte() & 1) != 0;
    std::vector<std::string_view> texts = SplitAtNul(input.Rest());
    const std::string path(texts.back());
    texts.pop_back();
    if (texts.size() > kMaxNames) {
        texts.resize(kMaxNames);
    }

    bool anyMatches = false;
    for (std::string_view element : texts) {
        const bool expected = model::Matches(element, path, ignoreCase);
        if (FileNameMatches(element, path, ignoreCase) != expected) {
            Disagree("FileNameMatches", element, path, ignoreCase);
        }
        anyMatches = anyMatches || expected;
    }
    if (HasDirectoryPart(path) != (path.find_first_of("/\\") != std::string::npos)) {
        Disagree("HasDirectoryPart", "", path, ignoreCase);
    }

    const FileNameTables tables(texts);
    compiledLibrary.Describe(&tables.library);
    MonoDebuggerHandling handling("");
    handling.ProcessLibraryMetadata(compiledLibrary.Handle());
    // Any non-zero value selects case-insensitive matching.
    const int ignoreCaseArgument = ignoreCase ? 2 : 0;
    if ((handling.QuarnIsFileQuarned(ignoreCaseArgument, path.c_str()) == 1) != anyMatches) {
        Disagree("QuarnIsFileQuarned", texts.empty() ? "" : texts.front(), path, ignoreCase);
    }
    compiledLibrary.Describe(nullptr);
    return 0;
}
