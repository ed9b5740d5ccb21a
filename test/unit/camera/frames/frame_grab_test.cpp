#include "camera/frames/frame_grab.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "unit/support/fake_camera.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;
using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;
using FrameGrab = FakeCameraTest;
using RgbaGrabTest = FakeCameraTest;
using AvfFrameRgb = FakeCameraTest;

constexpr int kMaxInt = std::numeric_limits<int>::max();

void SetLinuxSize(int width, int height, int bytesPerRow) {
  g_camera.kind = BackendKind::Linux;
  FAKE_NUMBER(cnokhwa_frame_width, width);
  FAKE_NUMBER(cnokhwa_frame_height, height);
  FAKE_NUMBER(cnokhwa_frame_bytes_per_row, bytesPerRow);
}

void SetAvfSize(int width, int height) {
  g_camera.kind = BackendKind::AvFoundation;
  FAKE_NUMBER(avf_frame_width, width);
  FAKE_NUMBER(avf_frame_height, height);
}

// Fills the whole capacity: byte i becomes i + 1, cut to a byte.
void FillCounting(void* buffer, int capacity) {
  for (int i = 0; i < capacity; ++i) {
    static_cast<std::uint8_t*>(buffer)[i] = static_cast<std::uint8_t>(i + 1);
  }
}

int GrabCounting(int, void* buffer, int capacity) {
  FillCounting(buffer, capacity);
  return 0;
}

// Scratch memory belongs to a thread and keeps its size: on a fresh one it is exactly as large as
// this grab makes it, and a read beyond it shows.
template <typename Body>
void OnFreshThread(Body body) {
  std::thread(body).join();
}

Strings CallsOf(const std::string& entry) {
  Strings calls;
  for (const std::string& call : g_callLog.Entries()) {
    if (call.compare(0, entry.size() + 1, entry + "(") == 0) {
      calls.push_back(call);
    }
  }
  return calls;
}

Bytes WriteToExactBuffer(const RgbaGrab& grab) {
  GuardedBuffer out(static_cast<std::size_t>(grab.size));
  WriteRgba(grab, out.data());
  return Bytes(out.data(), out.data() + out.size());
}

TEST_F(FrameGrab, WithoutABackendHasNoShape) {
  const FrameGrabPlan plan = PlanFrameGrab(0);
  EXPECT_EQ(plan.width, -1);
  EXPECT_EQ(plan.height, -1);
  EXPECT_EQ(plan.bytesPerRow, -1);
  EXPECT_FALSE(plan.isBgra);
  EXPECT_EQ(plan.result, -10);
}

TEST_F(FrameGrab, WithoutABackendOrAnEntryIsMinusSix) {
  std::uint8_t byte = 0;
  EXPECT_EQ(GrabFrame(0, &byte, 1), -6);
  for (const BackendKind kind :
       {BackendKind::Linux, BackendKind::DirectShow, BackendKind::AvFoundation}) {
    Use(kind);
    EXPECT_EQ(GrabFrame(0, &byte, 1), -6);
  }
}

TEST_F(FrameGrab, OnLinuxTellsTheTightCapacityWhateverTheBackendsRow) {
  SetLinuxSize(100, 4, 512);
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  const FrameGrabPlan plan = PlanFrameGrab(2);
  EXPECT_EQ(plan.width, 100);
  EXPECT_EQ(plan.height, 4);
  EXPECT_EQ(plan.bytesPerRow, 300);
  EXPECT_FALSE(plan.isBgra);
  EXPECT_EQ(plan.result, 0);
  EXPECT_EQ(plan.size, 1200);
  GuardedBuffer buffer(1200);
  EXPECT_EQ(GrabFrame(2, buffer.data(), plan.size), 0);
  EXPECT_EQ(buffer.data()[1199], static_cast<std::uint8_t>(1200));
  EXPECT_EQ(CallsOf("cnokhwa_grab_frame"), (Strings{"cnokhwa_grab_frame(2,ptr,1200)"}));
  EXPECT_TRUE(CallsOf("cnokhwa_frame_bytes_per_row").empty());
}

