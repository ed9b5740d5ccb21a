// A direct preview of a JPEG camera: the callback leaves JPEGs, the worker decodes the newest.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <new>
#include <semaphore>
#include <vector>

#include "camera/frames/jpeg_decode.h"
#include "camera/preview/direct/direct_frame.h"
#include "unit/support/allocation_spy.h"
#include "unit/support/direct_preview.h"
#include "unit/support/eventually.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

constexpr int kSubsamplings[] = {TJSAMP_444, TJSAMP_422, TJSAMP_420,
                                 TJSAMP_440, TJSAMP_411, TJSAMP_GRAY};
constexpr int kWidth = 32;
constexpr int kHeight = 16;
constexpr std::size_t kI420Bytes = 32 * 16 * 3 / 2;

// Stands before the real decoder of planes. What it does is set before the worker starts, or while
// the worker stands in it.
struct DecodeGate {
  std::atomic<bool> isShut{false};
  std::atomic<int> entered{0};
  std::counting_semaphore<> permits{0};
  decltype(&::tjDecompressToYUVPlanes) real = nullptr;
};
DecodeGate* g_gate = nullptr;

int GatedDecode(tjhandle handle, const unsigned char* jpeg, unsigned long size,
                unsigned char** planes, int width, int* strides, int height, int flags) {
  ++g_gate->entered;
  if (g_gate->isShut) {
    g_gate->permits.acquire();
  }
  return g_gate->real(handle, jpeg, size, planes, width, strides, height, flags);
}

struct DirectMjpeg : DirectPreviewTest {
  DirectMjpeg() {
    EXPECT_TRUE(g_turboJpeg.Load(kTurboJpegName));
    gate.real = g_turboJpeg.tjDecompressToYUVPlanes;
    g_gate = &gate;
    g_turboJpeg.tjDecompressToYUVPlanes = GatedDecode;
  }
  ~DirectMjpeg() override {
    gate.isShut = false;
    gate.permits.release(100);
    producer->Stop(-1);
    UnloadTurboJpeg();
  }

  void StartFor(int width = kWidth, int height = kHeight) {
    UseDirectShow({.format = CameraPixelFormat::Mjpeg,
                   .width = width,
                   .height = height,
                   .bytesPerRow = 0,
                   .dataSize = 1});
    ASSERT_EQ(Start(), 0);
  }

  // Waits until as many frames have been delivered and lost; nothing is under way then but what
  // belongs to the last frame itself.
  bool EventuallyCounted(std::uint64_t produced, int dropped) {
    return Eventually([this, produced, dropped] {
      return producer->producedFrames == produced && producer->droppedFrames == dropped;
    });
  }

  bool EventuallyLatest(std::uint64_t sequence) {
    return Eventually(
        [this, sequence] { return producer->LatestEncodedFrame(kDevice).sequence == sequence; });
  }

  static Bytes Decoded(const Bytes& jpeg, int width, int height) {
    Bytes i420(static_cast<std::size_t>(width * height) * 3 / 2);
    Bytes scratch;
    const tjhandle handle = g_turboJpeg.tjInitDecompress();
    EXPECT_TRUE(DecodeJpegToI420(handle, jpeg.data(), jpeg.size(), i420.data(), i420.size(), width,
                                 height, scratch));
    g_turboJpeg.tjDestroy(handle);
    return i420;
  }

  static Bytes Picture(const Bytes& jpeg, int width, int height) {
    Bytes rgb(static_cast<std::size_t>(width * height) * 3);
    const tjhandle handle = g_turboJpeg.tjInitDecompress();
    EXPECT_TRUE(DecodeJpegToRgb(handle, jpeg.data(), jpeg.size(), rgb.data(), width, height));
    g_turboJpeg.tjDestroy(handle);
    return rgb;
  }

  void ShutGate() { gate.isShut = true; }

  DecodeGate gate;
};

TEST_F(DirectMjpeg, DecodesEverySubsamplingIntoExactlyItsSlot) {
  struct Size {
    int width;
    int height;
  };
  for (const Size size : {Size{kWidth, kHeight}, Size{34, 18}, Size{2, 2}, Size{6, 38}}) {
    for (const int subsampling : kSubsamplings) {
      const Bytes jpeg = SampleJpeg(size.width, size.height, subsampling);
      StartFor(size.width, size.height);
      Fire(jpeg);
      ASSERT_TRUE(EventuallyLatest(1)) << subsampling;
      EXPECT_EQ(memory[0]->Content(), Decoded(jpeg, size.width, size.height)) << subsampling;
      ExpectDropped(0, 0);
      producer->Stop(-1);
    }
  }
}

