#include "MemoryProbe.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr uint64_t kPageSize = 4096;

// Bytes from `address` to the end of its page: a chunk that is readable as a whole or not at
// all, since page protections are what make memory unreadable.
size_t ChunkAt(uint64_t address, size_t remaining) {
    return static_cast<size_t>(std::min<uint64_t>(remaining, kPageSize - address % kPageSize));
}

// Fallback where process_vm_readv is not allowed (some sandboxes): write() through a pipe
// reports an unreadable source as EFAULT as well.
bool CopyChunkThroughPipe(uint64_t address, void* out, size_t size) {
    static int pipeEnds[2] = {-1, -1};
    if (pipeEnds[0] < 0 && pipe(pipeEnds) != 0) {
        return false;
    }
    const auto* source = reinterpret_cast<const void*>(static_cast<uintptr_t>(address));
    if (write(pipeEnds[1], source, size) != static_cast<ssize_t>(size)) {
        return false;
    }
    return read(pipeEnds[0], out, size) == static_cast<ssize_t>(size);
}

bool CopyChunk(uint64_t address, void* out, size_t size) {
    static bool useProcessRead = true;
    if (useProcessRead) {
        iovec local{out, size};
        iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(address)), size};
        if (process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size)) {
            return true;
        }
        if (errno != ENOSYS && errno != EPERM) {
            return false;
        }
        useProcessRead = false;
    }
    return CopyChunkThroughPipe(address, out, size);
}

}  // namespace

size_t CopyReadable(uint64_t address, void* out, size_t size) {
    if (address == 0 || address + size < address) {
        return 0;
    }
    size_t copied = 0;
    while (copied < size) {
        const size_t chunk = ChunkAt(address + copied, size - copied);
        if (!CopyChunk(address + copied, static_cast<uint8_t*>(out) + copied, chunk)) {
            break;
        }
        copied += chunk;
    }
    return copied;
}

std::optional<std::string> ReadTerminatedString(uint64_t address, size_t maxLength) {
    std::string text;
    char chunk[kPageSize];
    while (text.size() < maxLength) {
        const size_t size = ChunkAt(address + text.size(), maxLength - text.size());
        if (CopyReadable(address + text.size(), chunk, size) != size) {
            return std::nullopt;
        }
        const void* end = std::memchr(chunk, '\0', size);
        if (end != nullptr) {
            return text.append(chunk, static_cast<const char*>(end) - chunk);
        }
        text.append(chunk, size);
    }
    return std::nullopt;
}