TEST_F(FrameGrab, PassesTheBackendsCodeThrough) {
  SetLinuxSize(1, 1, 3);
  std::uint8_t buffer[3];
  for (const int code : {-7, -10, -11, -256, 5}) {
    FAKE_NUMBER(cnokhwa_grab_frame, code);
    EXPECT_EQ(GrabFrame(0, buffer, 3), code);
  }
}

TEST_F(FrameGrab, AnImpossibleSizeIsRefusedAndReported) {
  SetLinuxSize(-5, 480, 1920);
  EXPECT_EQ(PlanFrameGrab(0).width, -5);
  EXPECT_EQ(PlanFrameGrab(0).bytesPerRow, -1);
  EXPECT_EQ(PlanFrameGrab(0).result, -10);
  SetLinuxSize(640, 0, 1920);
  EXPECT_EQ(PlanFrameGrab(0).bytesPerRow, 1920);
  EXPECT_EQ(PlanFrameGrab(0).result, -10);
  SetLinuxSize(640, -1, 1920);
  EXPECT_EQ(PlanFrameGrab(0).result, -10);
}

TEST_F(FrameGrab, ASizeBeyondInt32IsRefused) {
  SetLinuxSize(715827883, 1, 3);  // 3 times this is 2^31 + 1
  EXPECT_EQ(PlanFrameGrab(0).bytesPerRow, -1);
  EXPECT_EQ(PlanFrameGrab(0).result, -10);
  SetLinuxSize(kMaxInt, kMaxInt, kMaxInt);
  EXPECT_EQ(PlanFrameGrab(0).result, -10);
  SetLinuxSize(715827882, 1, 3);
  EXPECT_EQ(PlanFrameGrab(0).result, 0);
  EXPECT_EQ(PlanFrameGrab(0).size, 2147483646);
  SetLinuxSize(715827882, 2, 3);
  EXPECT_EQ(PlanFrameGrab(0).result, -11);
  SetLinuxSize(65536, 65536, 3);
  EXPECT_EQ(PlanFrameGrab(0).bytesPerRow, 196608);
  EXPECT_EQ(PlanFrameGrab(0).result, -11);
}

TEST_F(FrameGrab, OnAvFoundationIsBgraWhereTheBackendHasIt) {
  SetAvfSize(5, 3);
  FAKE_ENTRY(avf_grab_rgb, [](int, void* buffer, int capacity) {
    FillCounting(buffer, capacity);
    return true;
  });
  FrameGrabPlan plan = PlanFrameGrab(0);
  EXPECT_EQ(plan.bytesPerRow, 15);
  EXPECT_FALSE(plan.isBgra);
  GuardedBuffer rgb(45);
  EXPECT_EQ(GrabFrame(0, rgb.data(), plan.size), 0);
  EXPECT_EQ(rgb.data()[44], 45);

  FAKE_ENTRY(avf_grab_bgra, [](int, void* buffer, int capacity) {
    FillCounting(buffer, capacity);
    return true;
  });
  plan = PlanFrameGrab(0);
  EXPECT_EQ(plan.bytesPerRow, 20);
  EXPECT_EQ(plan.size, 60);
  EXPECT_TRUE(plan.isBgra);
  GuardedBuffer bgra(60);
  EXPECT_EQ(GrabFrame(0, bgra.data(), plan.size), 0);
  EXPECT_EQ(bgra.data()[59], 60);
  FAKE_NUMBER(avf_grab_bgra, false);
  EXPECT_EQ(GrabFrame(0, bgra.data(), plan.size), -8);
}

TEST_F(FrameGrab, TheBgraEntryOfAvFoundationMeansNothingToOtherKinds) {
  FAKE_NUMBER(avf_grab_bgra, true);
  SetLinuxSize(5, 3, 15);
  EXPECT_EQ(PlanFrameGrab(0).bytesPerRow, 15);
  EXPECT_FALSE(PlanFrameGrab(0).isBgra);
}