TEST_F(DirectMjpeg, DescribesTheFrameTheStillAndTheJpegByOneMoment) {
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  StartFor();
  EXPECT_TRUE(producer->directMjpeg);
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice).isThere);
  Fire(jpeg);
  ASSERT_TRUE(EventuallyLatest(1));
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  const PreviewMeta& meta = producer->metas[0];
  EXPECT_EQ(meta.sequence, 1U);
  EXPECT_EQ(meta.width, kWidth);
  EXPECT_EQ(meta.height, kHeight);
  EXPECT_EQ(meta.bytesPerRow, kWidth);
  EXPECT_EQ(meta.dataSize, static_cast<int>(kI420Bytes));
  EXPECT_EQ(meta.pixelFormat, 6);
  EXPECT_EQ(meta.planeCount, 3);
  EXPECT_EQ(meta.planeOffsets[1], 512);
  EXPECT_EQ(meta.planeOffsets[2], 640);
  EXPECT_GT(meta.timestampMs, 1'600'000'000'000);
  EXPECT_GT(meta.monotonicTicks, 0);
  EXPECT_TRUE(producer->firstFrameSeen);

  const QualityFrame still = producer->LatestQualityFrame(kDevice, 0);
  ASSERT_TRUE(still.isNew);
  EXPECT_EQ(still.sequence, 1U);
  EXPECT_EQ(still.width, kWidth);
  EXPECT_EQ(still.height, kHeight);
  EXPECT_EQ(still.bytesPerRow, 3 * kWidth);
  EXPECT_FALSE(still.isBgra);
  EXPECT_EQ(still.timestampMs, meta.timestampMs);
  EXPECT_EQ(still.data, Picture(jpeg, kWidth, kHeight));

  const EncodedFrame encoded = producer->LatestEncodedFrame(kDevice);
  ASSERT_TRUE(encoded.isThere);
  EXPECT_EQ(encoded.width, kWidth);
  EXPECT_EQ(encoded.height, kHeight);
  EXPECT_EQ(encoded.timestampMs, meta.timestampMs);
  EXPECT_EQ(encoded.data, jpeg);
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice + 1).isThere);
  EXPECT_FALSE(producer->LatestEncodedFrame(-1).isThere);
  producer->Stop(-1);
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice).isThere);
  EXPECT_FALSE(producer->LatestQualityFrame(kDevice, 0).isNew);
}

TEST_F(DirectMjpeg, StampsAFrameWhenItComesNotWhenItIsDecoded) {
  ShutGate();
  StartFor();
  Fire(SampleJpeg(kWidth, kHeight, TJSAMP_420));
  ASSERT_TRUE(Eventually([this] { return gate.entered == 1; }));
  const std::int64_t cameAt = producer->encodedPendingTicks;
  Fire(SampleJpeg(kWidth, kHeight, TJSAMP_444));
  EXPECT_GT(producer->encodedPendingTicks, cameAt);
  gate.permits.release(2);
  ASSERT_TRUE(EventuallyLatest(2));
  EXPECT_EQ(producer->metas[0].monotonicTicks, cameAt);
  EXPECT_EQ(producer->metas[1].monotonicTicks, producer->encodedPendingTicks);
  EXPECT_EQ(producer->metas[1].timestampMs, producer->encodedPendingTimestampMs);
}

TEST_F(DirectMjpeg, DecodesOnlyTheNewestOfFramesThatComeTooFast) {
  ShutGate();
  StartFor();
  std::vector<Bytes> jpegs;
  for (const int subsampling : kSubsamplings) {
    jpegs.push_back(SampleJpeg(kWidth, kHeight, subsampling));
  }
  Fire(jpegs[0]);
  ASSERT_TRUE(Eventually([this] { return gate.entered == 1; }));
  for (std::size_t i = 1; i < jpegs.size(); ++i) {
    Fire(jpegs[i]);
    EXPECT_EQ(producer->droppedFrames, static_cast<int>(i) - 1);  // the one that it replaces
  }
  EXPECT_EQ(producer->lastResult, -256);  // a replaced frame is no failure
  gate.permits.release(2);
  ASSERT_TRUE(EventuallyLatest(6));
  EXPECT_EQ(producer->producedFrames, 2U);
  EXPECT_EQ(gate.entered, 2);
  ExpectDropped(4, 0);
  gate.isShut = false;
  EXPECT_EQ(memory[0]->Content(), Decoded(jpegs[0], kWidth, kHeight));
  EXPECT_EQ(memory[1]->Content(), Decoded(jpegs[5], kWidth, kHeight));
  EXPECT_EQ(producer->LatestEncodedFrame(kDevice).data, jpegs[5]);
}

