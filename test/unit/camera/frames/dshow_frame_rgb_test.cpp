#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fake_library.h"
#include "unit/support/fake_camera.h"
#include "unit/support/guarded_buffer.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;
using Bytes = std::vector<std::uint8_t>;
using Strings = std::vector<std::string>;

constexpr int kMaxInt = std::numeric_limits<int>::max();

// What a test says of its frame; an answer of -1 for a plane or a size is the entry's answer.
struct Frame {
  CameraPixelFormat format = CameraPixelFormat::Bgra;
  int width = 0;
  int height = 0;
  int stride = 0;
  int dataSize = 0;
  int chromaOffset = 0;
  int chromaStride = 0;
};

struct DshowFrameRgb : FakeCameraTest {
  DshowFrameRgb() { Use(BackendKind::DirectShow); }
  ~DshowFrameRgb() override { UnloadTurboJpeg(); }

  static void Describe(const Frame& frame) {
    FAKE_NUMBER(cdshow_frame_width, frame.width);
    FAKE_NUMBER(cdshow_frame_height, frame.height);
    FAKE_NUMBER(cdshow_frame_pixel_format, static_cast<int>(frame.format));
    FAKE_NUMBER(cdshow_frame_data_size, frame.dataSize);
    FAKE_ENTRY(cdshow_frame_plane_offset,
               [frame](int, int plane) { return plane == 0 ? 0 : frame.chromaOffset; });
    FAKE_ENTRY(cdshow_frame_plane_stride,
               [frame](int, int plane) { return plane == 0 ? frame.stride : frame.chromaStride; });
  }

  // The grab writes `bytes`, cut to the capacity.
  static void Deliver(Bytes bytes) {
    FAKE_ENTRY(cdshow_grab_frame, [bytes = std::move(bytes)](int, void* buffer, int capacity) {
      const std::size_t size = std::min(bytes.size(), static_cast<std::size_t>(capacity));
      std::memcpy(buffer, bytes.data(), size);
      return 0;
    });
  }

  static int Grab(GuardedBuffer& out) {
    return g_camera.GrabCdshowFrameRgb(0, out.data(), static_cast<int>(out.size()));
  }

  // Grabs `frame` into a buffer of exactly its size, on a thread whose scratch memory is exactly
  // that of this grab. -1 as a single byte stands for a failed grab.
  static Bytes Convert(const Frame& frame, const Bytes& bytes) {
    Describe(frame);
    Deliver(bytes);
    Bytes rgb;
    std::thread([&] {
      GuardedBuffer out(static_cast<std::size_t>(frame.width) *
                        static_cast<std::size_t>(frame.height) * 3);
      EXPECT_EQ(Grab(out), 0);
      rgb.assign(out.data(), out.data() + out.size());
    }).join();
    return rgb;
  }

  static int Result(const Frame& frame) {
    Describe(frame);
    GuardedBuffer out(4096);
    return Grab(out);
  }

  static Strings Grabs() {
    Strings grabs;
    for (const std::string& call : Calls()) {
      if (call.rfind("cdshow_grab_frame(", 0) == 0) {
        grabs.push_back(call);
      }
    }
    return grabs;
  }
};

Frame Bgra(int width, int height, int stride, int dataSize) {
  return {.format = CameraPixelFormat::Bgra,
          .width = width,
          .height = height,
          .stride = stride,
          .dataSize = dataSize};
}

Frame Yuy2(int width, int height, int stride, int dataSize) {
  Frame frame = Bgra(width, height, stride, dataSize);
  frame.format = CameraPixelFormat::Yuy2;
  return frame;
}

Frame Nv12(int width, int height, int stride, int chromaOffset, int chromaStride, int dataSize) {
  return {.format = CameraPixelFormat::Nv12,
          .width = width,
          .height = height,
          .stride = stride,
          .dataSize = dataSize,
          .chromaOffset = chromaOffset,
          .chromaStride = chromaStride};
}

// One pixel by the formulas, in another shape than the code's.
Bytes RgbOf(int y, int u, int v, bool is709) {
  const double luma = 298.0 * std::max(y - 16, 0) + 128.0;
  const double d = u - 128.0;
  const double e = v - 128.0;
  const auto toByte = [](double scaled) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(scaled / 256.0), 0.0, 255.0));
  };
  return is709 ? Bytes{toByte(luma + 459 * e), toByte(luma - 55 * d - 136 * e),
                       toByte(luma + 541 * d)}
               : Bytes{toByte(luma + 409 * e), toByte(luma - 100 * d - 208 * e),
                       toByte(luma + 516 * d)};
}

