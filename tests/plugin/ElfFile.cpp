#include "ElfFile.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace testing_support {

ElfFile::ElfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (bytes.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0 ||
        bytes[EI_CLASS] != ELFCLASS64 || bytes[EI_DATA] != ELFDATA2LSB) {
        throw std::runtime_error(path + " is not a 64-bit little-endian ELF file");
    }
    ReadProgramHeaders();
    ReadDynamicFlags();
}

template <class T>
const T* ElfFile::At(uint64_t offset, uint64_t count) const {
    if (offset > bytes.size() || count > (bytes.size() - offset) / sizeof(T)) {
        throw std::runtime_error("ELF table outside the file");
    }
    return reinterpret_cast<const T*>(bytes.data() + offset);
}

void ElfFile::ReadProgramHeaders() {
    const auto* header = At<Elf64_Ehdr>(0);
    const auto* entries = At<Elf64_Phdr>(header->e_phoff, header->e_phnum);
    for (size_t i = 0; i < header->e_phnum; ++i) {
        programHeaders.push_back(
            {entries[i].p_type, entries[i].p_flags, entries[i].p_offset, entries[i].p_filesz});
    }
}

void ElfFile::ReadDynamicFlags() {
    const std::optional<ProgramHeader> segment = FindProgramHeader(PT_DYNAMIC);
    if (!segment) {
        return;
    }
    const uint64_t count = segment->fileSize / sizeof(Elf64_Dyn);
    const auto* dynamic = At<Elf64_Dyn>(segment->offset, count);
    for (uint64_t i = 0; i < count && dynamic[i].d_tag != DT_NULL; ++i) {
        if (dynamic[i].d_tag == DT_FLAGS) {
            dynamicFlags = dynamic[i].d_un.d_val;
        } else if (dynamic[i].d_tag == DT_FLAGS_1) {
            dynamicFlags1 = dynamic[i].d_un.d_val;
        }
    }
}

std::vector<std::string> ElfFile::DefinedDynamicSymbols() const {
    const auto* header = At<Elf64_Ehdr>(0);
    const auto* sections = At<Elf64_Shdr>(header->e_shoff, header->e_shnum);
    std::vector<std::string> names;
    for (size_t s = 0; s < header->e_shnum; ++s) {
        if (sections[s].sh_type == SHT_DYNSYM) {
            AppendDefinedSymbols(s, names);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

void ElfFile::AppendDefinedSymbols(size_t symbolSection, std::vector<std::string>& names) const {
    const auto* header = At<Elf64_Ehdr>(0);
    const auto* sections = At<Elf64_Shdr>(header->e_shoff, header->e_shnum);
    const Elf64_Shdr& table = sections[symbolSection];
    if (table.sh_link >= header->e_shnum) {
        throw std::runtime_error("ELF symbol table without its string table");
    }
    const Elf64_Shdr& strings = sections[table.sh_link];
    const auto* text = At<char>(strings.sh_offset, strings.sh_size);
    const uint64_t count = table.sh_size / sizeof(Elf64_Sym);
    const auto* symbols = At<Elf64_Sym>(table.sh_offset, count);
    for (uint64_t i = 1; i < count; ++i) {  // entry 0 is the null symbol
        const Elf64_Sym& symbol = symbols[i];
        const unsigned binding = ELF64_ST_BIND(symbol.st_info);
        if ((binding == STB_GLOBAL || binding == STB_WEAK) && symbol.st_shndx != SHN_UNDEF &&
            symbol.st_name < strings.sh_size) {
            const char* name = text + symbol.st_name;
            names.emplace_back(name, strnlen(name, strings.sh_size - symbol.st_name));
        }
    }
}

std::optional<ElfFile::ProgramHeader> ElfFile::FindProgramHeader(uint32_t type) const {
    const auto found = std::find_if(programHeaders.begin(), programHeaders.end(),
                                    [type](const ProgramHeader& p) { return p.type == type; });
    if (found == programHeaders.end()) {
        return std::nullopt;
    }
    return *found;
}

bool ElfFile::BindsNow() const {
    return (dynamicFlags & DF_BIND_NOW) || (dynamicFlags1 & DF_1_NOW);
}

}  // namespace testing_support
