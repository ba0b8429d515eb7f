#pragma once

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace testing_support {

// A read-only view of a 64-bit little-endian ELF file, for tests of what the linker produced.
// The constructor throws std::runtime_error for any other file or a table outside the file.
class ElfFile {
  public:
    struct ProgramHeader {
        uint32_t type, flags;  // PT_*, PF_*
        uint64_t offset, fileSize;
    };
    explicit ElfFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(file), {});
        if (bytes.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0 ||
            bytes[EI_CLASS] != ELFCLASS64 || bytes[EI_DATA] != ELFDATA2LSB) {
            throw std::runtime_error(path + " is not a readable 64-bit little-endian ELF file");
        }
        for (const Elf64_Phdr& p : At<Elf64_Phdr>(Header().e_phoff, Header().e_phnum)) {
            programHeaders.push_back({p.p_type, p.p_flags, p.p_offset, p.p_filesz});
        }
        const auto dynamic = FindProgramHeader(PT_DYNAMIC).value_or(ProgramHeader{});
        for (const auto& d : At<Elf64_Dyn>(dynamic.offset, dynamic.fileSize / sizeof(Elf64_Dyn))) {
            dynamicFlags = d.d_tag == DT_FLAGS ? d.d_un.d_val : dynamicFlags;
            dynamicFlags1 = d.d_tag == DT_FLAGS_1 ? d.d_un.d_val : dynamicFlags1;
        }
    }
    // Global and weak symbols of the dynamic symbol table that the file defines, sorted.
    std::vector<std::string> DefinedDynamicSymbols() const {
        const auto sections = At<Elf64_Shdr>(Header().e_shoff, Header().e_shnum);
        std::vector<std::string> names;
        for (const Elf64_Shdr& table : sections) {
            if (table.sh_type != SHT_DYNSYM || table.sh_link >= sections.size()) {
                continue;
            }
            const Elf64_Shdr& strings = sections[table.sh_link];
            const auto text = At<char>(strings.sh_offset, strings.sh_size);
            for (const auto& s :
                 At<Elf64_Sym>(table.sh_offset, table.sh_size / sizeof(Elf64_Sym))) {
                const unsigned bind = ELF64_ST_BIND(s.st_info);
                if ((bind == STB_GLOBAL || bind == STB_WEAK) && s.st_shndx != SHN_UNDEF &&
                    s.st_name < text.size()) {
                    names.emplace_back(text.subspan(s.st_name).data(),
                                       strnlen(&text[s.st_name], text.size() - s.st_name));
                }
            }
        }
        std::ranges::sort(names);
        return names;
    }
    const std::vector<ProgramHeader>& ProgramHeaders() const { return programHeaders; }
    std::optional<ProgramHeader> FindProgramHeader(uint32_t type) const {
        auto found = std::ranges::find(programHeaders, type, &ProgramHeader::type);
        return found == programHeaders.end() ? std::nullopt : std::optional(*found);
    }
    uint64_t DynamicFlags() const { return dynamicFlags; }    // DT_FLAGS, 0 when absent
    uint64_t DynamicFlags1() const { return dynamicFlags1; }  // DT_FLAGS_1, 0 when absent
    bool BindsNow() const { return (dynamicFlags & DF_BIND_NOW) || (dynamicFlags1 & DF_1_NOW); }

  private:
    template <class T>
    std::span<const T> At(uint64_t offset, uint64_t count) const {
        if (offset > bytes.size() || count > (bytes.size() - offset) / sizeof(T)) {
            throw std::runtime_error("ELF table outside the file");
        }
        return {reinterpret_cast<const T*>(bytes.data() + offset), count};
    }
    const Elf64_Ehdr& Header() const { return At<Elf64_Ehdr>(0, 1)[0]; }
    std::vector<uint8_t> bytes;
    std::vector<ProgramHeader> programHeaders;
    uint64_t dynamicFlags = 0, dynamicFlags1 = 0;
};

}  // namespace testing_support
