// Address space for method handle records: reserved once per process, never unmapped and never
// handed out twice, so a handle address can never come to denote a different record.
#pragma once

#include <cstddef>

#include "plugin/Lock.h"

// Hands out page-aligned ranges of fresh addresses and takes their pages back. Chunks are
// mapped private, anonymous and without swap reservation; a released range keeps its addresses
// (they read as zeros) while its pages go back to the system, so resident memory follows the
// ranges in use, not the addresses ever handed out. One per process, shared by every handling
// object; thread-safe.
class HandleArena {
  public:
    struct Range {
        void* start = nullptr;
        size_t bytes = 0;  // a whole number of pages
    };

    static HandleArena& Instance();

    // A range of at least `bytes` addresses never handed out before, writable, its pages
    // already faulted in. Throws std::bad_alloc when the address space cannot be reserved.
    Range Acquire(size_t bytes) EXCLUDES(mutex);
    // Returns the range's pages to the system; its addresses stay mapped and read as zeros.
    void Release(Range range) noexcept EXCLUDES(mutex);
    // Bytes of the ranges acquired and not yet released (what the arena keeps resident).
    size_t HeldBytes() EXCLUDES(mutex);

  private:
    HandleArena() = default;

    Mutex mutex;
    char* next GUARDED_BY(mutex) = nullptr;  // first fresh address of the current chunk
    char* end GUARDED_BY(mutex) = nullptr;   // end of the current chunk
    size_t heldBytes GUARDED_BY(mutex) = 0;
};
