#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "CompiledLibrary.h"
#include "DebuggerSide.h"
#include "JumpStubPage.h"
#include "Options.h"
#include "PluginApi.h"

// A method as the debugger side learns it: handle, token, hash and debug information.
struct KnownMethod {
    void* handle;
    uint32_t token;
    mdh_hash128 hash;
    MethodDebugInfoReply info;
};

// A breakpoint position resolved to the methods whose sequence points cover it.
struct ResolvedBreakpoint {
    struct Coverage {
        const KnownMethod* method;
        SequencePointReply point;
    };
    BreakLocation location;
    std::vector<std::string> fileNames;  // the plug-in's names the FILE stands for
    std::vector<Coverage> covering;
};

// An entry point the host registered, with the stub that runs it.
struct RegisteredEntry {
    mdh_hash128 hash;
    void* stub;
};

// One debugging session, step by step, narrated on `out`. Bad input surfaces as InputError.
class Session {
  public:
    Session(SessionOptions options, std::ostream& out) : options(std::move(options)), out(out) {}
    void Run();

  private:
    void OpenLibraries();
    void StartHandlingObject();
    void LoadLibraries();
    void RegisterEntryPoints();
    void ListFilesAndMethods();
    void PrintMethod(const KnownMethod& method) const;
    std::vector<ResolvedBreakpoint> ResolveBreakpoints() const;
    void ExerciseBreakpoint(const ResolvedBreakpoint& breakpoint);
    void Finish();
    void Step(const std::string& title) const;

    SessionOptions options;
    std::ostream& out;
    // Destroyed in reverse order: the stubs and the handling object before the plug-in is
    // closed, the compiled libraries last.
    std::vector<std::unique_ptr<CompiledLibrary>> libraries;
    std::unique_ptr<PluginApi> plugin;
    std::unique_ptr<HandlingObject> object;
    std::unique_ptr<DebuggerSide> debugger;
    std::unique_ptr<JumpStubPage> stubs;
    std::vector<RegisteredEntry> entries;
    std::vector<std::string> fileNames;
    std::vector<KnownMethod> methods;
};
