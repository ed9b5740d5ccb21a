// The backend's thread, the worker and the script thread at once, as fast as they can. Every frame
// carries its number in every byte, so one that is torn, overtaken or written while it is held
// shows.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "camera/preview/direct/direct_frame.h"
#include "unit/support/direct_preview.h"
#include "unit/support/hammer_seconds.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr std::size_t kI420Bytes = 64 * 48 * 3 / 2;
constexpr std::size_t kBgraBytes = 64 * 48 * 4;

// Calls back without a pause from a thread of its own for as long as it lives.
class CallbackThread {
 public:
  explicit CallbackThread(std::function<void(std::uint64_t frame)> fire)
      : thread([this, fire = std::move(fire)] {
          for (std::uint64_t frame = 1; !ends; ++frame) {
            fire(frame);
          }
        }) {}
  ~CallbackThread() { Join(); }
  void Join() {
    ends = true;
    if (thread.joinable()) {
      thread.join();
    }
  }

 private:
  std::atomic<bool> ends{false};
  std::thread thread;
};

// A frame that the reader holds, and what it saw in it at first.
struct HeldFrame {
  int slot;
  std::uint64_t sequence;
  std::uint8_t value;
};

struct DirectHammer : DirectPreviewTest {
  ~DirectHammer() override { UnloadTurboJpeg(); }

  bool IsUniform(const HeldFrame& frame, std::size_t bytes) {
    const std::uint8_t* const data = memory[static_cast<std::size_t>(frame.slot)]->data();
    return std::all_of(data, data + bytes,
                       [&frame](std::uint8_t byte) { return byte == frame.value; });
  }

  // Takes frames for one part of the time, and until there are `enough`, holding up to three and
  // giving them back in any order.
  void Read(std::chrono::steady_clock::duration time, std::uint64_t enough,
            std::size_t checkedBytes) {
    const auto end = std::chrono::steady_clock::now() + time;
    const auto latest = end + std::chrono::minutes(1);
    const auto goesOn = [&] {
      const auto now = std::chrono::steady_clock::now();
      return now < end || (taken <= enough && now < latest);
    };
    std::uint64_t last = 0;
    std::vector<HeldFrame> held;
    while (goesOn()) {
      DirectFrame frame(*producer, kDevice, last);
      if (frame.result == 0 && random() % 16 != 0) {  // now and then one is thrown away
        frame.Keep();
        ASSERT_GT(frame.meta.sequence, last);
        last = frame.meta.sequence;
        const auto slot = static_cast<std::size_t>(frame.slot);
        held.push_back({frame.slot, last, memory[slot]->data()[0]});
        torn += IsUniform(held.back(), checkedBytes) ? 0 : 1;
        ++taken;
      }
      if (!held.empty() && (held.size() == 3 || random() % 2 == 0)) {
        const std::size_t which = random() % held.size();
        torn += IsUniform(held[which], checkedBytes) ? 0 : 1;
        ASSERT_EQ(producer->ReleaseDirectSlot(kDevice, held[which].slot, held[which].sequence), 0);
        ASSERT_EQ(producer->ReleaseDirectSlot(kDevice, held[which].slot, held[which].sequence), -7);
        held.erase(held.begin() + static_cast<std::ptrdiff_t>(which));
      }
      if (random() % 1024 == 0) {
        producer->ReleaseAllDirectSlots(-1);
        held.clear();
      }
    }
  }

  static constexpr std::uint64_t kEnough = 100;
  std::minstd_rand random{20260101};
  std::uint64_t taken = 0;
  std::uint64_t torn = 0;
};

TEST_F(DirectHammer, NeverTearsAFrameThatTheCallbackCopies) {
  UseDirectShow({.width = kWidth,
                 .height = kHeight,
                 .bytesPerRow = kWidth * 4,
                 .dataSize = static_cast<int>(kBgraBytes),
                 .strides = {kWidth * 4, 0}});
  FAKE_ENTRY(cdshow_grab_frame, [](int, void* buffer, int capacity) {
    std::fill_n(static_cast<std::uint8_t*>(buffer), capacity, std::uint8_t{1});
    return 0;
  });
  constexpr unsigned kStarts = 4;
  for (unsigned start = 0; start < kStarts; ++start) {
    ASSERT_EQ(Start(), 0);
    Bytes bytes(kBgraBytes);
    CallbackThread callbacks([this, &bytes](std::uint64_t frame) {
      std::fill(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(frame));
      dshowCallback(kDevice, bytes.data(), bytes.size(), static_cast<int>(frame % 2),
                    callbackContext);
    });
    // As a backend must: on return of the call that takes the callback back, none runs.
    onRegister = [&callbacks](bool enable) {
      if (!enable) {
        callbacks.Join();
      }
      return 0;
    };
    Read(std::chrono::milliseconds(HammerSeconds()) / kStarts, kEnough * (start + 1) / kStarts,
         kBgraBytes);
    producer->Stop(-1);
    onRegister = [](bool) { return 0; };
  }
  EXPECT_EQ(torn, 0U);
  EXPECT_GT(taken, kEnough);
}

// JPEGs of one grey each, and between them uncompressed frames, which the callback itself delivers.
TEST_F(DirectHammer, NeverTearsAFrameWhileCallbackAndWorkerBothDeliver) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  UseAvFoundation({.format = CameraPixelFormat::Mjpeg, .width = kWidth, .height = kHeight});
  std::vector<Bytes> jpegs;
  for (int grey = 0; grey < 256; grey += 8) {
    const Bytes rgb(static_cast<std::size_t>(kWidth * kHeight) * 3,
                    static_cast<std::uint8_t>(grey));
    jpegs.push_back(JpegOf(rgb, kWidth, kHeight, TJSAMP_420));
  }
  constexpr std::size_t kLumaBytes = kWidth * kHeight;
  constexpr int kPlainWidth = 48;
  constexpr int kPlainHeight = 24;
  Bytes plain(kI420Bytes);
  static_assert(kPlainWidth * kPlainHeight * 4 == kI420Bytes);

  ASSERT_EQ(Start(), 0);
  CallbackThread callbacks([&](std::uint64_t frame) {
    if (frame % 3 == 0) {
      std::fill(plain.begin(), plain.end(), static_cast<std::uint8_t>(frame));
      avfCallback(kDevice, 1, kPlainWidth, kPlainHeight, 1, plain.data(), plain.size(),
                  kPlainWidth * 4, nullptr, 0, 0, 0, callbackContext);
    } else {
      const Bytes& jpeg = jpegs[frame % jpegs.size()];
      avfCallback(kDevice, 4, kWidth, kHeight, 1, jpeg.data(), jpeg.size(), 0, nullptr, 0, 0, 0,
                  callbackContext);
    }
  });
  onRegister = [&callbacks](bool) {
    callbacks.Join();
    return 0;
  };
  Read(HammerSeconds(), kEnough, kLumaBytes);
  const EncodedFrame encoded = producer->LatestEncodedFrame(kDevice);
  EXPECT_TRUE(encoded.isThere);
  EXPECT_NE(std::find(jpegs.begin(), jpegs.end(), encoded.data), jpegs.end());
  producer->Stop(-1);
  EXPECT_EQ(torn, 0U);
  EXPECT_GT(taken, kEnough);
}

}  // namespace
}  // namespace ostrel_native
