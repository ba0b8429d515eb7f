#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

// A read-only view of a 64-bit little-endian ELF file (a built shared object), for tests that
// check what the linker produced: which symbols a loader can bind, the program headers, and the
// dynamic flags. The whole file is read by the constructor; nothing is mapped or executed.
class ElfFile {
  public:
    struct ProgramHeader {
        uint32_t type;      // PT_LOAD, PT_GNU_STACK, PT_GNU_RELRO, ...
        uint32_t flags;     // PF_R | PF_W | PF_X
        uint64_t offset;    // where the segment's bytes start in the file
        uint64_t fileSize;  // how many of its bytes the file holds
    };

    // Throws std::runtime_error when the file cannot be read or is not a 64-bit ELF file, or
    // when a table it names lies outside the file.
    explicit ElfFile(const std::string& path);

    // Names of the dynamic symbols the file defines for others: global or weak binding and a
    // section index other than SHN_UNDEF. Sorted, duplicates kept.
    std::vector<std::string> DefinedDynamicSymbols() const;

    const std::vector<ProgramHeader>& ProgramHeaders() const { return programHeaders; }
    // The first program header of `type`, if there is one.
    std::optional<ProgramHeader> FindProgramHeader(uint32_t type) const;

    // DT_FLAGS and DT_FLAGS_1 of the dynamic section (0 when absent).
    uint64_t DynamicFlags() const { return dynamicFlags; }
    uint64_t DynamicFlags1() const { return dynamicFlags1; }
    // True when the loader must resolve every symbol at load time (DF_BIND_NOW or DF_1_NOW).
    bool BindsNow() const;

  private:
    // Bounds-checked pointer to `count` objects of T at `offset` in the file.
    template <class T>
    const T* At(uint64_t offset, uint64_t count = 1) const;
    void ReadProgramHeaders();
    void ReadDynamicFlags();
    // Appends the defined global and weak names of the symbol table in section `symbolSection`.
    void AppendDefinedSymbols(size_t symbolSection, std::vector<std::string>& names) const;

    std::vector<uint8_t> bytes;
    std::vector<ProgramHeader> programHeaders;
    uint64_t dynamicFlags = 0;
    uint64_t dynamicFlags1 = 0;
};

}  // namespace testing_support
