// Byte comparison and the suffix and base-name tests of FileNameMatches.
#include "queries/FileMatcher.h"

#include <cctype>

namespace {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

bool BytesEqual(char a, char b, bool ignoreCase) {
    if (a == b || (IsSeparator(a) && IsSeparator(b))) {
        return true;
    }
    return ignoreCase && std::tolower(static_cast<unsigned char>(a)) ==
                             std::tolower(static_cast<unsigned char>(b));
}

bool TextsEqual(std::string_view a, std::string_view b, bool ignoreCase) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (!BytesEqual(a[i], b[i], ignoreCase)) {
            return false;
        }
    }
    return true;
}

bool IsRelativeElement(std::string_view element) {
    return element.size() >= 2 && element[0] == '.' && IsSeparator(element[1]);
}

// What follows the last '/'; without one, what follows the last '\'; else the whole element.
std::string_view BaseName(std::string_view element) {
    size_t separator = element.rfind('/');
    if (separator == std::string_view::npos) {
        separator = element.rfind('\\');
    }
    return separator == std::string_view::npos ? element : element.substr(separator + 1);
}

}  // namespace

bool HasDirectoryPart(std::string_view path) {
    return path.find_first_of("/\\") != std::string_view::npos;
}

bool FileNameMatches(std::string_view element, std::string_view path, bool ignoreCase) {
    if (!HasDirectoryPart(path)) {
        return TextsEqual(BaseName(element), path, ignoreCase);
    }
    if (IsRelativeElement(element)) {
        const std::string_view rest = element.substr(2);
        return path.size() >= rest.size() &&
               TextsEqual(path.substr(path.size() - rest.size()), rest, ignoreCase);
    }
    return TextsEqual(element, path, ignoreCase);
}