TEST_F(DshowFrameRgb, WithoutTheGrabEntryIsMinusSixBeforeAnythingElse) {
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, nullptr, 0), -6);
}

TEST_F(DshowFrameRgb, IsForDirectShowAlone) {
  Describe(Bgra(1, 1, 4, 4));
  Deliver({1, 2, 3, 4});
  GuardedBuffer out(3);
  EXPECT_EQ(Grab(out), 0);
  for (const BackendKind kind :
       {BackendKind::None, BackendKind::Linux, BackendKind::AvFoundation}) {
    Use(kind);
    EXPECT_EQ(Grab(out), -6);
  }
}

TEST_F(DshowFrameRgb, WithoutABufferOrASizeIsMinusTen) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  Describe(Bgra(1, 1, 4, 4));
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, nullptr, 3), -10);
  EXPECT_EQ(Result(Bgra(0, 1, 4, 4)), -10);
  EXPECT_EQ(Result(Bgra(1, 0, 4, 4)), -10);
  EXPECT_EQ(Result(Bgra(-1, -1, 4, 4)), -10);
  EXPECT_EQ(Result(Bgra(715827883, 1, 4, 4)), -10);
  EXPECT_TRUE(Grabs().empty());
}

TEST_F(DshowFrameRgb, WithoutDataOrRoomIsMinusEleven) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  Describe(Bgra(2, 2, 8, 16));
  std::uint8_t out[12];
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, out, 11), -11);
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, out, -1), -11);
  Frame jpeg = Bgra(2, 2, 8, 0);
  jpeg.format = CameraPixelFormat::Mjpeg;
  EXPECT_EQ(Result(jpeg), -11);
  Describe(Bgra(65536, 65536, 262144, 16));
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, out, kMaxInt), -11);
  EXPECT_TRUE(Grabs().empty());
  Describe(Bgra(2, 2, 8, 16));
  EXPECT_EQ(g_camera.GrabCdshowFrameRgb(0, out, 12), 0);
}

TEST_F(DshowFrameRgb, TellsTheBackendItsDataSize) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Bgra(2, 2, 8, 5)), 0);
  EXPECT_EQ(Result(Bgra(2, 2, 8, 16)), 0);
  EXPECT_EQ(Grabs(), (Strings{"cdshow_grab_frame(0,ptr,5)", "cdshow_grab_frame(0,ptr,16)"}));
}

TEST_F(DshowFrameRgb, PassesTheGrabsCodeThrough) {
  for (const int code : {-7, -11, 2}) {
    FAKE_NUMBER(cdshow_grab_frame, code);
    EXPECT_EQ(Result(Bgra(2, 2, 8, 16)), code);
  }
}

TEST_F(DshowFrameRgb, LayoutsThatItCannotConvertAreUnsupportedBehindTheGrab) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  for (const int code : {0, 5, 6, 7, 8, -1}) {
    Frame frame = Bgra(2, 2, 8, 16);
    frame.format = static_cast<CameraPixelFormat>(code);
    EXPECT_EQ(Result(frame), -13) << code;
    frame.stride = 0;
    EXPECT_EQ(Result(frame), -11) << code;
  }
  EXPECT_EQ(Grabs().size(), 12U);
}

TEST_F(DshowFrameRgb, BgraBecomesRgbWithoutAlpha) {
  EXPECT_EQ(
      Convert(Bgra(2, 2, 9, 18), {1, 2, 3, 4, 5, 6, 7, 8, 99, 11, 12, 13, 14, 15, 16, 17, 18}),
      (Bytes{3, 2, 1, 7, 6, 5, 13, 12, 11, 17, 16, 15}));
}

TEST_F(DshowFrameRgb, WithoutEntriesTheFrameIsTightBgra) {
  FAKE_NUMBER(cdshow_frame_width, 1);
  FAKE_NUMBER(cdshow_frame_height, 2);
  Deliver({1, 2, 3, 4, 5, 6, 7, 8});
  GuardedBuffer out(6);
  EXPECT_EQ(Grab(out), 0);
  EXPECT_EQ(Bytes(out.data(), out.data() + 6), (Bytes{3, 2, 1, 7, 6, 5}));
  EXPECT_EQ(Grabs(), (Strings{"cdshow_grab_frame(0,ptr,8)"}));
}

