#include "Report.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "plugin/Constants.h"
#include "queries/FileMatcher.h"

namespace {

// Digests print as md5sum prints them, so they can be compared with the source files.
std::string DigestText(const Md5Digest& digest) {
    std::string text;
    char pair[3];
    for (const unsigned char byte : digest.bytes) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

std::string HexText(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

std::string PointText(const SequencePoint& point) {
    char text[96];
    std::snprintf(text, sizeof text, "IL 0x%04X  %d:%d-%d:%d  file %d", point.ilOffset,
                  point.startLine, point.startColumn, point.endLine, point.endColumn, point.file);
    return text;
}

// The method's file numbers: its fileCount entries of methodFileIndices, as far as readable.
std::vector<int32_t> MethodFiles(const InspectedMethod& method) {
    const size_t count = std::min(method.fileNumbers.elements.size(),
                                  static_cast<size_t>(std::max(method.info.fileCount, 0)));
    return {method.fileNumbers.elements.begin(), method.fileNumbers.elements.begin() + count};
}

bool DumpMode(const InspectOptions& options) {
    return !options.check && !options.matchPath;
}

// ---- text ---------------------------------------------------------------------------------

void PrintFile(std::ostream& out, const InspectedFile& file) {
    out << "    file " << file.index << ": " << file.name.value_or("<unreadable name>") << "  md5 ";
    if (file.md5) {
        out << DigestText(*file.md5);
    } else {
        out << (file.md5Index && *file.md5Index < 0 ? "(none)" : "<unreadable>");
    }
    out << "\n";
}

void PrintMethod(std::ostream& out, const InspectedMethod& method) {
    out << "    method " << method.index << ": hash "
        << (method.hash ? method.hash->ToString() : "<unreadable>") << ", files";
    const std::vector<int32_t> files = MethodFiles(method);
    for (size_t k = 0; k < files.size(); ++k) {
        out << (k == 0 ? " " : ", ") << files[k];
    }
    out << (files.empty() ? " (none)" : "") << ", " << method.info.sequencePointCount
        << " sequence points\n";
    for (const SequencePoint& point : method.points.elements) {
        out << "      " << PointText(point) << "\n";
    }
}

void PrintItem(std::ostream& out, const InspectedItem& item) {
    out << "  item " << item.number << ": ";
    if (item.SkippedByPlugin()) {  // its hash is never queried
        out << item.methodCount << " methods, " << item.fileCount
            << " files, field 2 = " << item.auxCount << ": skipped by the plug-in\n";
        return;
    }
    out << "hash " << (item.hash ? item.hash->ToString() : "<unreadable>") << ", "
        << item.methodCount << " methods, " << item.fileCount
        << " files, field 2 = " << item.auxCount << "\n";
    for (const InspectedFile& file : item.files) {
        PrintFile(out, file);
    }
    for (const InspectedMethod& method : item.methods) {
        PrintMethod(out, method);
    }
}

void PrintProblems(std::ostream& out, const LibraryReport& report) {
    out << "  check: " << report.problems.size() << " problem(s)\n";
    for (const TableProblem& problem : report.problems) {
        out << "  ";
        if (problem.item == 0) {
            out << "header";
        } else {
            out << "item " << problem.item;
        }
        if (problem.method >= 0) {
            out << " method " << problem.method;
        }
        out << " field " << problem.field << ": " << problem.message << "\n";
    }
}

void PrintMatches(std::ostream& out, const LibraryReport& report, const InspectOptions& options) {
    out << "  match '" << *options.matchPath << "'" << (options.ignoreCase ? " ignoring case" : "")
        << ": " << report.matches.size() << " file name(s)\n";
    for (const FileMatch& match : report.matches) {
        out << "    " << match.name << "  (";
        for (size_t k = 0; k < match.places.size(); ++k) {
            out << (k == 0 ? "" : ", ") << "item " << match.places[k].first << " file "
                << match.places[k].second;
        }
        out << ")\n";
    }
}

// ---- JSON ---------------------------------------------------------------------------------

// Members keep the order they are added in.
using Json = nlohmann::ordered_json;

// A string, or null when there is none.
Json OptionalText(const std::optional<std::string>& text) {
    return text ? Json(*text) : Json();
}

Json PointJson(const SequencePoint& point) {
    return {{"ilOffset", point.ilOffset},       {"startLine", point.startLine},
            {"startColumn", point.startColumn}, {"endLine", point.endLine},
            {"endColumn", point.endColumn},     {"file", point.file}};
}

Json MethodJson(const InspectedMethod& method) {
    Json points = Json::array();
    for (const SequencePoint& point : method.points.elements) {
        points.push_back(PointJson(point));
    }
    return {
        {"method", method.index},
        {"hash", OptionalText(method.hash ? std::optional(method.hash->ToString()) : std::nullopt)},
        {"sequencePointCount", method.info.sequencePointCount},
        {"firstSequencePoint", method.info.firstSequencePoint},
        {"fileCount", method.info.fileCount},
        {"firstFile", method.info.firstFile},
        {"files", MethodFiles(method)},
        {"sequencePoints", std::move(points)}};
}

Json ItemJson(const InspectedItem& item) {
    Json files = Json::array(), methods = Json::array();
    for (const InspectedFile& file : item.files) {
        files.push_back({{"file", file.index},
                         {"name", OptionalText(file.name)},
                         {"md5", OptionalText(file.md5 ? std::optional(DigestText(*file.md5))
                                                       : std::nullopt)}});
    }
    for (const InspectedMethod& method : item.methods) {
        methods.push_back(MethodJson(method));
    }
    return {{"item", item.number},
            {"hash", OptionalText(item.hash ? std::optional(item.hash->ToString()) : std::nullopt)},
            {"methodCount", item.methodCount},
            {"fileCount", item.fileCount},
            {"auxCount", item.auxCount},
            {"skippedByPlugin", item.SkippedByPlugin()},
            {"files", std::move(files)},
            {"methods", std::move(methods)}};
}

Json ProblemsJson(const std::vector<TableProblem>& problems) {
    Json list = Json::array();
    for (const TableProblem& problem : problems) {
        list.push_back({{"item", problem.item},
                        {"method", problem.method},
                        {"field", problem.field},
                        {"message", problem.message}});
    }
    return list;
}

Json MatchesJson(const std::vector<FileMatch>& matches) {
    Json list = Json::array();
    for (const FileMatch& match : matches) {
        Json places = Json::array();
        for (const auto& [item, file] : match.places) {
            places.push_back({{"item", item}, {"file", file}});
        }
        list.push_back({{"name", match.name}, {"places", std::move(places)}});
    }
    return list;
}

Json LibraryJson(const LibraryReport& report, const InspectOptions& options) {
    Json library = {{"path", report.path},
                    {"pluginReadsLibrary", report.pluginReadsLibrary},
                    {"version", report.tables.version},
                    {"itemCount", report.tables.itemCount}};
    if (DumpMode(options)) {
        Json& items = library["items"] = Json::array();
        for (const InspectedItem& item : report.tables.items) {
            items.push_back(ItemJson(item));
        }
    }
    if (options.check) {
        library["problems"] = ProblemsJson(report.problems);
    }
    if (options.matchPath) {
        library["matches"] = MatchesJson(report.matches);
    }
    return library;
}

}  // namespace

LibraryReport InspectLibrary(const std::string& path, const InspectOptions& options) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw BadInput(path + ": no such file");
    }
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw BadInput(path + ": not a loadable shared object (" + dlerror() + ")");
    }
    const auto query =
        reinterpret_cast<DebugQueryFunction>(dlsym(library, Constants::DebugQueryName.c_str()));
    if (query == nullptr) {
        dlclose(library);
        throw BadInput(path + ": exports no \"" + Constants::DebugQueryName + "\"");
    }
    LibraryReport report;
    report.path = path;
    DebugQueryReader pluginReader;
    report.pluginReadsLibrary = pluginReader.Open(library);
    report.tables = ReadDebugTables(query);
    if (options.check) {
        report.problems = CheckDebugTables(report.tables);
    }
    if (options.matchPath && report.pluginReadsLibrary) {
        report.matches = MatchFileNames(report.tables, *options.matchPath, options.ignoreCase);
    }
    dlclose(library);  // everything the report holds was copied out
    return report;
}

