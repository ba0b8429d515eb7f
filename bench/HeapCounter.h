#pragma once

#include <cstdint>

namespace bench {

// What the heap holds: bytes as malloc_usable_size reports them (the block sizes malloc
// really handed out, without its 8-byte chunk headers) and the number of blocks.
struct HeapUsage {
    int64_t bytes = 0;
    int64_t blocks = 0;
};

// Counts what operator new and delete do between Start and Stop. The benchmark binary
// replaces the global operators; counting is off outside the window, so other benchmarks pay
// one predictable branch per allocation. Single-threaded use only. Blocks allocated before
// Start and freed inside the window count negatively, so measure something that frees only
// what it allocated itself (a load into a fresh handling object does).
class HeapCounter {
  public:
    static void Start();
    static HeapUsage Stop();  // growth since Start
};

}  // namespace bench
