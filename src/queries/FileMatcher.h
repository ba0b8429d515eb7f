// Whether a debugger's source path stands for a known file. A free function, so the inspector
// and the fuzzer run the plug-in's own rules without a handling object.

#pragma once

#include <string_view>

// How the debugger's source path is compared with a known file name:
// - bytes are equal when identical, when both are separators ('/' or '\'), or, ignoring case,
//   when tolower() of both agree;
// - a path with a directory part matches an element "./R" (or ".\R") when the path ends in R
//   (a pure suffix test, no separator required before it), and any other element only in full;
// - a path without a directory part matches an element whose base name equals it in full.
bool FileNameMatches(std::string_view element, std::string_view path, bool ignoreCase);

// True when `path` contains '/' or '\'.
bool HasDirectoryPart(std::string_view path);