TEST_F(DirectMjpeg, DropsWhatDoesNotBeginAsAJpeg) {
  StartFor();
  Bytes data = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  data[0] = 0xFE;
  Fire(data);
  ExpectDropped(1, -8);
  data[0] = 0xFF;
  data[1] = 0xD9;
  Fire(data);
  ExpectDropped(2, -8);
  Fire({0xFF, 0xD8, 0xFF});
  Fire({0xFF});
  ExpectDropped(4, -8);
  EXPECT_EQ(producer->encodedPendingSequence, 0U);
  EXPECT_FALSE(producer->encodedPendingFlag);
  EXPECT_EQ(gate.entered, 0);
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice).isThere);
}

TEST_F(DirectMjpeg, DropsAPictureOfAnotherSizeBeforeItTakesASlot) {
  StartFor();
  int dropped = 0;
  for (const auto& [width, height] : {std::pair{kWidth, kHeight + 2},
                                      {kWidth - 2, kHeight},
                                      {kWidth + 1, kHeight},
                                      {kWidth, kHeight - 1},
                                      {kHeight, kWidth}}) {
    Fire(SampleJpeg(width, height, TJSAMP_420));
    ASSERT_TRUE(EventuallyCounted(0, ++dropped));
    EXPECT_EQ(producer->lastResult, -8);
  }
  EXPECT_EQ(producer->directCursor, 0U);
  EXPECT_EQ(gate.entered, 0);
  EXPECT_EQ(memory[0]->Content(), Bytes(kI420Bytes, LentMemory::kUntouched));
}

TEST_F(DirectMjpeg, DropsATruncatedJpegAndFreesItsSlot) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  int dropped = 0;
  for (const std::size_t size :
       {jpeg.size() - 40, jpeg.size() / 2, std::size_t{40}, std::size_t{4}}) {
    Fire(Bytes(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(size)));
    ASSERT_TRUE(EventuallyCounted(0, ++dropped)) << size;
    EXPECT_EQ(producer->lastResult, -8);
    ASSERT_TRUE(Eventually([this] { return States() == std::vector{kFree, kFree, kFree}; }));
  }
  EXPECT_FALSE(producer->LatestEncodedFrame(kDevice).isThere);
  EXPECT_FALSE(producer->LatestQualityFrame(kDevice, 0).isNew);
  Fire(jpeg);
  ASSERT_TRUE(EventuallyLatest(5));
  EXPECT_EQ(producer->metas[static_cast<std::size_t>(producer->directCursor - 1) % 3].sequence, 1U);
}

TEST_F(DirectMjpeg, CountsEachCorruptedJpegOnceAndStaysWithinItsSlots) {
  StartFor(34, 18);
  std::uint64_t fired = 0;
  for (const int subsampling : {TJSAMP_420, TJSAMP_411}) {
    const Bytes jpeg = SampleJpeg(34, 18, subsampling);
    for (std::size_t at = 2; at < jpeg.size(); at += 3) {
      Bytes corrupted = jpeg;
      corrupted[at] ^= 0x5B;
      Fire(corrupted);
      ++fired;
      ASSERT_TRUE(Eventually([this, fired] {
        return producer->producedFrames + static_cast<std::uint64_t>(producer->droppedFrames) ==
               fired;
      })) << at;
      producer->ReleaseAllDirectSlots(-1);
    }
  }
  EXPECT_GT(producer->droppedFrames, 0);
}

TEST_F(DirectMjpeg, LosesAFrameWithoutAWordWhileEverySlotIsBusy) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  for (std::uint64_t frame = 1; frame <= 3; ++frame) {
    Fire(jpeg);
    ASSERT_TRUE(EventuallyLatest(frame));
  }
  Fire(jpeg);
  ASSERT_TRUE(EventuallyCounted(3, 1));
  EXPECT_EQ(producer->lastResult, 0);
  EXPECT_EQ(gate.entered, 3);
  EXPECT_EQ(producer->LatestEncodedFrame(kDevice).sequence, 3U);
  producer->ReleaseAllDirectSlots(-1);
  Fire(jpeg);
  EXPECT_TRUE(EventuallyLatest(5));
}

