#include "camera/backend/camera_binding.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <latch>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "addon/common.h"
#include "fakes/fake_library.h"
#include "unit/support/child_process.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

constexpr char kLoadFailure[] =
    "Could not load Linux camera backend library (libcnokhwa). Set OSTREL_NATIVE_DIR or pass "
    "explicit path.";

const std::vector<std::string>& RequiredSymbols() {
  static const std::vector<std::string> names = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters)
#include "camera/backend/cnokhwa_symbols.h"
  };
  return names;
}

bool HasAnyCnokhwaEntry(const CameraBinding& binding) {
  bool any = false;
#define REQUIRED(name, result, parameters) any = any || binding.name != nullptr;
#define OPTIONAL(name, result, parameters) any = any || binding.name != nullptr;
#include "camera/backend/cnokhwa_symbols.h"
  return any;
}

bool HasEveryRequiredEntry(const CameraBinding& binding) {
  bool all = true;
#define REQUIRED(name, result, parameters) all = all && binding.name != nullptr;
#define OPTIONAL(name, result, parameters)
#include "camera/backend/cnokhwa_symbols.h"
  return all;
}

bool IsOpenInThisProcess(const std::string& path) {
  void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

TEST(BackendName, NamesEveryKind) {
  EXPECT_STREQ(BackendName(BackendKind::None), "none");
  EXPECT_STREQ(BackendName(BackendKind::Linux), "linux-v4l2");
  EXPECT_STREQ(BackendName(BackendKind::DirectShow), "directshow");
  EXPECT_STREQ(BackendName(BackendKind::AvFoundation), "avfoundation");
  EXPECT_STREQ(BackendName(static_cast<BackendKind>(9)), "none");
}

TEST(CameraBindingLoad, StartsEmpty) {
  const CameraBinding binding;
  EXPECT_EQ(binding.kind, BackendKind::None);
  EXPECT_FALSE(binding.loaded);
  EXPECT_EQ(binding.handle, nullptr);
  EXPECT_EQ(binding.path, "");
  EXPECT_FALSE(HasAnyCnokhwaEntry(binding));
}

TEST(CameraBindingLoad, AnExplicitPathFillsTheTableAndClearsTheLastError) {
  CameraBinding binding;
  SetLastError("earlier");
  const std::string path = FakePath("libcnokhwa.so");
  EXPECT_TRUE(binding.Load(path));
  EXPECT_TRUE(binding.loaded);
  EXPECT_EQ(binding.kind, BackendKind::Linux);
  EXPECT_EQ(binding.path, path);
  EXPECT_NE(binding.handle, nullptr);
  EXPECT_TRUE(HasEveryRequiredEntry(binding));
  EXPECT_NE(binding.cnokhwa_start_capture_with_format, nullptr);
  EXPECT_EQ(GetLastErrorString(), "");
}

TEST(CameraBindingLoad, EachEntryIsTheSymbolOfItsName) {
  CameraBinding binding;
  ASSERT_TRUE(binding.Load(FakePath("libcnokhwa.so")));
  const FakeLibrary library(FakePath("libcnokhwa.so"));
#define REQUIRED(name, result, parameters) \
  EXPECT_EQ(binding.name, library.Symbol<decltype(binding.name)>(#name)) << #name;
#define OPTIONAL(name, result, parameters) \
  EXPECT_EQ(binding.name, library.Symbol<decltype(binding.name)>(#name)) << #name;
#include "camera/backend/cnokhwa_symbols.h"
}

TEST(CameraBindingLoad, ASecondLoadLooksAtNothing) {
  CameraBinding binding;
  const std::string path = FakePath("libcnokhwa.so");
  ASSERT_TRUE(binding.Load(path));
  SetLastError("kept");
  EXPECT_TRUE(binding.Load("/nowhere/libcnokhwa.so"));
  EXPECT_EQ(binding.path, path);
  EXPECT_EQ(GetLastErrorString(), "kept");
}

TEST(CameraBindingLoad, AWrongExplicitPathFails) {
  CameraBinding binding;
  EXPECT_FALSE(binding.Load("/nowhere/libcnokhwa.so"));
  EXPECT_EQ(GetLastErrorString(), kLoadFailure);
  EXPECT_EQ(binding.kind, BackendKind::None);
  EXPECT_FALSE(binding.loaded);
  EXPECT_EQ(binding.handle, nullptr);
  EXPECT_EQ(binding.path, "");
}

TEST(CameraBindingLoad, WithoutALibraryInTheLoadersPlacesFails) {
  CameraBinding binding;
  EXPECT_FALSE(binding.Load(""));
  EXPECT_EQ(GetLastErrorString(), kLoadFailure);
}

TEST(CameraBindingLoad, ALibraryThatLacksARequiredSymbolIsRefusedAndClosed) {
  EXPECT_EQ(RequiredSymbols().size(), 19U);
  for (const std::string& symbol : RequiredSymbols()) {
    const std::string path = FakePath("without_" + symbol + "/libcnokhwa.so");
    ASSERT_TRUE(std::filesystem::exists(path)) << path;
    CameraBinding binding;
    EXPECT_FALSE(binding.Load(path)) << symbol;
    EXPECT_EQ(GetLastErrorString(), kLoadFailure) << symbol;
    EXPECT_EQ(binding.kind, BackendKind::None) << symbol;
    EXPECT_FALSE(binding.loaded) << symbol;
    EXPECT_EQ(binding.handle, nullptr) << symbol;
    EXPECT_EQ(binding.path, "") << symbol;
    EXPECT_FALSE(HasAnyCnokhwaEntry(binding)) << symbol;
    EXPECT_FALSE(IsOpenInThisProcess(path)) << symbol;
  }
}

TEST(CameraBindingLoad, ALibraryThatLacksOnlyTheOptionalSymbolLoads) {
  CameraBinding binding;
  SetLastError("earlier");
  EXPECT_TRUE(binding.Load(FakePath("without_cnokhwa_start_capture_with_format/libcnokhwa.so")));
  EXPECT_EQ(binding.kind, BackendKind::Linux);
  EXPECT_TRUE(HasEveryRequiredEntry(binding));
  EXPECT_EQ(binding.cnokhwa_start_capture_with_format, nullptr);
  EXPECT_EQ(GetLastErrorString(), "");
}

TEST(CameraBindingLoad, SucceedsAfterARefusedLibrary) {
  CameraBinding binding;
  EXPECT_FALSE(binding.Load(FakePath("without_cnokhwa_grab_frame/libcnokhwa.so")));
  EXPECT_TRUE(binding.Load(FakePath("libcnokhwa.so")));
  EXPECT_EQ(binding.path, FakePath("libcnokhwa.so"));
  EXPECT_EQ(GetLastErrorString(), "");
}

TEST(CameraBindingLoad, WithoutAPathTakesTheFirstDefaultName) {
  RunWithLibraryPath(FakePath(""), [] {
    CameraBinding binding;
    EXPECT_TRUE(binding.Load(""));
    EXPECT_EQ(binding.path, "libcnokhwa.so");
  });
}

TEST(CameraBindingLoad, TriesNoDefaultNameBehindAnExplicitPath) {
  RunWithLibraryPath(FakePath(""), [] {
    CameraBinding binding;
    EXPECT_FALSE(binding.Load("/nowhere/libcnokhwa.so"));
    EXPECT_EQ(binding.kind, BackendKind::None);
  });
}

TEST(CameraBindingLoad, WithoutTheFirstDefaultNameTakesTheSecond) {
  const TemporaryDirectory folder;
  std::filesystem::create_symlink(FakePath("libcnokhwa.so"), folder.File("cnokhwa"));
  RunWithLibraryPath(folder.path, [] {
    CameraBinding binding;
    EXPECT_TRUE(binding.Load(""));
    EXPECT_EQ(binding.path, "cnokhwa");
    EXPECT_EQ(GetLastErrorString(), "");
  });
}

TEST(CameraBindingLoad, AfterARefusedFirstDefaultTakesTheSecond) {
  const TemporaryDirectory folder;
  std::filesystem::create_symlink(FakePath("without_cnokhwa_grab_frame/libcnokhwa.so"),
                                  folder.File("libcnokhwa.so"));
  std::filesystem::create_symlink(FakePath("libcnokhwa.so"), folder.File("cnokhwa"));
  RunWithLibraryPath(folder.path, [] {
    CameraBinding binding;
    EXPECT_TRUE(binding.Load(""));
    EXPECT_EQ(binding.path, "cnokhwa");
    EXPECT_TRUE(HasEveryRequiredEntry(binding));
    EXPECT_EQ(GetLastErrorString(), "");
  });
}

TEST(CameraBindingLoad, AThreadThatSeesTheKindSeesTheWholeTable) {
  CameraBinding binding;
  std::thread worker([&binding] {
    while (binding.kind.load(std::memory_order_acquire) == BackendKind::None) {
      // Before the load the table must not be looked at, and Entry does not.
      const auto entry =
          binding.Entry(&CameraBinding::cnokhwa_frame_width, &CameraBinding::cdshow_frame_width,
                        &CameraBinding::avf_frame_width);
      if (entry != nullptr) {
        break;
      }
    }
    EXPECT_TRUE(HasEveryRequiredEntry(binding));
  });
  EXPECT_TRUE(binding.Load(FakePath("libcnokhwa.so")));
  worker.join();
}

TEST(CameraBindingLoad, SeveralThreadsMayLoadAtOnceAndOneLibraryIsInstalled) {
  CameraBinding binding;
  const std::string path = FakePath("libcnokhwa.so");
  std::latch ready(4);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      ready.arrive_and_wait();
      EXPECT_TRUE(binding.Load(path));
      EXPECT_EQ(binding.LoadPath(), path);
      EXPECT_TRUE(HasEveryRequiredEntry(binding));
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_NE(binding.handle, nullptr);
  EXPECT_TRUE(IsOpenInThisProcess(path));
  EXPECT_EQ(GetLastErrorString(), "");
}

TEST(CameraBindingEntry, IsThatOfTheCurrentKind) {
  CameraBinding binding;
  binding.cnokhwa_frame_width = [](int) { return 1; };
  binding.cdshow_frame_width = [](int) { return 2; };
  binding.avf_frame_width = [](int) { return 3; };
  const auto entry = [&binding] {
    return binding.Entry(&CameraBinding::cnokhwa_frame_width, &CameraBinding::cdshow_frame_width,
                         &CameraBinding::avf_frame_width);
  };
  EXPECT_EQ(entry(), nullptr);
  binding.kind = BackendKind::Linux;
  EXPECT_EQ(entry()(0), 1);
  binding.kind = BackendKind::DirectShow;
  EXPECT_EQ(entry()(0), 2);
  binding.kind = BackendKind::AvFoundation;
  EXPECT_EQ(entry()(0), 3);
  binding.avf_frame_width = nullptr;
  EXPECT_EQ(entry(), nullptr);
}

TEST(CameraBindingDimensions, GrowWithZeroedElements) {
  CameraBinding binding;
  binding.RememberDimensions(5, 640, 480);
  ASSERT_EQ(binding.captureDimensions.size(), 6U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(binding.captureDimensions[i].width, 0);
    EXPECT_EQ(binding.captureDimensions[i].height, 0);
  }
  EXPECT_EQ(binding.RememberedDimensions(5).width, 640);
  EXPECT_EQ(binding.RememberedDimensions(5).height, 480);
}

TEST(CameraBindingDimensions, AreRaisedToZero) {
  CameraBinding binding;
  binding.RememberDimensions(0, -1, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(binding.RememberedDimensions(0).width, 0);
  EXPECT_EQ(binding.RememberedDimensions(0).height, 0);
}

TEST(CameraBindingDimensions, OfNoDeviceAreNotKept) {
  CameraBinding binding;
  binding.RememberDimensions(-1, 640, 480);
  binding.RememberDimensions(4096, 640, 480);
  binding.RememberDimensions(std::numeric_limits<int>::max(), 640, 480);
  EXPECT_TRUE(binding.captureDimensions.empty());
  EXPECT_EQ(binding.RememberedDimensions(-1).width, 0);
  EXPECT_EQ(binding.RememberedDimensions(0).width, 0);
  EXPECT_EQ(binding.RememberedDimensions(4096).width, 0);
  EXPECT_EQ(binding.RememberedDimensions(std::numeric_limits<int>::max()).width, 0);
}

TEST(CameraBindingDimensions, OfTheLastDeviceKeptAreKept) {
  CameraBinding binding;
  binding.RememberDimensions(4095, 640, 480);
  EXPECT_EQ(binding.RememberedDimensions(4095).height, 480);
}

TEST(CameraBindingDimensions, MayBeReadWhileTheyGrow) {
  CameraBinding binding;
  binding.RememberDimensions(0, 640, 480);
  std::atomic<bool> isDone{false};
  std::thread worker([&] {
    while (!isDone) {
      const CaptureDimensions dimensions = binding.RememberedDimensions(0);
      EXPECT_EQ(dimensions.width, 640);
      EXPECT_EQ(dimensions.height, 480);
    }
  });
  for (int device = 1; device < 4096; ++device) {
    binding.RememberDimensions(device, device, device);
  }
  isDone = true;
  worker.join();
}

}  // namespace
}  // namespace ostrel_native
