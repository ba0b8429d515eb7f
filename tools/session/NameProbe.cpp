#include "NameProbe.h"

#include <dlfcn.h>

#include <cstdlib>

#include "quarn_debug_producer.h"

namespace {

// The one item the probe object knows: one method in one file, whose name Matches() sets.
const int32_t kFirstFile[] = {0};
const quarn_method_debug_info kMethods[] = {{0, 0, 1, 0}};
const quarn_hash128 kMethodHashes[] = {{0x9B0BE, 0x1}};
const int32_t kNoDigest[] = {-1};
quarn_debug_item gProbeItem = {1,          1,      1,       kFirstFile,     kMethods,
                               kFirstFile, "",     nullptr, {0x9B0BE, 0x2}, kMethodHashes,
                               kNoDigest,  nullptr};
const quarn_debug_library kProbeLibrary = {QUARN_DEBUG_FORMAT_VERSION, 1, &gProbeItem};

// A scope in which ORVEL_QUARN_DEBUG is unset, so the probe object writes no log.
class LoggingOff {
  public:
    LoggingOff() {
        if (const char* value = std::getenv(kVariable)) {
            saved = value;
            hadValue = true;
            unsetenv(kVariable);
        }
    }
    ~LoggingOff() {
        if (hadValue) {
            setenv(kVariable, saved.c_str(), 1);
        }
    }

  private:
    static constexpr const char* kVariable = "ORVEL_QUARN_DEBUG";
    std::string saved;
    bool hadValue = false;
};

}  // namespace

QUARN_DEFINE_DEBUG_QUERY(kProbeLibrary)

NameProbe::NameProbe(const PluginApi& plugin) : plugin(plugin) {
    {
        LoggingOff quiet;
        probe = std::make_unique<HandlingObject>(plugin, "");
    }
    debugger = std::make_unique<DebuggerSide>(probe->Callbacks());
    debugger->Record()->flushClientKnowledge = nullptr;  // its loads are not the session's
    program = dlopen(nullptr, RTLD_NOW);
}

NameProbe::~NameProbe() {
    plugin.library_unloaded(probe->Handle(), program);
    dlclose(program);
}

bool NameProbe::Matches(const std::string& knownName, const std::string& path, bool ignoreCase) {
    const auto key = std::make_tuple(knownName, path, ignoreCase);
    const auto known = answers.find(key);
    if (known != answers.end()) {
        return known->second;
    }
    gProbeItem.stringTable = knownName.c_str();
    plugin.library_loaded(probe->Handle(), program);  // replaces the previous name's item
    const bool matches = debugger->IsFileQuarned(path, ignoreCase);
    plugin.library_unloaded(probe->Handle(), program);
    gProbeItem.stringTable = "";
    answers.emplace(key, matches);
    return matches;
}