std::vector<FileMatch> MatchFileNames(const DebugTables& tables, const std::string& path,
                                      bool ignoreCase) {
    std::vector<FileMatch> matches;
    for (const InspectedItem& item : tables.items) {
        for (const InspectedFile& file : item.files) {
            if (!file.name || !FileNameMatches(*file.name, path, ignoreCase)) {
                continue;
            }
            auto known = std::find_if(matches.begin(), matches.end(), [&](const FileMatch& match) {
                return match.name == *file.name;
            });
            if (known == matches.end()) {
                known = matches.insert(matches.end(), FileMatch{*file.name, {}});
            }
            known->places.emplace_back(item.number, file.index);
        }
    }
    return matches;
}

void PrintText(std::ostream& out, const LibraryReport& report, const InspectOptions& options) {
    out << report.path << "\n"
        << "  header: format version " << HexText(report.tables.version) << ", "
        << report.tables.itemCount << " items; the plug-in "
        << (report.pluginReadsLibrary ? "reads" : "ignores") << " this library\n";
    if (DumpMode(options)) {
        for (const InspectedItem& item : report.tables.items) {
            PrintItem(out, item);
        }
    }
    if (options.check) {
        PrintProblems(out, report);
    }
    if (options.matchPath) {
        PrintMatches(out, report, options);
    }
}

void PrintJson(std::ostream& out, const std::vector<LibraryReport>& reports,
               const InspectOptions& options) {
    Json libraries = Json::array();
    for (const LibraryReport& report : reports) {
        libraries.push_back(LibraryJson(report, options));
    }
    // Text from compiled libraries is not necessarily UTF-8: invalid bytes become U+FFFD.
    out << Json{{"libraries", std::move(libraries)}}.dump(-1, ' ', false,
                                                          Json::error_handler_t::replace)
        << "\n";
}
