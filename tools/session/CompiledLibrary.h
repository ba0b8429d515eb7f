#pragma once

#include <string>
#include <vector>

#include "mono_debugger_handling.h"

// A compiled library opened as the host opens it, with the entry points it holds: one per item
// that the plug-in reads (an item's hash is its entry point's hash).
class CompiledLibrary {
  public:
    // Throws InputError for a missing file, a file that is not a loadable shared object, a
    // library without "quarn.debug_query", or debug tables the plug-in would ignore.
    explicit CompiledLibrary(const std::string& path);
    ~CompiledLibrary();
    CompiledLibrary(const CompiledLibrary&) = delete;
    CompiledLibrary& operator=(const CompiledLibrary&) = delete;

    void* Handle() const { return handle; }
    const std::string& Path() const { return path; }
    std::string FileName() const { return path.substr(path.rfind('/') + 1); }
    int ItemCount() const { return itemCount; }
    const std::vector<mdh_hash128>& EntryHashes() const { return entryHashes; }

  private:
    void ReadEntryHashes();

    std::string path;
    void* handle = nullptr;
    int itemCount = 0;
    std::vector<mdh_hash128> entryHashes;
};
