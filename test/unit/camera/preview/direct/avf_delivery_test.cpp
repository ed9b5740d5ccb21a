// The callback of an AVFoundation backend: what it copies where, what it refuses, and how it
// stamps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

#include "camera/frames/frame_clock.h"
#include "camera/preview/direct/direct_delivery.h"
#include "unit/support/direct_preview.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;

constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();
constexpr std::uint64_t kUint64Max = std::numeric_limits<std::uint64_t>::max();

// What an AVFoundation backend passes; each test changes what it is about.
struct AvfCall {
  std::int32_t device = DirectPreviewTest::kDevice;
  std::int32_t format = 1;
  std::int32_t width = 4;
  std::int32_t height = 2;
  std::int32_t planeCount = 1;
  const std::uint8_t* plane0 = nullptr;
  std::uint64_t plane0Size = 0;
  std::int32_t plane0Stride = 16;
  const std::uint8_t* plane1 = nullptr;
  std::uint64_t plane1Size = 0;
  std::int32_t plane1Stride = 0;
  std::int64_t timestamp = 0;
};

struct AvfDelivery : DirectPreviewTest {
  AvfDelivery() { UseAvFoundation({.dataSize = 64}); }

  // Puts the planes at the end of what may be read.
  void SetPlanes(AvfCall& call, std::size_t size0, std::size_t size1 = 0) {
    plane0 = std::make_unique<GuardedBuffer>(size0);
    plane1 = std::make_unique<GuardedBuffer>(size1);
    const Bytes content = FrameBytes(size0 + size1);
    std::copy_n(content.begin(), size0, plane0->begin());
    std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(size0), size1, plane1->begin());
    call.plane0 = plane0->data();
    call.plane0Size = size0;
    call.plane1 = size1 == 0 ? nullptr : plane1->data();
    call.plane1Size = size1;
  }

  void Fire(const AvfCall& call) {
    avfCallback(call.device, call.format, call.width, call.height, call.planeCount, call.plane0,
                call.plane0Size, call.plane0Stride, call.plane1, call.plane1Size, call.plane1Stride,
                call.timestamp, callbackContext);
  }

  AvfCall Packed() {
    AvfCall call;
    SetPlanes(call, 32);
    return call;
  }

  AvfCall Nv12() {
    AvfCall call = {.format = 2, .planeCount = 2, .plane0Stride = 6, .plane1Stride = 5};
    SetPlanes(call, 12, 5);
    return call;
  }

  // Rows of a plane, without what lies between them.
  static Bytes Rows(const GuardedBuffer& plane, int stride, int rowBytes, int rows) {
    Bytes bytes;
    for (int row = 0; row < rows; ++row) {
      const std::uint8_t* const first = plane.data() + row * stride;
      bytes.insert(bytes.end(), first, first + rowBytes);
    }
    return bytes;
  }

  void ExpectRefusal(const AvfCall& call, int result) {
    const int dropped = producer->droppedFrames;
    Fire(call);
    EXPECT_EQ(producer->droppedFrames, dropped + 1);
    EXPECT_EQ(producer->lastResult, result);
    EXPECT_EQ(producer->producedFrames, 0U);
    EXPECT_EQ(States(), (std::vector{kFree, kFree, kFree}));
    EXPECT_EQ(memory[0]->Content(), Bytes(memory[0]->size(), LentMemory::kUntouched));
  }

  std::unique_ptr<GuardedBuffer> plane0;
  std::unique_ptr<GuardedBuffer> plane1;
};

