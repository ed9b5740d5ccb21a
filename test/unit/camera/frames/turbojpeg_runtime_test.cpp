#include "camera/frames/turbojpeg_runtime.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "addon/common.h"
#include "fakes/fake_library.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

const std::vector<std::string>& Symbols() {
  static const std::vector<std::string> names = {
#define SYMBOL(name) #name,
#include "camera/frames/turbojpeg_symbols.h"
  };
  return names;
}

bool HasAnyEntry(const TurboJpegRuntime& runtime) {
  bool any = false;
#define SYMBOL(name) any = any || runtime.name != nullptr;
#include "camera/frames/turbojpeg_symbols.h"
  return any;
}

bool HasEveryEntry(const TurboJpegRuntime& runtime) {
  bool all = true;
#define SYMBOL(name) all = all && runtime.name != nullptr;
#include "camera/frames/turbojpeg_symbols.h"
  return all;
}

bool IsOpenInThisProcess(const std::string& path) {
  void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

TEST(TurboJpegRuntime, StartsEmpty) {
  const TurboJpegRuntime runtime;
  EXPECT_FALSE(runtime.Available());
  EXPECT_EQ(runtime.path, "");
  EXPECT_FALSE(HasAnyEntry(runtime));
}

TEST(TurboJpegRuntime, LoadsTheRealLibraryByItsName) {
  TurboJpegRuntime runtime;
  SetLastError("kept");
  ASSERT_TRUE(runtime.Load("libturbojpeg.so.0")) << GetLastErrorString();
  EXPECT_TRUE(runtime.Available());
  EXPECT_TRUE(HasEveryEntry(runtime));
  EXPECT_EQ(runtime.path, "libturbojpeg.so.0");
  EXPECT_EQ(GetLastErrorString(), "kept");
}

TEST(TurboJpegRuntime, WithoutAPathSaysSo) {
  TurboJpegRuntime runtime;
  EXPECT_FALSE(runtime.Load(""));
  EXPECT_EQ(GetLastErrorString(), "No libjpeg-turbo library path was provided");
  EXPECT_FALSE(runtime.Available());
}

TEST(TurboJpegRuntime, OnceLoadedLooksAtNoPath) {
  TurboJpegRuntime runtime;
  const std::string path = FakePath("libturbojpeg.so");
  ASSERT_TRUE(runtime.Load(path));
  SetLastError("kept");
  EXPECT_TRUE(runtime.Load(""));
  EXPECT_TRUE(runtime.Load("/nowhere/libturbojpeg.so"));
  EXPECT_EQ(runtime.path, path);
  EXPECT_EQ(GetLastErrorString(), "kept");
}

TEST(TurboJpegRuntime, AFileThatDoesNotOpenLeavesTheLoadersText) {
  TurboJpegRuntime runtime;
  EXPECT_FALSE(runtime.Load("/nowhere/libturbojpeg.so"));
  EXPECT_EQ(
      GetLastErrorString().rfind("Could not load native library '/nowhere/libturbojpeg.so': ", 0),
      0U)
      << GetLastErrorString();
  EXPECT_FALSE(runtime.Available());
  EXPECT_EQ(runtime.path, "");
}

TEST(TurboJpegRuntime, ALibraryThatLacksAnySymbolIsRefusedAndClosed) {
  EXPECT_EQ(Symbols().size(), 8U);
  for (const std::string& symbol : Symbols()) {
    const std::string path = FakePath("without_" + symbol + "/libturbojpeg.so");
    TurboJpegRuntime runtime;
    EXPECT_FALSE(runtime.Load(path)) << symbol;
    EXPECT_EQ(GetLastErrorString(), "Required symbol not found: " + symbol);
    EXPECT_FALSE(runtime.Available()) << symbol;
    EXPECT_EQ(runtime.path, "") << symbol;
    EXPECT_FALSE(HasAnyEntry(runtime)) << symbol;
    EXPECT_FALSE(IsOpenInThisProcess(path)) << symbol;
  }
}

TEST(TurboJpegRuntime, SucceedsAfterARefusedLibrary) {
  TurboJpegRuntime runtime;
  EXPECT_FALSE(runtime.Load(FakePath("without_tjGetErrorStr2/libturbojpeg.so")));
  EXPECT_TRUE(runtime.Load(FakePath("libturbojpeg.so")));
  EXPECT_TRUE(runtime.Available());
}

TEST(TurboJpegRuntime, IsAvailableWithoutTheErrorTextFunction) {
  TurboJpegRuntime runtime;
  ASSERT_TRUE(runtime.Load(FakePath("libturbojpeg.so")));
  runtime.tjGetErrorStr2 = nullptr;
  EXPECT_TRUE(runtime.Available());
}

TEST(TurboJpegRuntime, IsNotAvailableWithoutAnyOtherFunction) {
  TurboJpegRuntime runtime;
  ASSERT_TRUE(runtime.Load(FakePath("libturbojpeg.so")));
  const auto expectNeeded = [&runtime](auto& entry) {
    const auto kept = entry;
    entry = nullptr;
    EXPECT_FALSE(runtime.Available());
    entry = kept;
    EXPECT_TRUE(runtime.Available());
  };
  expectNeeded(runtime.tjInitDecompress);
  expectNeeded(runtime.tjDestroy);
  expectNeeded(runtime.tjDecompressHeader3);
  expectNeeded(runtime.tjDecompressToYUVPlanes);
  expectNeeded(runtime.tjDecompress2);
  expectNeeded(runtime.tjPlaneWidth);
  expectNeeded(runtime.tjPlaneHeight);
}

TEST(TurboJpegRuntime, ClosesItsLibraryWhenItGoes) {
  // A copy: other tests of this process may hold the fake itself open.
  const TemporaryDirectory folder;
  const std::string path = folder.File("libturbojpeg.so");
  std::filesystem::copy(FakePath("libturbojpeg.so"), path);
  {
    TurboJpegRuntime runtime;
    ASSERT_TRUE(runtime.Load(path));
    EXPECT_TRUE(IsOpenInThisProcess(path));
  }
  EXPECT_FALSE(IsOpenInThisProcess(path));
}

TEST(TurboJpegRuntime, SeveralThreadsMayLoadAtOnceAndOneLibraryIsInstalled) {
  const std::string path = FakePath("libturbojpeg.so");
  {
    TurboJpegRuntime runtime;
    std::latch ready(4);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        ready.arrive_and_wait();
        EXPECT_TRUE(runtime.Load(path));
        EXPECT_EQ(runtime.LoadPath(), path);
        EXPECT_TRUE(HasEveryEntry(runtime));
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_TRUE(IsOpenInThisProcess(path));
  }
  // The others have closed theirs: it goes with the one that was installed.
  EXPECT_FALSE(IsOpenInThisProcess(path));
}

TEST(TurboJpegRuntime, AThreadThatFindsItAvailableFindsEveryFunction) {
  TurboJpegRuntime runtime;
  std::thread worker([&runtime] {
    while (!runtime.Available()) {
    }
    EXPECT_TRUE(HasEveryEntry(runtime));
  });
  EXPECT_TRUE(runtime.Load(FakePath("libturbojpeg.so")));
  worker.join();
}

}  // namespace
}  // namespace ostrel_native
