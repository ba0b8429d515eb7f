#include "Session.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "BundledFiles.h"
#include "SampleTables.h"
#include "Text.h"
#include "queries/FileMatcher.h"

namespace {

constexpr const char* kPlaceholderAssembly = "Orvel.Quarn.Placeholder.dll";
constexpr const char* kLogVariable = "ORVEL_QUARN_DEBUG";
constexpr const char* kLogFile = "Logs/quarn-mono-debug.log";

std::string Md5Text(const SourceFile& file) {
    if (std::all_of(file.md5.begin(), file.md5.end(), [](uint8_t byte) { return byte == 0; })) {
        return "(none)";
    }
    std::string text = BytesText(file.md5.data(), file.md5.size());
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return static_cast<char>(std::tolower(c)); });
    return text;  // as md5sum prints it
}

std::string RangeText(const SequencePointReply& point) {
    char text[80];
    std::snprintf(text, sizeof text, "IL 0x%04X  %d:%d-%d:%d  file %d", point.ilOffset,
                  point.startLine, point.startColumn, point.endLine, point.endColumn, point.file);
    return text;
}

std::string WorkingDirectory() {
    char path[4096];
    return getcwd(path, sizeof path) != nullptr ? path : ".";
}

std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

// The first sequence point of `method` on `line` of one of `fileNames`, if any.
const SequencePointReply* PointOnLine(const KnownMethod& method,
                                      const std::vector<std::string>& fileNames, int line) {
    for (const SequencePointReply& point : method.info.points) {
        if (point.file < 0 || static_cast<size_t>(point.file) >= method.info.files.size()) {
            continue;
        }
        const std::string& name = method.info.files[static_cast<size_t>(point.file)].name;
        const bool inFile = std::find(fileNames.begin(), fileNames.end(), name) != fileNames.end();
        if (inFile && point.startLine <= line && line <= point.endLine) {
            return &point;
        }
    }
    return nullptr;
}

}  // namespace

void Session::Run() {
    if (options.libraries.empty()) {
        options.libraries.push_back(BundledSamplePath());
    }
    if (options.breakpoints.empty()) {
        options.breakpoints.push_back(ParseBreakLocation(SAMPLE_DEFAULT_BREAKPOINT));
    }
    OpenLibraries();
    plugin = std::make_unique<PluginApi>(BundledPluginPath());
    out << "quarn-debug-session: one debugging session, as a host and a debugger side\n"
        << "plug-in: " << plugin->Path() << "\n";
    StartHandlingObject();
    LoadLibraries();
    RegisterEntryPoints();
    ListFilesAndMethods();
    const std::vector<ResolvedBreakpoint> breakpoints = ResolveBreakpoints();
    for (const ResolvedBreakpoint& breakpoint : breakpoints) {
        ExerciseBreakpoint(breakpoint);
    }
    Finish();
}

void Session::Step(const std::string& title) const {
    out << "\n== " << title << "\n";
}

// Opened before anything else, so a bad library is reported before the session starts.
void Session::OpenLibraries() {
    for (const std::string& path : options.libraries) {
        libraries.push_back(std::make_unique<CompiledLibrary>(path));
    }
}

void Session::StartHandlingObject() {
    Step("host: initialize and startup");
    const std::string level = std::to_string(options.logLevel);
    setenv(kLogVariable, level.c_str(), 1);  // read once, by the constructor
    out << kLogVariable << "=" << level << "\n";
    object = std::make_unique<HandlingObject>(*plugin, kPlaceholderAssembly);
    out << "initialize(\"" << kPlaceholderAssembly << "\") -> handle "
        << AddressText(object->Handle()) << "\n"
        << "jit_get_cpu_architecture() -> " << plugin->jit_get_cpu_architecture() << " (x86-64)\n"
        << "startup() -> " << plugin->startup(object->Handle()) << "\n";

    Step("debugger side: take the callbacks record from the command string");
    debugger = std::make_unique<DebuggerSide>(object->Callbacks());
    debugger->FinishSetup();
    out << "callbacks record at " << AddressText(debugger->Record())
        << ": reply writers, shutdownNotify and flushClientKnowledge filled in; "
           "finishSetup() called\n";
}

void Session::LoadLibraries() {
    Step("host: load the compiled libraries");
    for (const auto& library : libraries) {
        const int flushesBefore = debugger_side::FlushCalls();
        plugin->library_loaded(object->Handle(), library->Handle());
        out << "library_loaded(" << library->FileName() << "): " << library->ItemCount()
            << " items, " << library->EntryHashes().size() << " read by the plug-in; "
            << "flushClientKnowledge called " << debugger_side::FlushCalls() - flushesBefore
            << " time(s)\n";
    }
}

void Session::RegisterEntryPoints() {
    Step("host: register one entry point per item, each with a jump stub");
    size_t total = 0;
    for (const auto& library : libraries) {
        total += library->EntryHashes().size();
    }
    stubs = std::make_unique<JumpStubPage>(*plugin, std::max<size_t>(total, 1));
    for (const auto& library : libraries) {
        for (const mdh_hash128& hash : library->EntryHashes()) {
            void* stub = stubs->MakeQuarnedStub(entries.size());
            plugin->register_entry(object->Handle(), library->Handle(), hash,
                                   reinterpret_cast<void*>(&RunQuarnedCode), stub, nullptr,
                                   nullptr);
            entries.push_back({hash, stub});
            out << "register_entry " << HashText(hash) << "  stub " << AddressText(stub)
                << ": a call lands in " << LandingName(JumpStubPage::Call(stub)) << " code\n";
        }
    }
}