TEST_F(AvfDelivery, CopiesPackedRowsTightAndTrustsTheFrameNotThePlan) {
  UseAvFoundation({.width = 100, .height = 50, .bytesPerRow = 400, .dataSize = 64});
  ASSERT_EQ(Start(), 0);
  AvfCall call = {.plane0Stride = 20, .timestamp = 7'000'000'900};
  SetPlanes(call, 40);
  Fire(call);
  EXPECT_EQ(memory[0]->Content(32), Rows(*plane0, 20, 16, 2));
  EXPECT_EQ(memory[0]->Content()[32], LentMemory::kUntouched);
  const PreviewMeta& meta = producer->metas[0];
  EXPECT_EQ(meta.sequence, 1U);
  EXPECT_EQ(meta.width, 4);
  EXPECT_EQ(meta.height, 2);
  EXPECT_EQ(meta.bytesPerRow, 16);
  EXPECT_EQ(meta.dataSize, 32);
  EXPECT_EQ(meta.sourceWidth, 4);
  EXPECT_EQ(meta.sourceHeight, 2);
  EXPECT_EQ(meta.sourceBytesPerRow, 20);
  EXPECT_EQ(meta.pixelFormat, 1);
  EXPECT_EQ(meta.planeCount, 1);
  EXPECT_EQ(meta.planeOffsets[0], 0);
  EXPECT_EQ(meta.planeStrides[0], 16);
  EXPECT_EQ(meta.timestampMs, 7000);
  EXPECT_EQ(meta.monotonicTicks, 70'000'009);
  ExpectDropped(0, 0);
}

TEST_F(AvfDelivery, CopiesPairsOfPixelsOfAnyWidth) {
  ASSERT_EQ(Start(), 0);
  std::size_t slot = 0;
  for (const std::int32_t format : {3, 7}) {
    AvfCall call = {.format = format, .width = 5, .height = 3, .plane0Stride = 11};
    SetPlanes(call, 33);
    Fire(call);
    EXPECT_EQ(memory[slot]->Content(30), Rows(*plane0, 11, 10, 3));
    EXPECT_EQ(producer->metas[slot].bytesPerRow, 10);
    EXPECT_EQ(producer->metas[slot].dataSize, 30);
    EXPECT_EQ(producer->metas[slot].pixelFormat, format);
    ++slot;
  }
}

TEST_F(AvfDelivery, CopiesBothPlanesOfNv12WithoutAGap) {
  ASSERT_EQ(Start(), 0);
  Fire(Nv12());
  Bytes expected = Rows(*plane0, 6, 4, 2);
  const Bytes chroma = Rows(*plane1, 5, 4, 1);
  expected.insert(expected.end(), chroma.begin(), chroma.end());
  EXPECT_EQ(memory[0]->Content(12), expected);
  const PreviewMeta& meta = producer->metas[0];
  EXPECT_EQ(meta.bytesPerRow, 4);
  EXPECT_EQ(meta.dataSize, 12);
  EXPECT_EQ(meta.sourceBytesPerRow, 6);
  EXPECT_EQ(meta.pixelFormat, 2);
  EXPECT_EQ(meta.planeCount, 2);
  EXPECT_EQ(meta.planeOffsets[0], 0);
  EXPECT_EQ(meta.planeOffsets[1], 8);
  EXPECT_EQ(meta.planeStrides[0], 4);
  EXPECT_EQ(meta.planeStrides[1], 4);
}

TEST_F(AvfDelivery, CopiesRowsThatAreTightAlready) {
  ASSERT_EQ(Start(), 0);
  Fire(Packed());
  EXPECT_EQ(memory[0]->Content(32), FrameBytes(32));
}

TEST_F(AvfDelivery, StampsFromTheBackendsClockAsFarAsThatReaches) {
  ASSERT_EQ(Start(), 0);
  struct Case {
    std::int64_t timestamp;
    std::int64_t timestampMs;     // 0: the wall clock
    std::int64_t monotonicTicks;  // 0: the steady clock
  };
  for (const Case& sample :
       {Case{0, 0, 0}, Case{-1, 0, 0}, Case{std::numeric_limits<std::int64_t>::min(), 0, 0},
        Case{99, 0, 0}, Case{100, 0, 1}, Case{999'999, 0, 9'999}, Case{1'000'000, 1, 10'000},
        Case{5'000'199, 5, 50'001}}) {
    producer->ReleaseAllDirectSlots(-1);
    AvfCall call = Packed();
    call.timestamp = sample.timestamp;
    const std::int64_t wall = WallClockMs();
    const std::int64_t ticks = SteadyTicks();
    Fire(call);
    const auto& metas = producer->metas;
    const PreviewMeta& meta =
        *std::max_element(std::begin(metas), std::end(metas),
                          [](const auto& a, const auto& b) { return a.sequence < b.sequence; });
    if (sample.timestampMs != 0) {
      EXPECT_EQ(meta.timestampMs, sample.timestampMs) << sample.timestamp;
    } else {
      EXPECT_GE(meta.timestampMs, wall) << sample.timestamp;
    }
    if (sample.monotonicTicks != 0) {
      EXPECT_EQ(meta.monotonicTicks, sample.monotonicTicks) << sample.timestamp;
    } else {
      EXPECT_GE(meta.monotonicTicks, ticks) << sample.timestamp;
    }
  }
}

TEST_F(AvfDelivery, IgnoresCallsThatAreNotForThisPreview) {
  ASSERT_EQ(Start(), 0);
  const AvfCall good = Packed();
  AvfCall call = good;
  call.device = kDevice + 1;
  Fire(call);
  for (const std::int32_t side : {0, -1, kIntMin}) {
    call = good;
    call.width = side;
    Fire(call);
    call = good;
    call.height = side;
    Fire(call);
  }
  call = good;
  call.plane0 = nullptr;
  Fire(call);
  void* const context = callbackContext;
  callbackContext = nullptr;
  Fire(good);
  callbackContext = context;
  producer->direct = false;
  Fire(good);
  producer->direct = true;
  producer->running = false;
  Fire(good);
  EXPECT_EQ(producer->droppedFrames, 0);
  EXPECT_EQ(producer->producedFrames, 0U);
  EXPECT_EQ(producer->lastResult, -256);
}

TEST_F(AvfDelivery, DropsLayoutsThatItCannotDeliver) {
  ASSERT_EQ(Start(), 0);
  for (const std::int32_t format : {0, 5, 6, 8, -1, kIntMax, kIntMin}) {
    AvfCall call = Packed();
    call.format = format;
    ExpectRefusal(call, -13);
  }
}

TEST_F(AvfDelivery, DropsNv12ThatIsNotWhole) {
  ASSERT_EQ(Start(), 0);
  AvfCall call = Nv12();
  call.width = 3;
  ExpectRefusal(call, -13);
  call = Nv12();
  call.height = 1;
  ExpectRefusal(call, -13);
  for (const std::int32_t planes : {1, 0, -2}) {
    call = Nv12();
    call.planeCount = planes;
    ExpectRefusal(call, -13);
  }
  call = Nv12();
  call.plane1 = nullptr;
  ExpectRefusal(call, -13);
}

TEST_F(AvfDelivery, DropsPlanesThatDoNotHoldTheirRows) {
  ASSERT_EQ(Start(), 0);
  for (const std::int32_t stride : {15, 0, -16, kIntMin}) {
    AvfCall call = Packed();
    call.plane0Stride = stride;
    ExpectRefusal(call, -11);
  }
  for (const std::uint64_t size : {31U, 0U}) {
    AvfCall call = Packed();
    call.plane0Size = size;
    ExpectRefusal(call, -11);
  }
  for (const std::int32_t stride : {3, 0, -4, kIntMin}) {
    AvfCall call = Nv12();
    call.plane1Stride = stride;
    ExpectRefusal(call, -11);
  }
  for (const std::uint64_t size : {4U, 0U}) {
    AvfCall call = Nv12();
    call.plane1Size = size;
    ExpectRefusal(call, -11);
  }
}

TEST_F(AvfDelivery, DropsSizesWhoseProductsExceedTheirTypes) {
  ASSERT_EQ(Start(), 0);
  AvfCall call = Packed();
  call.width = kIntMax;
  call.plane0Stride = kIntMax;
  call.plane0Size = kUint64Max;
  ExpectRefusal(call, -11);  // four bytes a pixel exceed the stride
  call.width = 1 << 28;      // 2^30 bytes a row, 2^30 rows: 2^60 bytes
  call.height = 1 << 30;
  ExpectRefusal(call, -11);
  call.width = 16384;  // 65536 bytes a row, 65536 rows: 2^32 bytes
  call.height = 65536;
  ExpectRefusal(call, -11);
  call.format = 2;
  call.planeCount = 2;
  call.width = kIntMax - 1;
  call.height = kIntMax - 1;
  call.plane1 = call.plane0;
  call.plane1Size = kUint64Max;
  call.plane1Stride = kIntMax;
  ExpectRefusal(call, -11);
}

TEST_F(AvfDelivery, DropsAFrameThatExceedsItsSlotByAByte) {
  ASSERT_EQ(Start(64), 0);
  AvfCall call = {.height = 5};  // 80 bytes
  SetPlanes(call, 80);
  ExpectRefusal(call, -11);
  producer->Stop(-1);
  ASSERT_EQ(Start(12 + 52), 0);
  producer->slotBytes[0] = 11;
  producer->slotBytes[1] = 12;
  ExpectRefusal(Nv12(), -11);
  Fire(Nv12());
  EXPECT_EQ(States(), (std::vector{kFree, kReady, kFree}));
}

TEST_F(AvfDelivery, DropsTheNewestFrameWhenNoSlotIsFree) {
  ASSERT_EQ(Start(), 0);
  for (int i = 0; i < 5; ++i) {
    Fire(Packed());
  }
  EXPECT_EQ(producer->producedFrames, 3U);
  ExpectDropped(2, -11);
}

TEST_F(AvfDelivery, LandsAJpegAsItIsWhileThePreviewIsNotOneOfJpeg) {
  ASSERT_EQ(Start(), 0);
  AvfCall call = {.format = 4, .plane0Stride = -5};
  SetPlanes(call, 21);
  Fire(call);
  EXPECT_EQ(memory[0]->Content(21), FrameBytes(21));
  EXPECT_EQ(producer->metas[0].dataSize, 21);
  EXPECT_EQ(producer->metas[0].pixelFormat, 1);  // the plan's
  call.plane0Size = 65;
  Fire(call);
  ExpectDropped(1, -11);
  call.plane0Size = 0;
  Fire(call);
  ExpectDropped(1, -11);
}

}  // namespace
}  // namespace ostrel_native
