#include "CompiledLibrary.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "Options.h"
#include "quarn_debug_producer.h"

namespace {

using DebugQuery = uint64_t (*)(uint64_t item, uint64_t field);

std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

CompiledLibrary::CompiledLibrary(const std::string& path) : path(path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw InputError(path + ": no such file");
    }
    handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw InputError(path + ": not a loadable shared object (" + dlerror() + ")");
    }
    try {
        ReadEntryHashes();
    } catch (...) {
        dlclose(handle);
        throw;
    }
}

CompiledLibrary::~CompiledLibrary() {
    dlclose(handle);
}

// Reads the header and the item hashes as the plug-in will, so that a library it would ignore
// is reported here rather than silently showing nothing.
void CompiledLibrary::ReadEntryHashes() {
    const auto query = reinterpret_cast<DebugQuery>(dlsym(handle, QUARN_DEBUG_QUERY_SYMBOL));
    if (query == nullptr) {
        throw InputError(path + ": exports no \"" QUARN_DEBUG_QUERY_SYMBOL "\"");
    }
    const auto version = static_cast<uint32_t>(query(0, 0));
    itemCount = static_cast<int32_t>(query(0, 1));
    if (version != QUARN_DEBUG_FORMAT_VERSION || itemCount < 1) {
        throw InputError(path + ": the plug-in ignores its debug tables (format version " +
                         Hex(version) + ", " + std::to_string(itemCount) +
                         " items; quarn-debug-inspect --check tells more)");
    }
    for (int item = 1; item <= itemCount; ++item) {
        const bool skipped = static_cast<int32_t>(query(item, QUARN_FIELD_METHOD_COUNT)) == 0 ||
                             static_cast<int32_t>(query(item, QUARN_FIELD_FILE_COUNT)) == 0 ||
                             static_cast<int32_t>(query(item, QUARN_FIELD_AUX_COUNT)) == 0;
        if (skipped) {
            continue;
        }
        const auto* hash = reinterpret_cast<const mdh_hash128*>(
            static_cast<uintptr_t>(query(item, QUARN_FIELD_HASH)));
        if (hash == nullptr) {
            throw InputError(path + ": item " + std::to_string(item) +
                             " has no hash (quarn-debug-inspect --check tells more)");
        }
        entryHashes.push_back(*hash);
    }
}