TEST_F(DshowFrameRgb, BgraRowsMustHoldTheirPixels) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Bgra(2, 2, 8, 16)), 0);
  EXPECT_EQ(Result(Bgra(2, 2, 7, 16)), -11);
  EXPECT_EQ(Result(Bgra(2, 2, 0, 16)), -11);
  EXPECT_EQ(Result(Bgra(2, 2, -8, 16)), -11);
}

TEST_F(DshowFrameRgb, RowsBehindTheDataAreBlack) {
  // A larger frame first, on the same thread: what it left must not show.
  Bytes rgb;
  std::thread([&rgb] {
    Describe(Bgra(4, 4, 16, 64));
    Deliver(Bytes(64, 0xEE));
    GuardedBuffer large(48);
    EXPECT_EQ(Grab(large), 0);
    Describe(Bgra(2, 3, 8, 10));
    Deliver({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    GuardedBuffer out(18);
    EXPECT_EQ(Grab(out), 0);
    rgb.assign(out.data(), out.data() + 18);
  }).join();
  EXPECT_EQ(rgb, (Bytes{3, 2, 1, 7, 6, 5, 0, 10, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(DshowFrameRgb, NoReadLeavesTheScratchOfAFrameThatClaimsMoreThanItHas) {
  for (int dataSize = 1; dataSize <= 40; ++dataSize) {
    EXPECT_EQ(Convert(Bgra(2, 3, 11, dataSize), Bytes(64, 7)).size(), 18U);
    EXPECT_EQ(Convert(Yuy2(4, 3, 11, dataSize), Bytes(64, 7)).size(), 36U);
  }
}

TEST_F(DshowFrameRgb, RowsBeyondInt32AreRefused) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Bgra(1, 2, kMaxInt, 16)), -11);
  EXPECT_EQ(Result(Bgra(1, 3, 1 << 30, 16)), -11);
  EXPECT_EQ(Result(Yuy2(2, 3, 1 << 30, 16)), -11);
}

TEST_F(DshowFrameRgb, Yuy2GivesTwoPixelsOutOfFourBytes) {
  // 81, 90, 240 is the red of video levels.
  EXPECT_EQ(Convert(Yuy2(2, 2, 5, 9), {81, 90, 235, 240, 99, 16, 128, 235, 128}),
            (Bytes{255, 0, 0, 255, 179, 178, 0, 0, 0, 255, 255, 255}));
}

TEST_F(DshowFrameRgb, Yuy2MustBeEvenAndItsRowsHoldTheirPixels) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Yuy2(4, 3, 8, 24)), 0);
  EXPECT_EQ(Result(Yuy2(3, 3, 8, 24)), -11);
  EXPECT_EQ(Result(Yuy2(4, 3, 7, 24)), -11);
}

TEST_F(DshowFrameRgb, YuvFollowsItsFormulasForEveryByte) {
  for (int y = 0; y < 256; y += 5) {
    for (int u = 0; u < 256; u += 15) {
      Bytes bytes;
      Bytes expected;
      for (int v = 0; v < 256; v += 15) {
        const auto luma = static_cast<std::uint8_t>(y);
        bytes.insert(bytes.end(),
                     {luma, static_cast<std::uint8_t>(u), luma, static_cast<std::uint8_t>(v)});
        const Bytes pixel = RgbOf(y, u, v, false);
        expected.insert(expected.end(), pixel.begin(), pixel.end());
        expected.insert(expected.end(), pixel.begin(), pixel.end());
      }
      const int width = static_cast<int>(bytes.size()) / 2;
      ASSERT_EQ(Convert(Yuy2(width, 1, 2 * width, 2 * width), bytes), expected) << y << " " << u;
    }
  }
}

