// The reference libraries of the two kinds with a frame callback, opened as a loader opens them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "unit/support/elf_symbols.h"

namespace ostrel_simulator {
namespace {

const char* const kDshow = OSTREL_TEST_DSHOW_REFERENCE;
const char* const kAvf = OSTREL_TEST_AVF_REFERENCE;

// Formats of 640 by 480, by each library's own order of layouts.
constexpr int kNv12 = 0;
constexpr int kDshowBgra = 2 * 6;
constexpr int kAvfBgra = 3 * 6;
constexpr int kNv12Bytes = 640 * 480 * 3 / 2;

template <typename Fn>
Fn Symbol(const char* library, const char* name) {
  void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
  return reinterpret_cast<Fn>(dlsym(handle, name));
}

template <typename Condition>
void Await(Condition condition) {
  while (!condition()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST(ReferenceLibraries, ExportTheirTablesAndNothingElse) {
  const std::set<std::string> dshow = {
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/dshow_symbols.h"
  };
  const std::set<std::string> avf = {
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/avf_symbols.h"
  };
  EXPECT_EQ(ostrel_native::ExportedSymbols(kDshow), dshow);
  EXPECT_EQ(ostrel_native::ExportedSymbols(kAvf), avf);
}

TEST(ReferenceLibraries, DescribeNoFrameWithoutACapture) {
  for (const auto& [library, prefix] : {std::pair{kDshow, "cdshow_"}, {kAvf, "avf_"}}) {
    const auto ask = [&](const char* name, int device) {
      return Symbol<int (*)(int)>(library, (std::string(prefix) + name).c_str())(device);
    };
    for (const int device : {-1, 0, 1, 2147483647}) {
      for (const char* const name :
           {"frame_width", "frame_height", "frame_bytes_per_row", "frame_data_size"}) {
        EXPECT_EQ(ask(name, device), 0) << prefix << name;
      }
      EXPECT_EQ(ask("frame_plane_count", device), 1);
    }
    EXPECT_EQ(ask("stop_capture", 1), -1);
    EXPECT_EQ(ask("stop_capture", -1), 0);
  }
}

TEST(ReferenceLibraries, RefuseAGrabThatHasNoRoom) {
  const auto start = Symbol<int (*)(int, int)>(kDshow, "cdshow_start_capture_with_format");
  const auto hasFrame = Symbol<int (*)(int)>(kDshow, "cdshow_has_first_frame");
  const auto grab = Symbol<int (*)(int, void*, int)>(kDshow, "cdshow_grab_frame");
  const auto grabNative = Symbol<bool (*)(int, void*, int)>(kAvf, "avf_grab_native");
  std::vector<std::uint8_t> buffer(kNv12Bytes);
  EXPECT_EQ(grab(0, buffer.data(), kNv12Bytes), -2);
  EXPECT_FALSE(grabNative(0, buffer.data(), kNv12Bytes));
  ASSERT_EQ(start(0, kNv12), 0);
  Await([&] { return hasFrame(0) == 1; });
  EXPECT_EQ(grab(0, buffer.data(), kNv12Bytes - 1), -11);
  EXPECT_EQ(grab(0, buffer.data(), -1), -11);
  EXPECT_EQ(grab(0, nullptr, kNv12Bytes), -11);
  EXPECT_EQ(grab(1, buffer.data(), kNv12Bytes), -1);
  EXPECT_EQ(grab(0, buffer.data(), kNv12Bytes), 0);
  Symbol<int (*)(int)>(kDshow, "cdshow_stop_capture")(0);
}

// What a callback saw; C functions have no other place for it.
std::atomic<int> g_calls{0};
std::atomic<bool> g_isRunning{false};
std::atomic<bool> g_mayReturn{false};
std::atomic<std::uint64_t> g_size{0};

void CountCall(std::uint64_t size) {
  g_isRunning = true;
  ++g_calls;
  g_size = size;
  Await([] { return g_mayReturn.load(); });
  g_isRunning = false;
}

void OnDshowFrame(std::int32_t, const std::uint8_t*, std::uint64_t size, std::int32_t, void*) {
  CountCall(size);
}

void OnAvfFrame(std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                const std::uint8_t*, std::uint64_t size0, std::int32_t, const std::uint8_t*,
                std::uint64_t size1, std::int32_t, std::int64_t, void*) {
  CountCall(size0 + size1);
}

// Takes a callback back while it runs: `clear` must not return before the callback has.
template <typename Clear>
void ExpectClearWaits(Clear clear, std::uint64_t size) {
  g_mayReturn = false;
  Await([] { return g_isRunning.load(); });
  EXPECT_EQ(g_size, size);
  std::atomic<bool> isClearing{false};
  std::atomic<bool> isCleared{false};
  std::thread clearing([&] {
    isClearing = true;
    clear();
    isCleared = true;
    EXPECT_FALSE(g_isRunning);
  });
  Await([&] { return isClearing.load(); });
  // Time for one that does not wait to show it.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(isCleared);
  g_mayReturn = true;
  clearing.join();
}

TEST(ReferenceLibraries, TakeACallbackBackOnlyWhenItHasReturned) {
  g_mayReturn = true;
  const auto setDshow = Symbol<int (*)(int, decltype(&OnDshowFrame), void*, int)>(
      kDshow, "cdshow_set_frame_callback");
  const auto setAvf =
      Symbol<int (*)(int, decltype(&OnAvfFrame), void*, int)>(kAvf, "avf_set_frame_callback");
  EXPECT_EQ(setDshow(1, OnDshowFrame, nullptr, 1), -1);
  EXPECT_EQ(setAvf(-1, OnAvfFrame, nullptr, 1), -1);

  ASSERT_EQ(setDshow(0, OnDshowFrame, nullptr, 1), 0);
  ASSERT_EQ(Symbol<int (*)(int, int)>(kDshow, "cdshow_start_capture_with_format")(0, kNv12), 0);
  Await([] { return g_calls >= 2; });
  ExpectClearWaits([&] { EXPECT_EQ(setDshow(0, nullptr, nullptr, 0), 0); }, kNv12Bytes);
  EXPECT_EQ(Symbol<int (*)(int, int)>(kDshow, "cdshow_start_capture_with_format")(0, kDshowBgra),
            0);

  const auto startAvf = Symbol<int (*)(int, int, int)>(kAvf, "avf_start_capture_with_format");
  ASSERT_EQ(startAvf(0, kAvfBgra, 0), 0);
  ASSERT_EQ(setAvf(0, OnAvfFrame, nullptr, 1), 0);
  const int before = g_calls;
  Await([&] { return g_calls >= before + 2; });
  ExpectClearWaits([&] { EXPECT_EQ(setAvf(0, nullptr, nullptr, 0), 0); }, 640 * 480 * 4);

  // Two more frames, of which nobody hears: a grab waits for one that its thread has not had.
  const int heard = g_calls;
  std::vector<std::uint8_t> buffer(640 * 480 * 4);
  const auto grab = Symbol<bool (*)(int, void*, int)>(kAvf, "avf_grab_native");
  EXPECT_TRUE(grab(0, buffer.data(), 640 * 480 * 4));
  EXPECT_TRUE(grab(0, buffer.data(), 640 * 480 * 4));
  EXPECT_TRUE(grab(0, buffer.data(), 640 * 480 * 4));
  EXPECT_EQ(g_calls, heard);
  Symbol<int (*)(int)>(kAvf, "avf_stop_capture")(0);
}

}  // namespace
}  // namespace ostrel_simulator