TEST_F(DirectMjpeg, DropsAFrameForASlotWithoutRoom) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  ShutGate();
  Fire(jpeg);
  ASSERT_TRUE(Eventually([this] { return gate.entered == 1; }));
  producer->slotBytes[1] = kI420Bytes - 1;
  std::uint8_t* const third = producer->slotData[2];
  producer->slotData[2] = nullptr;
  gate.isShut = false;
  gate.permits.release();
  ASSERT_TRUE(EventuallyLatest(1));
  Fire(jpeg);
  ASSERT_TRUE(EventuallyCounted(1, 1));
  EXPECT_EQ(producer->lastResult, -8);
  Fire(jpeg);
  ASSERT_TRUE(EventuallyCounted(1, 2));
  EXPECT_EQ(gate.entered, 1);
  EXPECT_EQ(memory[1]->Content(), Bytes(kI420Bytes, LentMemory::kUntouched));
  producer->Stop(-1);
  EXPECT_EQ(third, memory[2]->data());
}

TEST_F(DirectMjpeg, EndsWithItsResultWithoutADecoder) {
  g_turboJpeg.tjInitDecompress = []() -> tjhandle { return nullptr; };
  StartFor();
  EXPECT_TRUE(Eventually([this] { return producer->lastResult == -13; }));
  Fire(SampleJpeg(kWidth, kHeight, TJSAMP_420));
  EXPECT_TRUE(producer->encodedPendingFlag);
  producer->Stop(-1);
}

TEST_F(DirectMjpeg, EndsWithItsResultWithoutARuntime) {
  // Nothing of the start stands in the way: the runtime is gone in between.
  producer->running = true;
  g_turboJpeg.tjPlaneWidth = nullptr;
  producer->RunSharedMjpegLoop(producer->generation, kDevice);
  EXPECT_EQ(producer->lastResult, -13);
  producer->running = false;
}

TEST_F(DirectMjpeg, LosesAFrameItHasNoMemoryFor) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  {
    const test::FailingAllocations failure(jpeg.size());
    Fire(jpeg);
  }
  ExpectDropped(1, -11);
  EXPECT_EQ(producer->encodedPendingSequence, 0U);
  dshowCallback(kDevice, jpeg.data(), std::uint64_t{1} << 63, 0, callbackContext);
  ExpectDropped(2, -11);
  Fire(jpeg);
  EXPECT_TRUE(EventuallyLatest(1));
}

TEST_F(DirectMjpeg, KeepsTheFrameThatWaitsIfItHasNoMemoryForTheNext) {
  ShutGate();
  StartFor();
  const Bytes first = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  const Bytes second = SampleJpeg(kWidth, kHeight, TJSAMP_GRAY);
  Fire(first);
  ASSERT_TRUE(Eventually([this] { return gate.entered == 1; }));
  Fire(second);
  {
    const test::FailingAllocations failure(4096);
    Bytes large = first;
    dshowCallback(kDevice, large.data(), std::uint64_t{1} << 40, 0, callbackContext);
  }
  ExpectDropped(1, -11);
  gate.permits.release(2);
  ASSERT_TRUE(EventuallyLatest(2));
  EXPECT_EQ(producer->LatestEncodedFrame(kDevice).data, second);
}

TEST_F(DirectMjpeg, DropsAFrameWhoseDecodingRunsOutOfMemory) {
  static std::atomic<bool> isOut;
  isOut = true;
  static decltype(g_turboJpeg.tjPlaneWidth) real;
  real = g_turboJpeg.tjPlaneWidth;
  g_turboJpeg.tjPlaneWidth = [](int component, int width, int subsampling) -> int {
    if (isOut) {
      throw std::bad_alloc();
    }
    return real(component, width, subsampling);
  };
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_444);
  Fire(jpeg);
  ASSERT_TRUE(EventuallyCounted(0, 1));
  EXPECT_EQ(producer->lastResult, -8);
  ASSERT_TRUE(Eventually([this] { return States() == std::vector{kFree, kFree, kFree}; }));
  isOut = false;
  Fire(jpeg);
  EXPECT_TRUE(EventuallyLatest(2));
}