TEST_F(FrameGrab, OnDirectShowConvertsToRgb) {
  Use(BackendKind::DirectShow);
  FAKE_NUMBER(cdshow_frame_width, 2);
  FAKE_NUMBER(cdshow_frame_height, 1);
  FAKE_ENTRY(cdshow_grab_frame, GrabCounting);
  const FrameGrabPlan plan = PlanFrameGrab(0);
  EXPECT_EQ(plan.bytesPerRow, 6);
  EXPECT_FALSE(plan.isBgra);
  std::uint8_t out[6];
  EXPECT_EQ(GrabFrame(0, out, plan.size), 0);
  EXPECT_EQ(Bytes(out, out + 6), (Bytes{3, 2, 1, 7, 6, 5}));
}

TEST_F(RgbaGrabTest, WithoutABackendHasNoSize) {
  const RgbaGrab grab = GrabForRgba(0, 960, 540);
  EXPECT_EQ(grab.sourceWidth, -1);
  EXPECT_EQ(grab.sourceHeight, -1);
  EXPECT_EQ(grab.sourceBytesPerRow, -1);
  EXPECT_EQ(grab.result, -10);
}

TEST_F(RgbaGrabTest, ReducesByWholeSteps) {
  struct Case {
    int width, height, maxWidth, maxHeight;
    int step, outWidth, outHeight;
  };
  constexpr Case kCases[] = {
      {1920, 1080, 960, 540, 2, 960, 540},
      {1921, 1080, 960, 540, 3, 640, 360},
      {640, 480, 960, 540, 1, 640, 480},
      {960, 540, 960, 540, 1, 960, 540},
      {961, 540, 960, 540, 2, 480, 270},
      {1000, 100, 960, 540, 2, 500, 50},
      {1920, 1080, 0, 540, 1920, 1, 1},
      {1920, 1080, -5, -5, 1920, 1, 1},
      {640, 1080, 0, 540, 640, 1, 1},
      {4, 1000, 960, 1, 1000, 1, 1},
      {640, 480, kMaxInt, kMaxInt, 1, 640, 480},
  };
  FAKE_NUMBER(cnokhwa_grab_frame, 0);
  for (const Case& item : kCases) {
    SetLinuxSize(item.width, item.height, 3 * item.width);
    const RgbaGrab grab = GrabForRgba(0, item.maxWidth, item.maxHeight);
    EXPECT_EQ(grab.result, 0);
    EXPECT_EQ(grab.step, item.step) << item.width << " " << item.maxWidth;
    EXPECT_EQ(grab.width, item.outWidth) << item.width << " " << item.maxWidth;
    EXPECT_EQ(grab.height, item.outHeight) << item.width << " " << item.maxWidth;
    EXPECT_EQ(grab.bytesPerRow, 4 * item.outWidth);
    EXPECT_EQ(grab.size, 4 * item.outWidth * item.outHeight);
  }
}

TEST_F(RgbaGrabTest, TakesTheTopLeftPixelOfEachStep) {
  SetLinuxSize(5, 4, 20);
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  OnFreshThread([] {
    const RgbaGrab grab = GrabForRgba(3, 2, 2);  // q is 2.5: step 3
    ASSERT_EQ(grab.result, 0);
    EXPECT_EQ(grab.sourceWidth, 5);
    EXPECT_EQ(grab.sourceHeight, 4);
    EXPECT_EQ(grab.sourceBytesPerRow, 20);
    EXPECT_EQ(WriteToExactBuffer(grab), (Bytes{1, 2, 3, 255}));
    const RgbaGrab half = GrabForRgba(3, 3, 2);
    ASSERT_EQ(half.result, 0);
    EXPECT_EQ(half.step, 2);
    EXPECT_EQ(WriteToExactBuffer(half),
              (Bytes{1, 2, 3, 255, 7, 8, 9, 255, 41, 42, 43, 255, 47, 48, 49, 255}));
  });
  EXPECT_EQ(CallsOf("cnokhwa_grab_frame")[0], "cnokhwa_grab_frame(3,ptr,80)");
}