void Session::ListFilesAndMethods() {
    Step("debugger side: files, methods and debug info (protocol " +
         std::to_string(kNewestProtocol.majorVersion) + "." +
         std::to_string(kNewestProtocol.minorVersion) + ")");
    fileNames = debugger->FetchFiles();
    out << "fetchFiles: " << fileNames.size() << " files\n";
    for (const std::string& name : fileNames) {
        out << "  " << name << "\n";
    }
    const std::vector<void*> handles = debugger->FetchMethods();
    out << "fetchMethods: " << handles.size() << " methods\n";
    for (void* handle : handles) {
        methods.push_back({handle, debugger->FetchMethodToken(handle), debugger->MethodHash(handle),
                           debugger->FetchDebugInfo(handle)});
        PrintMethod(methods.back());
    }
}

void Session::PrintMethod(const KnownMethod& method) const {
    out << "  method " << TokenText(method.token) << "  hash " << HashText(method.hash)
        << "  in entry point " << HashText(debugger->EntryPointHash(method.handle)) << "\n";
    for (const SourceFile& file : method.info.files) {
        out << "    file " << file.name << "  md5 " << Md5Text(file) << "\n";
    }
    for (const SequencePointReply& point : method.info.points) {
        out << "    " << RangeText(point) << "\n";
    }
}

// Every position is resolved before any breakpoint is set, so a bad one stops the session
// before it changes anything.
std::vector<ResolvedBreakpoint> Session::ResolveBreakpoints() const {
    std::vector<ResolvedBreakpoint> resolved;
    for (const BreakLocation& location : options.breakpoints) {
        if (!debugger->IsFileQuarned(location.file)) {
            throw InputError(location.Text() + ": no compiled method covers it (isFileQuarned(\"" +
                             location.file + "\") is 0: no compiled file has that name)");
        }
        ResolvedBreakpoint breakpoint{location, {}, {}};
        // The names fetchFiles listed that the plug-in's own matcher pairs with the path, as
        // isFileQuarned does.
        std::copy_if(
            fileNames.begin(), fileNames.end(), std::back_inserter(breakpoint.fileNames),
            [&](const std::string& name) { return FileNameMatches(name, location.file, false); });
        for (const KnownMethod& method : methods) {
            if (const SequencePointReply* point =
                    PointOnLine(method, breakpoint.fileNames, location.line)) {
                breakpoint.covering.push_back({&method, *point});
            }
        }
        if (breakpoint.covering.empty()) {
            throw InputError(location.Text() + ": no compiled method covers line " +
                             std::to_string(location.line) + " of " + Joined(breakpoint.fileNames));
        }
        resolved.push_back(std::move(breakpoint));
    }
    return resolved;
}

void Session::ExerciseBreakpoint(const ResolvedBreakpoint& breakpoint) {
    Step("debugger side: breakpoint at " + breakpoint.location.Text());
    out << "isFileQuarned(\"" << breakpoint.location.file << "\") -> 1; it stands for "
        << Joined(breakpoint.fileNames) << "\n";
    for (const auto& [method, point] : breakpoint.covering) {
        out << "covered by method " << TokenText(method->token) << " (hash "
            << HashText(method->hash) << "): " << RangeText(point) << "\n";
    }
    std::vector<Landing> before, whileSet, after;
    std::vector<bool> flagged;
    for (const RegisteredEntry& entry : entries) {
        before.push_back(JumpStubPage::Call(entry.stub));
    }
    // The breakpoint handle is the debugger side's identity of the breakpoint; never dereferenced.
    void* handle = const_cast<void*>(static_cast<const void*>(&breakpoint));
    for (const auto& covering : breakpoint.covering) {
        debugger->SetBreakpoint(covering.method->handle, handle);
    }
    out << "breakpointNotify(set, breakpoint " << AddressText(handle) << ")\n";
    for (const RegisteredEntry& entry : entries) {
        whileSet.push_back(JumpStubPage::Call(entry.stub));
        flagged.push_back(debugger->BreakpointSet(entry.hash));
    }
    debugger->RemoveBreakpoint(handle);
    out << "breakpointNotify(remove, breakpoint " << AddressText(handle) << ")\n"
        << "calls through each stub: before -> with the breakpoint -> after its removal\n";
    int switched = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        after.push_back(JumpStubPage::Call(entries[i].stub));
        const bool didSwitch = before[i] != whileSet[i];
        switched += didSwitch ? 1 : 0;
        out << "  entry " << HashText(entries[i].hash) << ": " << LandingName(before[i]) << " -> "
            << LandingName(whileSet[i]) << " -> " << LandingName(after[i])
            << "  (testBreakpointSet " << flagged[i] << " -> "
            << debugger->BreakpointSet(entries[i].hash) << ")" << (didSwitch ? "  switched" : "")
            << "\n";
    }
    out << "the breakpoint switched " << switched << " of " << entries.size()
        << " entry points to managed code and back\n";
}

void Session::Finish() {
    Step("host: unload, shut down, dispose");
    for (const auto& library : libraries) {
        plugin->library_unloaded(object->Handle(), library->Handle());
        uint32_t remaining = 0;
        for (const mdh_hash128& hash : library->EntryHashes()) {
            remaining += debugger->EntryPointCount(hash);
        }
        out << "library_unloaded(" << library->FileName() << "): " << remaining
            << " of its entry points still registered\n";
    }
    const int shutdownsBefore = debugger_side::ShutdownCalls();
    plugin->shut_down(object->Handle());
    out << "shut_down(): the debugger side's shutdownNotify called "
        << debugger_side::ShutdownCalls() - shutdownsBefore << " time(s)\n";
    debugger.reset();
    object.reset();
    out << "dispose(): done\n";
    out << "\nlog (level " << options.logLevel << "): " << WorkingDirectory() << "/" << kLogFile
        << "\n";
}
