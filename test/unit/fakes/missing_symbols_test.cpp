// The variants of a fake that lack one symbol each.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "fakes/fake_library.h"
#include "unit/support/elf_symbols.h"

namespace ostrel_native {
namespace {

// That the fake `library` exports its `symbols` and its control and nothing else, and that it has a
// variant without each of them.
void ExpectVariants(const std::string& library, const std::vector<std::string>& symbols) {
  std::set<std::string> all(symbols.begin(), symbols.end());
  all.insert("fake_control");
  EXPECT_EQ(ExportedSymbols(FakePath(library)), all);
  EXPECT_EQ(ExportedSymbols(FakePath("static_destructor/" + library)), all);
  for (const std::string& missing : symbols) {
    std::set<std::string> expected = all;
    expected.erase(missing);
    EXPECT_EQ(ExportedSymbols(FakePath("without_" + missing + "/" + library)), expected);
  }
}

TEST(FakeCameraLibrary, HasAVariantWithoutEachOfItsSymbols) {
  const std::vector<std::string> symbols = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/cnokhwa_symbols.h"
  };
  ASSERT_EQ(symbols.size(), 20U);
  ExpectVariants("libcnokhwa.so", symbols);
}

TEST(FakeJpegLibrary, HasAVariantWithoutEachOfItsSymbols) {
  const std::vector<std::string> symbols = {
#define SYMBOL(name) #name,
#include "camera/frames/turbojpeg_symbols.h"
  };
  ASSERT_EQ(symbols.size(), 8U);
  ExpectVariants("libturbojpeg.so", symbols);
}

TEST(FakeDinoLiteLibrary, HasAVariantWithoutEachOfItsSymbols) {
  const std::vector<std::string> symbols = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/dino_lite_symbols.h"
  };
  ASSERT_EQ(symbols.size(), 19U);
  ExpectVariants("libdinolite.so", symbols);
}

TEST(FakeOstrelLibrary, HasAVariantWithoutEachOfItsSymbols) {
  const std::vector<std::string> symbols = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/ostrel_symbols.h"
  };
  ASSERT_EQ(symbols.size(), 22U);
  ExpectVariants("libostrel.so", symbols);
}

TEST(FakeCameraLibrary, IsUnmappedWhenItIsClosed) {
  // A variant that no other test of this program keeps open.
  const std::string path = FakePath("without_cnokhwa_grab_frame/libcnokhwa.so");
  FakeLibrary fake(path);
  fake.Send("default cnokhwa_devices_count 3");
  ASSERT_EQ(fake.Symbol<int (*)()>("cnokhwa_devices_count")(), 3);
  fake.Close();
  EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
}  // namespace ostrel_native
