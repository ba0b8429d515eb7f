// Address-space reservation for method handle records (see HandleArena.h).
#include "metadata/HandleArena.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace {

// Addresses reserved at a time. Reserving costs no memory (MAP_NORESERVE, pages appear on
// first write), only address space: a chunk lasts for many lists of 100k methods.
constexpr size_t kChunkBytes = size_t{64} << 20;

size_t PageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

size_t RoundUpToPages(size_t bytes) {
    const size_t page = PageSize();
    return (std::max<size_t>(bytes, 1) + page - 1) / page * page;
}

}  // namespace

HandleArena& HandleArena::Instance() {
    // Never destroyed: handles stay valid addresses for the life of the process.
    static HandleArena* const arena = new HandleArena();
    return *arena;
}

HandleArena::Range HandleArena::Acquire(size_t bytes) {
    const size_t size = RoundUpToPages(bytes);
    MutexLock lock(mutex);
    if (static_cast<size_t>(end - next) < size) {
        const size_t chunk = std::max(kChunkBytes, size);
        void* mapped = mmap(nullptr, chunk, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (mapped == MAP_FAILED) {
            throw std::bad_alloc();
        }
        // The rest of the previous chunk is abandoned: its addresses are never handed out.
        next = static_cast<char*>(mapped);
        end = next + chunk;
    }
    Range range{next, size};
    next += size;
    heldBytes += size;
    // Faulting the pages in with one call is cheaper than one page fault per page while the
    // list is written; a kernel without MADV_POPULATE_WRITE just faults them on first write.
    madvise(range.start, size, MADV_POPULATE_WRITE);
    return range;
}

void HandleArena::Release(Range range) noexcept {
    if (range.start == nullptr) {
        return;
    }
    madvise(range.start, range.bytes, MADV_DONTNEED);
    MutexLock lock(mutex);
    heldBytes -= range.bytes;
}

size_t HandleArena::HeldBytes() {
    MutexLock lock(mutex);
    return heldBytes;
}