TEST_F(RgbaGrabTest, AFailedGrabPassesItsCodeThrough) {
  SetLinuxSize(4, 4, 12);
  for (const int code : {-7, -8, 3}) {
    FAKE_NUMBER(cnokhwa_grab_frame, code);
    EXPECT_EQ(GrabForRgba(0, 960, 540).result, code);
    EXPECT_EQ(GrabForRgba(0, 960, 540).sourceBytesPerRow, 12);
  }
}

TEST_F(RgbaGrabTest, AnImpossibleSizeIsRefusedBeforeTheBackendIsAsked) {
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  struct Size {
    int width, height, bytesPerRow;
  };
  for (const Size& size : {Size{0, 4, 12}, Size{-4, 4, 12}, Size{4, 0, 12}, Size{4, -4, 12},
                           Size{4, 4, 0}, Size{4, 4, -12}, Size{715827883, 1, 3}}) {
    SetLinuxSize(size.width, size.height, size.bytesPerRow);
    const RgbaGrab grab = GrabForRgba(0, 960, 540);
    EXPECT_EQ(grab.result, -10);
    EXPECT_EQ(grab.sourceWidth, size.width);
    EXPECT_EQ(grab.sourceHeight, size.height);
    EXPECT_EQ(grab.sourceBytesPerRow, size.bytesPerRow);
  }
  EXPECT_TRUE(CallsOf("cnokhwa_grab_frame").empty());
}

TEST_F(RgbaGrabTest, ASizeBeyondInt32IsRefusedBeforeTheBackendIsAsked) {
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  SetLinuxSize(65536, 65536, 65536);  // 2^32: in 32 bits it would be 0
  EXPECT_EQ(GrabForRgba(0, 960, 540).result, -11);
  SetLinuxSize(46341, 46341, 46341);
  EXPECT_EQ(GrabForRgba(0, 960, 540).result, -11);
  // Of the picture: 4 bytes a pixel where the source may have fewer.
  SetLinuxSize(600000000, 1, 1);
  EXPECT_EQ(GrabForRgba(0, kMaxInt, kMaxInt).result, -10);
  SetLinuxSize(30000, 30000, 1);
  EXPECT_EQ(GrabForRgba(0, kMaxInt, kMaxInt).result, -11);
  EXPECT_TRUE(CallsOf("cnokhwa_grab_frame").empty());
}

