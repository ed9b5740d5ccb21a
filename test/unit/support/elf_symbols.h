// Reads which symbols a shared library offers, from the file itself.
#pragma once

#include <elf.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace ostrel_native {

/// The names that the 64-bit library at `path` defines and exports.
inline std::set<std::string> ExportedSymbols(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  const std::string bytes = content.str();
  const auto read = [&bytes](auto* record, std::size_t offset) {
    if (offset > bytes.size() || sizeof(*record) > bytes.size() - offset) {
      throw std::runtime_error("not a whole ELF file");
    }
    std::memcpy(record, bytes.data() + offset, sizeof(*record));
  };
  Elf64_Ehdr header;
  read(&header, 0);
  std::set<std::string> names;
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    Elf64_Shdr section;
    read(&section, header.e_shoff + i * sizeof(section));
    if (section.sh_type != SHT_DYNSYM) {
      continue;
    }
    Elf64_Shdr strings;
    read(&strings, header.e_shoff + section.sh_link * sizeof(strings));
    for (std::size_t at = 0; at < section.sh_size; at += sizeof(Elf64_Sym)) {
      Elf64_Sym symbol;
      read(&symbol, section.sh_offset + at);
      if (symbol.st_shndx != SHN_UNDEF && ELF64_ST_BIND(symbol.st_info) != STB_LOCAL) {
        names.insert(bytes.data() + strings.sh_offset + symbol.st_name);
      }
    }
  }
  return names;
}

}  // namespace ostrel_native
