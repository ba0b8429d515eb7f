#pragma once
// Reading a compiled library's items through its exported debug query function.

#include <cstdint>

#include "metadata/QuarnDebugMetadata.h"
#include "metadata/WireFormat.h"

// "quarn.debug_query": (item, field) -> value; item 0 is the header.
using DebugQueryFunction = uint64_t (*)(uint64_t item, uint64_t field);

// Reads one compiled library's items through its debug query function, in item order.
class DebugQueryReader {
  public:
    // Looks the query function up and checks the header (both header queries are always
    // made). False for a library without debug metadata, a wrong version or a count below 1.
    bool Open(void* library);

    int32_t ItemCount() const { return itemCount; }

    // Reads item `item` (1..ItemCount). Null for an item with a zero count of methods, files or
    // field 2; its record is abandoned, never freed (deliberately kept). The caller owns the rest.
    QuarnDebugMetadata* ReadItem(int32_t item) const;

  private:
    uint64_t Query(int32_t item, DebugQueryField field) const;

    DebugQueryFunction query = nullptr;
    void* libraryHandle = nullptr;
    int32_t itemCount = 0;
};