TEST_F(DshowFrameRgb, LargeFramesTakeTheMatrixOfHighDefinition) {
  struct Case {
    int width, height;
    bool is709;
  };
  for (const Case& item :
       {Case{1278, 1, false}, Case{1280, 1, true}, Case{2, 576, false}, Case{2, 577, true}}) {
    const Bytes row = [&item] {
      Bytes bytes;
      for (int x = 0; x < item.width; x += 2) {
        bytes.insert(bytes.end(), {81, 90, 81, 240});
      }
      return bytes;
    }();
    Bytes bytes;
    for (int y = 0; y < item.height; ++y) {
      bytes.insert(bytes.end(), row.begin(), row.end());
    }
    const int stride = 2 * item.width;
    const Bytes rgb = Convert(Yuy2(item.width, item.height, stride, stride * item.height), bytes);
    const Bytes expected = item.is709 ? Bytes{255, 24, 0} : Bytes{255, 0, 0};
    EXPECT_EQ(Bytes(rgb.begin(), rgb.begin() + 3), expected) << item.width << " " << item.height;
    EXPECT_EQ(Bytes(rgb.end() - 3, rgb.end()), expected) << item.width << " " << item.height;
  }
}

TEST_F(DshowFrameRgb, Nv12SharesChromaAmongFourPixels) {
  // Luma rows of 5, a gap of 3 bytes, chroma rows of 6.
  Bytes bytes(35, 0xEE);
  const Bytes luma = {30, 60, 90, 120, 40, 70, 100, 130, 50, 80, 110, 140, 55, 85, 115, 145};
  const Bytes chroma = {100, 150, 110, 160, 120, 170, 130, 180};
  for (std::size_t row = 0; row < 4; ++row) {
    std::copy_n(luma.begin() + static_cast<std::ptrdiff_t>(4 * row), 4,
                bytes.begin() + static_cast<std::ptrdiff_t>(5 * row));
  }
  std::copy_n(chroma.begin(), 4, bytes.begin() + 23);
  std::copy_n(chroma.begin() + 4, 4, bytes.begin() + 29);
  Bytes expected;
  for (std::size_t y = 0; y < 4; ++y) {
    for (std::size_t x = 0; x < 4; ++x) {
      const std::size_t at = y / 2 * 4 + x / 2 * 2;
      const Bytes pixel = RgbOf(luma[4 * y + x], chroma[at], chroma[at + 1], false);
      expected.insert(expected.end(), pixel.begin(), pixel.end());
    }
  }
  EXPECT_EQ(Convert(Nv12(4, 4, 5, 23, 6, 35), bytes), expected);
}

TEST_F(DshowFrameRgb, Nv12PlanesMustLieWithinTheData) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 16, 4, 24)), 0);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 16, 4, 23)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 15, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 17, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 3, 16, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 16, 3, 24)), -11);
  EXPECT_EQ(Result(Nv12(3, 4, 4, 16, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 3, 4, 16, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 0, 16, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, -1, 4, 24)), -11);
}

TEST_F(DshowFrameRgb, Nv12SizesWhoseProductsExceedInt32AreRefused) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  // 4 times 2^30 and twice 2^31 - 4 wrap to small numbers in 32 bits.
  EXPECT_EQ(Result(Nv12(4, 4, 1 << 30, 16, 4, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, 16, kMaxInt - 3, 24)), -11);
  EXPECT_EQ(Result(Nv12(4, 4, 4, kMaxInt, kMaxInt, 24)), -11);
}

TEST_F(DshowFrameRgb, Nv12WithoutPlaneEntriesHasNoChromaPlane) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  Describe(Nv12(4, 4, 4, 16, 4, 24));
  g_camera.cdshow_frame_plane_offset = nullptr;
  GuardedBuffer out(48);
  EXPECT_EQ(Grab(out), -11);
  Describe(Nv12(4, 4, 4, 16, 4, 24));
  g_camera.cdshow_frame_plane_stride = nullptr;
  EXPECT_EQ(Grab(out), -11);
}

struct DshowJpegTest : DshowFrameRgb {
  static Frame Jpeg(int width, int height, int dataSize) {
    Frame frame = Bgra(width, height, 0, dataSize);
    frame.format = CameraPixelFormat::Mjpeg;
    return frame;
  }

  // The second answer is of the frame that was grabbed, the first of the one before.
  static void SetDataSizes(int first, int second) {
    FAKE_ENTRY(cdshow_frame_data_size,
               [first, second, asked = 0](int) mutable { return asked++ == 0 ? first : second; });
  }
};

using DshowJpeg = DshowJpegTest;

