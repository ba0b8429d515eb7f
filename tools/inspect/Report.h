#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "DebugTables.h"
#include "InspectOptions.h"
#include "TableCheck.h"

// The file names of a library that the debugger would treat as one path, each with the
// (item, file) places it is named at.
struct FileMatch {
    std::string name;
    std::vector<std::pair<int32_t, int32_t>> places;
};

// What the inspector learned about one library.
struct LibraryReport {
    std::string path;
    bool pluginReadsLibrary = false;  // the plug-in's own reader accepts the header
    DebugTables tables;
    std::vector<TableProblem> problems;  // with --check
    std::vector<FileMatch> matches;      // with --match
};

// Loads the library, reads its tables and runs what the options ask for. Throws BadInput for a
// missing file, a file that is not a shared object, or one without "quarn.debug_query".
LibraryReport InspectLibrary(const std::string& path, const InspectOptions& options);

// The names of the items the plug-in keeps that the plug-in's matcher pairs with `path`.
std::vector<FileMatch> MatchFileNames(const DebugTables& tables, const std::string& path,
                                      bool ignoreCase);

void PrintText(std::ostream& out, const LibraryReport& report, const InspectOptions& options);
void PrintJson(std::ostream& out, const std::vector<LibraryReport>& reports,
               const InspectOptions& options);
