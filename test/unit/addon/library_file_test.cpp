#include "addon/library_file.h"

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "addon/native_library.h"
#include "unit/support/cut_off_file.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

namespace fs = std::filesystem;

const std::string kLibrary = std::string(OSTREL_TEST_FAKES_DIR) + "/libcnokhwa.so";

std::string Refusal(const std::string& path, const std::string& reason) {
  return "Could not load native library '" + path + "': " + path + ": " + reason;
}

std::string CutOffReason(std::uint64_t size, std::uint64_t wanted) {
  return "file is cut off after " + std::to_string(size) + " of " + std::to_string(wanted) +
         " bytes";
}

// A copy of the library in memory, to be changed and written.
struct Image {
  Image() {
    std::ifstream file(kLibrary, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    std::memcpy(&header, bytes.data(), sizeof header);
    segments.resize(header.e_phnum);
    std::memcpy(segments.data(), bytes.data() + header.e_phoff,
                segments.size() * sizeof(Elf64_Phdr));
  }

  std::uint64_t EndOfHeaders() const {
    return header.e_phoff + segments.size() * sizeof(Elf64_Phdr);
  }

  std::uint64_t EndOfSegments() const {
    std::uint64_t end = 0;
    for (const Elf64_Phdr& segment : segments) {
      end = std::max(end, segment.p_type == PT_LOAD ? segment.p_offset + segment.p_filesz : 0);
    }
    return end;
  }

  void Write(const std::string& path) {
    std::memcpy(bytes.data() + header.e_phoff, segments.data(),
                segments.size() * sizeof(Elf64_Phdr));
    std::memcpy(bytes.data(), &header, sizeof header);
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::ssize(bytes));
  }

  std::vector<char> bytes;
  Elf64_Ehdr header;
  std::vector<Elf64_Phdr> segments;
};

struct LibraryFile : testing::Test {
  // What the loading of the file at `path` says: nothing if it opens.
  static std::string Load(const std::string& path) {
    std::string failure;
    CloseLibrary(OpenLibrary(path, failure));
    return failure;
  }

  TemporaryDirectory directory;
  const std::string path = directory.File("libcut.so");
  Image image;
};

// Every length at both ends of the file, and some in between.
TEST_F(LibraryFile, OfAnyLengthOpensOrIsRefusedInWordsAndNeverEndsTheProcess) {
  const std::uint64_t whole = image.bytes.size();
  ASSERT_EQ(image.header.e_shoff + std::uint64_t{image.header.e_shnum} * image.header.e_shentsize,
            whole);
  image.Write(path);
  const std::uint64_t dense = image.EndOfHeaders() + 100;
  const std::uint64_t step = std::max<std::uint64_t>(1, whole / 300);
  for (std::uint64_t size = whole;;) {
    fs::resize_file(path, size);
    std::string expected;
    if (size < sizeof(Elf64_Ehdr)) {
      expected = Refusal(path, "file too short");
    } else if (size < image.EndOfHeaders()) {
      expected = Refusal(path, "cannot read file data");
    } else if (size < whole) {
      expected = Refusal(path, CutOffReason(size, whole));
    }
    ASSERT_EQ(Load(path), expected) << size;
    if (size == 0) {
      break;
    }
    size -= size > whole - 100 || size <= dense ? 1 : std::min(step, size - dense);
  }
}

TEST_F(LibraryFile, WithoutATableOfSectionsIsMeasuredByWhatIsMapped) {
  image.header.e_shoff = 0;
  image.header.e_shnum = 0;
  image.header.e_shstrndx = SHN_UNDEF;
  image.Write(path);
  const std::uint64_t wanted = image.EndOfSegments();
  fs::resize_file(path, wanted);
  EXPECT_EQ(Load(path), "");
  fs::resize_file(path, wanted - 1);
  EXPECT_EQ(Load(path), Refusal(path, CutOffReason(wanted - 1, wanted)));
}

