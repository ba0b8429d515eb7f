#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/Fixtures.h"

namespace testing_support {

// Queries as a recording fixture logs them: item << 8 | field.
constexpr unsigned Query(unsigned item, unsigned field) {
    return item << 8 | field;
}

inline std::vector<unsigned> RecordedQueries(const fixture_query_log& log) {
    return {log.queries, log.queries + log.count};
}

// libmetadata_recording.so: answers from tables the test supplies and records every query.
class RecordingLibrary {
  public:
    RecordingLibrary()
        : library("metadata_recording"),
          setLibrary(library.Symbol<void(const quarn_debug_library*)>("recording_set_library")),
          log(library.Symbol<fixture_query_log>("recorded_queries")) {}

    // The tables must outlive every use of the library's items. Clears the recorded queries.
    void Describe(const quarn_debug_library& description) { setLibrary(&description); }
    std::vector<unsigned> Queries() const { return RecordedQueries(*log); }
    void* Handle() const { return library.Handle(); }

  private:
    LoadedLibrary library;
    void (*setLibrary)(const quarn_debug_library*);
    const fixture_query_log* log;
};

// The tables of one compiled item built at run time: file f is named names[f], method k has
// the hash methodHashes[k], one sequence point and file 0.
class ItemTables {
  public:
    ItemTables(quarn_hash128 hash, const std::vector<std::string>& names,
               std::vector<quarn_hash128> methodHashes)
        : hashes(std::move(methodHashes)),
          methods(hashes.size(), quarn_method_debug_info{1, 0, 1, 0}),
          digestIndices(names.size(), -1) {
        for (const std::string& name : names) {
            offsets.push_back(static_cast<int32_t>(strings.size()));
            strings.append(name).push_back('\0');
        }
        item = {static_cast<int32_t>(hashes.size()),
                static_cast<int32_t>(names.size()),
                1,
                methodFiles,
                methods.data(),
                offsets.data(),
                strings.data(),
                &point,
                hash,
                hashes.data(),
                digestIndices.data(),
                &digest};
    }
    ItemTables(const ItemTables&) = delete;
    ItemTables& operator=(const ItemTables&) = delete;

    quarn_debug_item& Item() { return item; }
    const char* Name(size_t file) const { return strings.data() + offsets[file]; }

  private:
    std::string strings;
    std::vector<int32_t> offsets;
    std::vector<quarn_hash128> hashes;
    std::vector<quarn_method_debug_info> methods;
    std::vector<int32_t> digestIndices;
    const int32_t methodFiles[1] = {0};
    const quarn_sequence_point point = {0, 1, 1, 1, 2, 0};
    const quarn_md5 digest = {};
    quarn_debug_item item{};
};

// A library description over items copied from ItemTables (the copies stay in `items`).
struct LibraryTables {
    explicit LibraryTables(std::vector<quarn_debug_item> itemList,
                           uint64_t version = QUARN_DEBUG_FORMAT_VERSION)
        : items(std::move(itemList)), description{version, items.size(), items.data()} {}
    LibraryTables(const LibraryTables&) = delete;
    LibraryTables& operator=(const LibraryTables&) = delete;

    std::vector<quarn_debug_item> items;
    quarn_debug_library description;
};

}  // namespace testing_support
