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

const std::vector<std::string> kCameraSymbols = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "camera/cnokhwa_symbols.h"
};

TEST(FakeCameraLibrary, ExportsTheTableAndItsControlAndNothingElse) {
  std::set<std::string> expected(kCameraSymbols.begin(), kCameraSymbols.end());
  ASSERT_EQ(expected.size(), 20U);
  expected.insert("fake_control");
  EXPECT_EQ(ExportedSymbols(FakePath("libcnokhwa.so")), expected);
  EXPECT_EQ(ExportedSymbols(FakePath("static_destructor/libcnokhwa.so")), expected);
}

TEST(FakeCameraLibrary, HasAVariantWithoutEachOfItsSymbols) {
  for (const std::string& missing : kCameraSymbols) {
    std::set<std::string> expected(kCameraSymbols.begin(), kCameraSymbols.end());
    expected.erase(missing);
    expected.insert("fake_control");
    EXPECT_EQ(ExportedSymbols(FakePath("without_" + missing + "/libcnokhwa.so")), expected);
  }
}

const std::vector<std::string> kJpegSymbols = {
#define SYMBOL(name) #name,
#include "camera/turbojpeg_symbols.h"
};

TEST(FakeJpegLibrary, HasAVariantWithoutEachOfItsSymbols) {
  ASSERT_EQ(kJpegSymbols.size(), 8U);
  std::set<std::string> all(kJpegSymbols.begin(), kJpegSymbols.end());
  all.insert("fake_control");
  EXPECT_EQ(ExportedSymbols(FakePath("libturbojpeg.so")), all);
  for (const std::string& missing : kJpegSymbols) {
    std::set<std::string> expected = all;
    expected.erase(missing);
    EXPECT_EQ(ExportedSymbols(FakePath("without_" + missing + "/libturbojpeg.so")), expected);
  }
}

const std::vector<std::string> kMicroscopeSymbols = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "devices/ostrel_symbols.h"
};

TEST(FakeMicroscopeLibrary, HasAVariantWithoutEachOfItsSymbols) {
  ASSERT_EQ(kMicroscopeSymbols.size(), 22U);
  std::set<std::string> all(kMicroscopeSymbols.begin(), kMicroscopeSymbols.end());
  all.insert("fake_control");
  EXPECT_EQ(ExportedSymbols(FakePath("libostrel.so")), all);
  for (const std::string& missing : kMicroscopeSymbols) {
    std::set<std::string> expected = all;
    expected.erase(missing);
    EXPECT_EQ(ExportedSymbols(FakePath("without_" + missing + "/libostrel.so")), expected);
  }
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
