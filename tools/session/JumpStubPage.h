#pragma once

#include <cstddef>
#include <cstdint>

class PluginApi;

// Which code a call through a stub reached.
enum class Landing : int { Quarned = 1, Managed = 2 };
const char* LandingName(Landing landing);

// The two bodies of every demo entry point: a call through a stub lands in one of them.
extern "C" int RunQuarnedCode();
extern "C" int RunManagedCode();

// Jump stubs as a host lays them out, in executable memory obtained through the plug-in's
// jit_allocate_memory and written with jit_write_to_memory:
//   byte 0:  48 B8 <imm64>   movabs rax, target   (the target word at byte 2)
//   byte 10: FF E0           jmp rax
//   byte 16: <imm64>         alternate word (data, never executed)
// Each stub starts on a 32-byte boundary, so neither word straddles a cache line.
class JumpStubPage {
  public:
    static constexpr size_t kStubSize = 32;
    static constexpr size_t kTargetOffset = 2;
    static constexpr size_t kAlternateOffset = 16;

    JumpStubPage(const PluginApi& plugin, size_t count);
    ~JumpStubPage();
    JumpStubPage(const JumpStubPage&) = delete;
    JumpStubPage& operator=(const JumpStubPage&) = delete;

    // Stub `index`, aimed at the quarned code with the managed code as its alternate.
    void* MakeQuarnedStub(size_t index);

    // Calls through the stub and reports where the call landed.
    static Landing Call(const void* stub);

  private:
    const PluginApi& plugin;
    uint8_t* memory;
    uint32_t size;
};