TEST_F(DshowJpeg, WithoutTurboJpegIsUnsupportedBehindTheGrab) {
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Jpeg(2, 2, 5)), -13);
  EXPECT_EQ(Grabs().size(), 1U);
}

TEST_F(DshowJpeg, IsDecodedToPackedRgb) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  const Bytes jpeg = SampleJpeg(24, 16, TJSAMP_444);
  const Bytes rgb = Convert(Jpeg(24, 16, static_cast<int>(jpeg.size())), jpeg);
  Bytes expected(24 * 16 * 3);
  const tjhandle handle = TURBOJPEG(tjInitDecompress)();
  TURBOJPEG(tjDecompress2)
  (handle, jpeg.data(), jpeg.size(), expected.data(), 24, 72, 16, TJPF_RGB, TJFLAG_FASTDCT);
  TURBOJPEG(tjDestroy)(handle);
  EXPECT_EQ(rgb, expected);
}

TEST_F(DshowJpeg, ThatIsBrokenIsAFailedFrame) {
  ASSERT_TRUE(g_turboJpeg.Load(kTurboJpegName));
  const Bytes jpeg = SampleJpeg(24, 16, TJSAMP_420);
  Deliver(Bytes(jpeg.begin(), jpeg.end() - 50));
  EXPECT_EQ(Result(Jpeg(24, 16, static_cast<int>(jpeg.size()) - 50)), -8);
  Deliver(Bytes(100, 0x42));
  EXPECT_EQ(Result(Jpeg(24, 16, 100)), -8);
}

TEST_F(DshowJpeg, IsGivenAtLeastTheRoomOfAPicture) {
  ASSERT_TRUE(g_turboJpeg.Load(FakePath("libturbojpeg.so")));
  const FakeLibrary library(FakePath("libturbojpeg.so"));
  library.Send("reset");
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Jpeg(2, 2, 5)), 0);
  EXPECT_EQ(Result(Jpeg(2, 2, 500)), 0);
  EXPECT_EQ(Grabs(), (Strings{"cdshow_grab_frame(0,ptr,12)", "cdshow_grab_frame(0,ptr,500)"}));
  EXPECT_EQ(library.CallOrder(), (Strings{"tjInitDecompress", "tjDecompress2", "tjDestroy",
                                          "tjInitDecompress", "tjDecompress2", "tjDestroy"}));
}

TEST_F(DshowJpeg, ItsSizeIsAskedAgainBehindTheGrab) {
  ASSERT_TRUE(g_turboJpeg.Load(FakePath("libturbojpeg.so")));
  const FakeLibrary library(FakePath("libturbojpeg.so"));
  library.Send("reset");
  FAKE_NUMBER(cdshow_grab_frame, 0);
  GuardedBuffer out(12);
  struct Case {
    int second;
    int result;
  };
  // The scratch holds 20: what is larger was never grabbed whole.
  for (const Case& item : {Case{20, 0}, Case{1, 0}, Case{21, -11}, Case{0, -11}, Case{-1, -11}}) {
    Describe(Jpeg(2, 2, 20));
    SetDataSizes(20, item.second);
    EXPECT_EQ(Grab(out), item.result) << item.second;
  }
  const auto decodes = library.Calls("tjDecompress2");
  ASSERT_EQ(decodes.size(), 2U);
  EXPECT_EQ(decodes[0].arguments[2], "20");
  EXPECT_EQ(decodes[1].arguments[2], "1");
}

TEST_F(DshowJpeg, WithoutADecompressorOrADecodeIsAFailedFrame) {
  ASSERT_TRUE(g_turboJpeg.Load(FakePath("libturbojpeg.so")));
  const FakeLibrary library(FakePath("libturbojpeg.so"));
  library.Send("reset\ndefault tjInitDecompress 0");
  FAKE_NUMBER(cdshow_grab_frame, 0);
  EXPECT_EQ(Result(Jpeg(2, 2, 5)), -8);
  EXPECT_EQ(library.CallOrder(), (Strings{"tjInitDecompress"}));
  library.Send("reset\ndefault tjDecompress2 -1");
  EXPECT_EQ(Result(Jpeg(2, 2, 5)), -8);
  EXPECT_EQ(library.CallOrder(), (Strings{"tjInitDecompress", "tjDecompress2", "tjDestroy"}));
}

}  // namespace
}  // namespace ostrel_native
