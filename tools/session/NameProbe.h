#pragma once

#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "DebuggerSide.h"
#include "PluginApi.h"

// Tells which of the plug-in's file names a debugger path stands for, by the plug-in's own
// matching rules. isFileQuarned answers for all known names at once; so the probe keeps a second
// handling object, with logging off, that knows one name at a time and asks it instead. The
// name reaches it as the single file of a one-item compiled library that this program exports
// itself ("quarn.debug_query" of the executable, found through dlopen(nullptr)).
class NameProbe {
  public:
    explicit NameProbe(const PluginApi& plugin);
    ~NameProbe();
    NameProbe(const NameProbe&) = delete;
    NameProbe& operator=(const NameProbe&) = delete;

    // Whether the plug-in treats `path` as the file `knownName`.
    bool Matches(const std::string& knownName, const std::string& path, bool ignoreCase = false);

  private:
    const PluginApi& plugin;
    std::unique_ptr<HandlingObject> probe;
    std::unique_ptr<DebuggerSide> debugger;
    void* program = nullptr;
    std::map<std::tuple<std::string, std::string, bool>, bool> answers;  // name, path, case
};