TEST_F(RgbaGrabTest, ARowShorterThanItsPixelsReadsZeroBehindTheFrame) {
  SetLinuxSize(4, 3, 1);
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  OnFreshThread([] {
    // A larger grab first: what it left must not show.
    SetLinuxSize(8, 8, 24);
    ASSERT_EQ(GrabForRgba(0, 960, 540).result, 0);
    SetLinuxSize(4, 3, 1);
    const RgbaGrab grab = GrabForRgba(0, 960, 540);
    ASSERT_EQ(grab.result, 0);
    const Bytes out = WriteToExactBuffer(grab);
    const Bytes firstRow(out.begin(), out.begin() + 16);
    const Bytes lastRow(out.begin() + 32, out.end());
    EXPECT_EQ(firstRow, (Bytes{1, 2, 3, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
    EXPECT_EQ(lastRow, (Bytes{3, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255}));
  });
  EXPECT_EQ(CallsOf("cnokhwa_grab_frame").back(), "cnokhwa_grab_frame(0,ptr,3)");
}

TEST_F(RgbaGrabTest, NoReadLeavesTheScratchOfAnyShape) {
  FAKE_ENTRY(cnokhwa_grab_frame, GrabCounting);
  for (int width = 1; width <= 9; ++width) {
    for (int bytesPerRow = 1; bytesPerRow <= 30; ++bytesPerRow) {
      SetLinuxSize(width, 3, bytesPerRow);
      OnFreshThread([] {
        const RgbaGrab grab = GrabForRgba(0, 960, 540);
        ASSERT_EQ(grab.result, 0);
        EXPECT_EQ(WriteToExactBuffer(grab)[0], 1);
      });
    }
  }
}

TEST_F(RgbaGrabTest, OnTheOtherKindsTheSourceRowIsThreeBytesAPixel) {
  SetAvfSize(2, 2);
  FAKE_NUMBER(avf_frame_bytes_per_row, 11);
  FAKE_ENTRY(avf_grab_rgb, [](int, void* buffer, int capacity) {
    FillCounting(buffer, capacity);
    return true;
  });
  FAKE_NUMBER(avf_grab_bgra, true);
  OnFreshThread([] {
    const RgbaGrab grab = GrabForRgba(0, 960, 540);
    ASSERT_EQ(grab.result, 0);
    EXPECT_EQ(grab.sourceBytesPerRow, 6);
    EXPECT_EQ(WriteToExactBuffer(grab),
              (Bytes{1, 2, 3, 255, 4, 5, 6, 255, 12, 13, 14, 255, 15, 16, 17, 255}));
  });
  EXPECT_EQ(CallsOf("avf_grab_rgb"), (Strings{"avf_grab_rgb(0,ptr,22)"}));

  Use(BackendKind::DirectShow);
  EXPECT_EQ(GrabForRgba(0, 960, 540).sourceBytesPerRow, -1);
  EXPECT_EQ(GrabForRgba(0, 960, 540).result, -10);
  FAKE_NUMBER(cdshow_frame_width, 2);
  FAKE_NUMBER(cdshow_frame_height, 1);
  EXPECT_EQ(GrabForRgba(0, 960, 540).sourceBytesPerRow, 6);
  EXPECT_EQ(GrabForRgba(0, 960, 540).result, -6);
  FAKE_ENTRY(cdshow_grab_frame, GrabCounting);
  OnFreshThread([] {
    const RgbaGrab grab = GrabForRgba(0, 960, 540);
    ASSERT_EQ(grab.result, 0);
    EXPECT_EQ(WriteToExactBuffer(grab), (Bytes{3, 2, 1, 255, 7, 6, 5, 255}));
  });
}

int GrabAvf(GuardedBuffer& out) {
  return g_camera.GrabAvfFrameRgb(0, out.data(), static_cast<int>(out.size()));
}

TEST_F(AvfFrameRgb, RefusesInOrder) {
  Use(BackendKind::AvFoundation);
  GuardedBuffer out(12);
  EXPECT_EQ(GrabAvf(out), -6);
  FAKE_NUMBER(avf_grab_rgb, true);
  EXPECT_EQ(GrabAvf(out), -10);
  SetAvfSize(2, 0);
  EXPECT_EQ(GrabAvf(out), -10);
  SetAvfSize(0, 2);
  EXPECT_EQ(GrabAvf(out), -10);
  SetAvfSize(715827883, 1);
  EXPECT_EQ(GrabAvf(out), -10);
  SetAvfSize(2, 2);
  EXPECT_EQ(g_camera.GrabAvfFrameRgb(0, nullptr, 12), -10);
  EXPECT_EQ(g_camera.GrabAvfFrameRgb(0, out.data(), 11), -11);
  EXPECT_EQ(g_camera.GrabAvfFrameRgb(0, out.data(), -1), -11);
  EXPECT_TRUE(CallsOf("avf_grab_rgb").empty());
  FAKE_NUMBER(avf_grab_rgb, false);
  EXPECT_EQ(GrabAvf(out), -8);
  FAKE_NUMBER(avf_grab_rgb, true);
  EXPECT_EQ(GrabAvf(out), 0);
}

TEST_F(AvfFrameRgb, IsForAvFoundationAlone) {
  FAKE_NUMBER(avf_grab_rgb, true);
  SetAvfSize(2, 2);
  Use(BackendKind::DirectShow);
  GuardedBuffer out(12);
  EXPECT_EQ(GrabAvf(out), -6);
}

TEST_F(AvfFrameRgb, RefusesSizesBeyondInt32) {
  FAKE_NUMBER(avf_grab_rgb, true);
  std::uint8_t byte = 0;
  SetAvfSize(65536, 65536);
  EXPECT_EQ(g_camera.GrabAvfFrameRgb(0, &byte, kMaxInt), -11);
  SetAvfSize(1, 2);
  FAKE_NUMBER(avf_frame_bytes_per_row, kMaxInt);
  EXPECT_EQ(g_camera.GrabAvfFrameRgb(0, &byte, kMaxInt), -11);
  EXPECT_TRUE(CallsOf("avf_grab_rgb").empty());
}

TEST_F(AvfFrameRgb, CopiesTightRowsWhateverTheBackendsStride) {
  SetAvfSize(2, 3);
  FAKE_ENTRY(avf_grab_rgb, [](int, void* buffer, int capacity) {
    FillCounting(buffer, capacity);
    return true;
  });
  struct Case {
    int stride;
    int told;
    Bytes rowStarts;
  };
  for (const Case& item : {Case{9, 27, {1, 10, 19}}, Case{6, 18, {1, 7, 13}},
                           Case{5, 18, {1, 7, 13}}, Case{-3, 18, {1, 7, 13}}}) {
    FAKE_NUMBER(avf_frame_bytes_per_row, item.stride);
    OnFreshThread([&item] {
      GuardedBuffer out(18);
      ASSERT_EQ(GrabAvf(out), 0);
      Bytes expected;
      for (const int start : item.rowStarts) {
        for (int i = 0; i < 6; ++i) {
          expected.push_back(static_cast<std::uint8_t>(start + i));
        }
      }
      EXPECT_EQ(Bytes(out.data(), out.data() + 18), expected);
    });
    EXPECT_EQ(CallsOf("avf_grab_rgb").back(),
              "avf_grab_rgb(0,ptr," + std::to_string(item.told) + ")");
  }
}

TEST_F(AvfFrameRgb, WithoutARowEntryRowsAreTight) {
  SetAvfSize(2, 2);
  FAKE_NUMBER(avf_grab_rgb, true);
  GuardedBuffer out(12);
  EXPECT_EQ(GrabAvf(out), 0);
  EXPECT_EQ(CallsOf("avf_grab_rgb"), (Strings{"avf_grab_rgb(0,ptr,12)"}));
}

TEST_F(AvfFrameRgb, LeavesTheRestOfALargerBufferAlone) {
  SetAvfSize(1, 1);
  FAKE_ENTRY(avf_grab_rgb, [](int, void* buffer, int capacity) {
    FillCounting(buffer, capacity);
    return true;
  });
  GuardedBuffer out(5);
  EXPECT_EQ(GrabAvf(out), 0);
  EXPECT_EQ(Bytes(out.data(), out.data() + 5), (Bytes{1, 2, 3, 0, 0}));
}

TEST_F(AvfFrameRgb, RunsOnSeveralThreadsAtOnce) {
  SetAvfSize(64, 48);
  FAKE_NUMBER(avf_frame_bytes_per_row, 200);
  FAKE_ENTRY(avf_grab_rgb, [](int device, void* buffer, int capacity) {
    std::memset(buffer, device, static_cast<std::size_t>(capacity));
    return true;
  });
  std::vector<std::thread> threads;
  for (int device = 1; device <= 4; ++device) {
    threads.emplace_back([device] {
      Bytes out(64 * 48 * 3);
      for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(g_camera.GrabAvfFrameRgb(device, out.data(), static_cast<int>(out.size())), 0);
        EXPECT_EQ(out, Bytes(out.size(), static_cast<std::uint8_t>(device)));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
}  // namespace ostrel_native
