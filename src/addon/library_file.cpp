#include "addon/library_file.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

namespace ostrel_native {

namespace {

class OpenFile {
 public:
  explicit OpenFile(const char* path) : descriptor(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~OpenFile() {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  template <typename Record>
  bool Read(Record* record, std::uint64_t offset) const {
    return offset <= static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) &&
           pread(descriptor, record, sizeof(Record), static_cast<off_t>(offset)) ==
               static_cast<ssize_t>(sizeof(Record));
  }

  const int descriptor;
};

bool IsRegularFile(const struct stat& status) {
  return S_ISREG(status.st_mode);
}

// Whether the loader would go as far as mapping what the header describes.
bool IsMappable(const Elf64_Ehdr& header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
         header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_ident[EI_DATA] == ELFDATA2LSB &&
         header.e_machine == EM_X86_64 && header.e_type == ET_DYN &&
         header.e_phentsize == sizeof(Elf64_Phdr);
}

// The end of a part of a file, at most the largest number.
std::uint64_t EndOf(std::uint64_t offset, std::uint64_t size) {
  return size > std::numeric_limits<std::uint64_t>::max() - offset
             ? std::numeric_limits<std::uint64_t>::max()
             : offset + size;
}

// How long the file must be for what its header and its program headers tell; 0 where the loader
// refuses it by itself.
std::uint64_t WantedSize(const OpenFile& file) {
  Elf64_Ehdr header;
  if (!file.Read(&header, 0) || !IsMappable(header)) {
    return 0;
  }
  std::uint64_t wanted = EndOf(header.e_shoff, std::uint64_t{header.e_shnum} * header.e_shentsize);
  for (std::uint64_t i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr segment;
    if (!file.Read(&segment, EndOf(header.e_phoff, i * sizeof(segment)))) {
      return 0;
    }
    if (segment.p_type == PT_LOAD) {
      wanted = std::max(wanted, EndOf(segment.p_offset, segment.p_filesz));
    }
  }
  return wanted;
}

}  // namespace

std::string CutOffText(const std::string& path) {
  struct stat status;
  // Before the opening, which a FIFO or a device may answer in ways of its own.
  if (path.find('/') == std::string::npos || stat(path.c_str(), &status) != 0 ||
      !IsRegularFile(status)) {
    return std::string();
  }
  const OpenFile file(path.c_str());
  if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0 || !IsRegularFile(status)) {
    return std::string();
  }
  const std::uint64_t wanted = WantedSize(file);
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size >= wanted) {
    return std::string();
  }
  return path + ": file is cut off after " + std::to_string(size) + " of " +
         std::to_string(wanted) + " bytes";
}

}  // namespace ostrel_native