TEST_F(LibraryFile, WithPartsBeyondWhatNumbersHoldIsCutOff) {
  const auto load = std::find_if(image.segments.begin(), image.segments.end(),
                                 [](const Elf64_Phdr& one) { return one.p_type == PT_LOAD; });
  ASSERT_NE(load, image.segments.end());
  load->p_filesz = std::numeric_limits<std::uint64_t>::max();
  load->p_offset = 4096;
  image.Write(path);
  EXPECT_EQ(
      CutOffText(path),
      path + ": " + CutOffReason(image.bytes.size(), std::numeric_limits<std::uint64_t>::max()));
}

TEST_F(LibraryFile, BehindALinkIsCutOffAndNamedAsItWasGiven) {
  const CutOffFile cut(kLibrary, "libwhole.so");
  fs::create_symlink(cut.path, path);
  EXPECT_EQ(CutOffText(path), cut.TextFor(path));
}

TEST_F(LibraryFile, KeepsTheLoadersOwnWordsForWhatItRefusesByItself) {
  const std::string link = directory.File("dangling.so");
  fs::create_symlink("/nowhere/libcamera.so", link);
  EXPECT_EQ(Load(link), Refusal(link, "cannot open shared object file: No such file or directory"));
  EXPECT_EQ(Load(directory.path), Refusal(directory.path, "cannot read file data: Is a directory"));
  const std::string script = directory.File("script.so");
  std::ofstream(script) << "/* GNU ld script */ INPUT ( /usr/lib/libcamera.so.1 -lm ) more words";
  EXPECT_EQ(Load(script), Refusal(script, "invalid ELF header"));
  std::ofstream(script, std::ios::trunc) << "INPUT ( libcamera.so.1 )";
  EXPECT_EQ(Load(script), Refusal(script, "file too short"));
}

TEST_F(LibraryFile, OfAnotherKindKeepsTheLoadersOwnWordsAlsoWhereItIsCutOff) {
  const Image whole;
  const auto loadWith = [&](auto change) {
    image = whole;
    change(image.header);
    image.Write(path);
    fs::resize_file(path, whole.bytes.size() / 2);
    EXPECT_EQ(CutOffText(path), "");
    return Load(path);
  };
  EXPECT_EQ(loadWith([](Elf64_Ehdr& header) { header.e_ident[EI_CLASS] = ELFCLASS32; }),
            Refusal(path, "wrong ELF class: ELFCLASS32"));
  EXPECT_EQ(loadWith([](Elf64_Ehdr& header) { header.e_ident[EI_DATA] = ELFDATA2MSB; }),
            Refusal(path, "ELF file data encoding not little-endian"));
  EXPECT_EQ(loadWith([](Elf64_Ehdr& header) { header.e_type = ET_REL; }),
            Refusal(path, "only ET_DYN and ET_EXEC can be loaded"));
  EXPECT_EQ(loadWith([](Elf64_Ehdr& header) { header.e_phentsize = 32; }),
            Refusal(path, "ELF file's phentsize not the expected size"));
  EXPECT_EQ(loadWith([](Elf64_Ehdr& header) { header.e_machine = EM_AARCH64; }),
            Refusal(path, "cannot open shared object file: No such file or directory"));
}

TEST_F(LibraryFile, ThatIsAPipeIsNotOpened) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(CutOffText(path), "");
}

// It may lead elsewhere than into the current directory.
TEST_F(LibraryFile, NamedWithoutASlashIsTheLoadersToFind) {
  const CutOffFile cut(kLibrary, "libcut.so");
  ASSERT_EQ(chdir(cut.directory.path.c_str()), 0);
  EXPECT_EQ(CutOffText("libcut.so"), "");
  EXPECT_EQ(CutOffText("./libcut.so"), cut.TextFor("./libcut.so"));
  EXPECT_EQ(Load("libcut.so"),
            "Could not load native library 'libcut.so': libcut.so: cannot open "
            "shared object file: No such file or directory");
}

TEST_F(LibraryFile, ThatIsRefusedLeavesNoFileOpen) {
  const CutOffFile cut(kLibrary, "libcut.so");
  const auto countOpen = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = countOpen();
  Load(cut.path);
  Load(kLibrary);
  EXPECT_EQ(countOpen(), before);
}

}  // namespace
}  // namespace ostrel_native