TEST_F(DirectMjpeg, TriesTheStillAgainWithTheNextFrameWhenItCannotBeDecoded) {
  static std::atomic<int> attempts;
  attempts = 0;
  static decltype(g_turboJpeg.tjDecompress2) real;
  real = g_turboJpeg.tjDecompress2;
  g_turboJpeg.tjDecompress2 = [](tjhandle handle, const unsigned char* jpeg, unsigned long size,
                                 unsigned char* out, int width, int pitch, int height, int format,
                                 int flags) -> int {
    return ++attempts < 3 ? -1 : real(handle, jpeg, size, out, width, pitch, height, format, flags);
  };
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  for (std::uint64_t frame = 1; frame <= 4; ++frame) {
    producer->ReleaseAllDirectSlots(-1);
    Fire(jpeg);
    ASSERT_TRUE(EventuallyLatest(frame));
    EXPECT_EQ(producer->LatestQualityFrame(kDevice, 0).sequence, frame < 3 ? 0U : 1U);
  }
  EXPECT_EQ(attempts, 3);  // half a second has not passed
  ExpectDropped(0, 0);
}

TEST_F(DirectMjpeg, GoesWithoutAStillThatItHasNoMemoryFor) {
  StartFor(320, 240);
  const Bytes jpeg = SampleJpeg(320, 240, TJSAMP_420);
  {
    const test::FailingAllocations failure(320 * 240 * 3);
    Fire(jpeg);
    ASSERT_TRUE(EventuallyLatest(1));
  }
  EXPECT_FALSE(producer->LatestQualityFrame(kDevice, 0).isNew);
  ExpectDropped(0, 0);
}

TEST_F(DirectMjpeg, RefreshesTheStillAtMostTwiceASecond) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(Eventually([&] {
    producer->ReleaseAllDirectSlots(-1);
    Fire(jpeg);
    return producer->LatestQualityFrame(kDevice, 0).sequence >= 2;
  }));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(499));
}

TEST_F(DirectMjpeg, AllocatesNothingOnceItsVectorsHaveGrown) {
  StartFor();
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_422);
  std::uint64_t frame = 0;
  const auto deliver = [&] {
    producer->ReleaseAllDirectSlots(-1);
    Fire(jpeg);
    ++frame;
    return Eventually([&] { return gate.entered == static_cast<int>(frame); }) && Eventually([&] {
             const std::lock_guard<std::mutex> lock(producer->sharedMutex);
             return producer->encodedLatestSequence == frame;
           });
  };
  // Three vectors change places, and two hold the still.
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(deliver());
  }
  ASSERT_TRUE(Eventually(
      [&] { return deliver() && producer->LatestQualityFrame(kDevice, 0).sequence >= 3; }));
  const std::uint64_t before = test::Allocations();
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(deliver());
  }
  EXPECT_EQ(test::Allocations(), before);
}

TEST_F(DirectMjpeg, TakesJpegFromAvfWhateverTheRestOfTheCallSays) {
  UseAvFoundation({.format = CameraPixelFormat::Mjpeg, .width = kWidth, .height = kHeight});
  ASSERT_EQ(Start(), 0);
  const Bytes jpeg = SampleJpeg(kWidth, kHeight, TJSAMP_420);
  avfCallback(kDevice, 4, 1, 1, -3, jpeg.data(), jpeg.size(), -7, nullptr, 0, -7, -1,
              callbackContext);
  ASSERT_TRUE(EventuallyLatest(1));
  EXPECT_EQ(memory[0]->Content(), Decoded(jpeg, kWidth, kHeight));
}

TEST_F(DirectMjpeg, TakesAnUncompressedFrameFromAvfBesideItsJpeg) {
  UseAvFoundation({.format = CameraPixelFormat::Mjpeg, .width = kWidth, .height = kHeight});
  ASSERT_EQ(Start(), 0);
  const Bytes pixels = FrameBytes(32);
  avfCallback(kDevice, 1, 4, 2, 1, pixels.data(), 32, 16, nullptr, 0, 0, 0, callbackContext);
  EXPECT_EQ(States(), (std::vector{kReady, kFree, kFree}));
  EXPECT_EQ(memory[0]->Content(32), pixels);
  EXPECT_EQ(producer->metas[0].pixelFormat, 1);
  EXPECT_EQ(producer->encodedPendingSequence, 0U);
}

}  // namespace
}  // namespace ostrel_native
