#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace testing_support {

// Where a call through a stub lands.
enum class Landing : int { Native = 1, Managed = 2 };

// Two functions for stubs to jump to: they return which one ran.
extern "C" int NativeCode();
extern "C" int ManagedCode();

// Jump stubs in one page of executable memory, laid out as a host lays them out:
//   byte 0:  48 B8 <target imm64>   movabs rax, target   (target word at byte 2)
//   byte 10: FF E0                  jmp rax
//   byte 16: <alternate word>
// Each stub starts on a 32-byte boundary so its target word never straddles a cache line.
class JumpStubs {
  public:
    static constexpr size_t kStubSize = 32;

    explicit JumpStubs(size_t count = 16) : size(count * kStubSize) {
        void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE | PROT_EXEC,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            throw std::runtime_error("no executable memory for jump stubs");
        page = static_cast<uint8_t*>(memory);
    }
    ~JumpStubs() { munmap(page, size); }
    JumpStubs(const JumpStubs&) = delete;
    JumpStubs& operator=(const JumpStubs&) = delete;

    // Stub i, initialised with the given target and alternate words.
    void* Make(size_t index, const void* target, const void* alternate) {
        uint8_t* stub = page + index * kStubSize;
        std::memset(stub, 0xCC, kStubSize);                                       // int3 padding
        const uint8_t code[] = {0x48, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xE0};  // movabs; jmp rax
        std::memcpy(stub, code, sizeof code);
        std::memcpy(stub + 2, &target, 8);
        std::memcpy(stub + 16, &alternate, 8);
        return stub;
    }
    // A stub that starts native with the managed code as alternate.
    void* MakeNative(size_t index) {
        return Make(index, reinterpret_cast<const void*>(&NativeCode),
                    reinterpret_cast<const void*>(&ManagedCode));
    }

    static uint64_t Target(const void* stub) { return WordAt(stub, 2); }
    static uint64_t Alternate(const void* stub) { return WordAt(stub, 16); }
    // Calls through the stub and says which function ran.
    static Landing Call(const void* stub) {
        return static_cast<Landing>(reinterpret_cast<int (*)()>(const_cast<void*>(stub))());
    }

  private:
    static uint64_t WordAt(const void* stub, size_t offset) {
        uint64_t word;
        std::memcpy(&word, static_cast<const uint8_t*>(stub) + offset, 8);
        return word;
    }

    uint8_t* page;
    size_t size;
};

}  // namespace testing_support
