#pragma once
// The reference for the incremental caches: the plain rebuild from scratch over the registered
// items, compared with what the indexes hold.

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "queries/FileMatcher.h"
#include "support/Inspector.h"

namespace testing_support {

// Empty when the caches are exactly the rebuild: the same distinct names, the same wrapping
// totals, for each method hash the same (item, index) holders, answered by a registered holder,
// and a method list with one consistent slot per hash. Otherwise what differs first.
inline std::string DifferenceFromRebuild(const MonoDebuggerHandlingInspector& inspect) {
    using Holder = std::pair<const QuarnDebugMetadata*, int32_t>;
    std::set<std::string> names;
    std::map<std::pair<uint64_t, uint64_t>, std::vector<Holder>> holders;
    uint32_t fileTotal = 0, methodTotal = 0;
    for (const QuarnDebugMetadata* item : inspect.MetadataItems()) {
        fileTotal += static_cast<uint32_t>(item->fileCount);
        methodTotal += static_cast<uint32_t>(item->methodCount);
        for (int32_t f = 0; f < item->fileCount; ++f)
            names.insert(item->FileName(f));
        for (int32_t k = 0; k < item->methodCount; ++k)
            holders[{item->methodHashes[k].word0, item->methodHashes[k].word1}].emplace_back(item,
                                                                                             k);
    }
    if (inspect.FileNames() != std::vector<std::string>(names.begin(), names.end()))
        return "file names";
    if (inspect.Files().Total() != static_cast<int32_t>(fileTotal) ||
        inspect.Methods().Total() != static_cast<int32_t>(methodTotal))
        return "totals";
    const auto& listed = inspect.Methods().ListedMethods();
    if (listed.size() != holders.size())
        return "number of distinct methods";
    for (size_t slot = 0; slot < listed.size(); ++slot) {
        const MethodIndexEntry& entry = *listed[slot].entry;
        std::vector<Holder> held;
        MethodIndex::ForEachHolder(
            entry, [&](const MethodLocation& h) { held.emplace_back(h.item, h.methodIndex); });
        const auto expected = holders.find({entry.key->word0, entry.key->word1});
        if (expected == holders.end())
            return "a listed method no item holds: " + entry.key->ToString();
        std::vector<Holder> wanted = expected->second;
        std::ranges::sort(held), std::ranges::sort(wanted);
        if (held != wanted)
            return "holders of " + entry.key->ToString();
        if (entry.slot != slot || !(listed[slot].location == entry.first))
            return "list slot of " + entry.key->ToString();
    }
    return "";
}

// Empty when QuarnIsFileQuarned, which compares a path with the base-name index's candidates
// only, answers as the matcher over every cached name does, for each probe path and case mode.
inline std::string MatchDifferenceFromFullWalk(MonoDebuggerHandling& handling,
                                               const std::vector<std::string>& probes) {
    const std::vector<std::string> names = MonoDebuggerHandlingInspector(handling).FileNames();
    for (const std::string& path : probes) {
        for (const int ignoreCase : {0, 1}) {
            const bool expected = std::ranges::any_of(names, [&](const std::string& name) {
                return FileNameMatches(name, path, ignoreCase != 0);
            });
            if ((handling.QuarnIsFileQuarned(ignoreCase, path.c_str()) == 1) != expected)
                return "IsFileQuarned(" + std::to_string(ignoreCase) + ", \"" + path + "\")";
        }
    }
    return "";
}

}  // namespace testing_support
