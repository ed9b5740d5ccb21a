// What the direct mode costs a frame: the callback against a plain memcpy of the same bytes, and
// the decoding worker against a bare loop over the same decoder and the same data.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/frames/jpeg_decode.h"
#include "camera/frames/turbojpeg_runtime.h"
#include "camera/preview/camera_preview.h"
#include "camera/preview/direct/direct_delivery.h"
#include "camera/preview/direct/direct_plan.h"
#include "harness.h"
#include "unit/support/allocation_spy.h"
#include "unit/support/jpeg_samples.h"

namespace ostrel_native {

namespace {

constexpr int kDevice = 0;
constexpr int kSlots = CameraPreviewProducer::kBufferCount;

using Bytes = std::vector<std::uint8_t>;

struct Size {
  int width;
  int height;
};

// A benchmark that can't run has no figures.
void Check(bool holds) {
  if (!holds) {
    std::fprintf(stderr, "direct_bench: a preview did not start or libturbojpeg.so.0 is missing\n");
    std::exit(1);
  }
}

// What the backend answers; C functions have no other place for it.
struct Backend {
  std::atomic<int> width{0};  // 0, once a preview runs, keeps its worker from taking stills
  std::atomic<int> height{0};
  std::atomic<CameraPixelFormat> format{CameraPixelFormat::Bgra};
};
Backend g_backend;

void InstallBackend(const Size& size, CameraPixelFormat format) {
  g_backend.width = size.width;
  g_backend.height = size.height;
  g_backend.format = format;
  g_camera.cdshow_frame_width = [](int) { return g_backend.width.load(); };
  g_camera.cdshow_frame_height = [](int) { return g_backend.height.load(); };
  g_camera.cdshow_frame_pixel_format = [](int) {
    return static_cast<int>(g_backend.format.load());
  };
  g_camera.cdshow_set_frame_callback = [](int, DirectFrameCallbackFn, void*, int) { return 0; };
  g_camera.kind = BackendKind::DirectShow;
}

// A direct preview into memory of the benchmark's own.
struct DirectPreview {
  DirectPreview(const Size& size, CameraPixelFormat format) {
    InstallBackend(size, format);
    DirectPlan plan;
    Check(producer.PrepareDirect(kDevice, size.width, size.height, 30, plan) == kResultOk);
    LentSlot lent[kSlots];
    for (int slot = 0; slot < kSlots; ++slot) {
      slots[slot].resize(plan.bytes);
      lent[slot] = {.isByteArray = true, .data = slots[slot].data(), .bytes = plan.bytes};
    }
    Check(producer.StartDirect(plan, lent) == kResultOk);
    g_backend.width = 0;
  }
  ~DirectPreview() { producer.Stop(-1); }

  void Fire(const Bytes& frame, bool flipped = false) {
    DirectFrameCallback(kDevice, frame.data(), frame.size(), flipped, &producer);
  }
  void FreeSlots() { producer.ReleaseAllDirectSlots(kDevice); }

  Bytes slots[kSlots];
  CameraPreviewProducer producer;
};

Bytes FrameOf(std::size_t bytes) {
  Bytes frame(bytes);
  for (std::size_t i = 0; i < bytes; ++i) {
    frame[i] = static_cast<std::uint8_t>(i * 31 + i / 977);
  }
  return frame;
}

constexpr int kFramesPerRun = 30;

// Both contenders write into the same three buffers in turns, from the same frame.
void ReportCallback(const char* name, const Size& size, bool flipped) {
  DirectPreview preview(size, CameraPixelFormat::Bgra);
  const std::size_t bytes = preview.slots[0].size();
  const Bytes frame = FrameOf(bytes);
  const bench::Comparison result = bench::Compare(
      [&] {
        for (int i = 0; i < kFramesPerRun; ++i) {
          preview.Fire(frame, flipped);
          preview.FreeSlots();
        }
      },
      [&] {
        for (int i = 0; i < kFramesPerRun; ++i) {
          std::memcpy(preview.slots[i % kSlots].data(), frame.data(), bytes);
        }
      });
  const double picoseconds = 1e12 / kFramesPerRun / static_cast<double>(bytes);
  std::printf("%-22s %12.1f %12.1f %10.3f\n", name, result.ours * picoseconds,
              result.theirs * picoseconds, 1.0 / result.ratio);
}

void ReportCallbacks() {
  std::printf(
      "Callback, 4 bytes a pixel, the frame in memory; picoseconds a byte. memcpy: the same\n"
      "bytes to the same three buffers in turns.\n");
  std::printf("%-22s %12s %12s %10s\n", "frame", "callback ps", "memcpy ps", "ratio");
  ReportCallback("3840x2160", {3840, 2160}, false);
  ReportCallback("1920x1080", {1920, 1080}, false);
  ReportCallback("640x480", {640, 480}, false);
  ReportCallback("1920x1080, flipped", {1920, 1080}, true);
}

// What the worker decodes: one JPEG that waits again as soon as it has been taken. Set before the
// worker runs, on the thread that runs it.
struct JpegFeed {
  DirectPreview* preview = nullptr;
  const Bytes* jpeg = nullptr;
  int framesLeft = 0;
  decltype(&::tjDecompressToYUVPlanes) decode = nullptr;
  decltype(&::tjDecompress2) decodeStill = nullptr;
};
JpegFeed g_feed;

// Stills are no part of the comparison: a short run would weigh one as much as a long one.
int SkipStill(tjhandle, const unsigned char*, unsigned long, unsigned char*, int, int, int, int,
              int) {
  return 0;
}

int DecodeAndFeed(tjhandle handle, const unsigned char* jpeg, unsigned long size,
                  unsigned char** planes, int width, int* strides, int height, int flags) {
  const int result = g_feed.decode(handle, jpeg, size, planes, width, strides, height, flags);
  CameraPreviewProducer& producer = g_feed.preview->producer;
  g_feed.preview->FreeSlots();
  {
    const std::lock_guard<std::mutex> lock(producer.sharedMutex);
    if (producer.encodedPending.empty()) {  // only while the worker's vectors are new
      producer.encodedPending = *g_feed.jpeg;
    }
    producer.encodedPendingFlag = true;
    ++producer.encodedPendingSequence;
  }
  if (--g_feed.framesLeft == 0) {
    producer.running = false;
  }
  return result;
}

// Ends the preview's own worker and readies the preview for one on the calling thread.
void TakeOver(DirectPreview& preview, const Bytes& jpeg) {
  CameraPreviewProducer& producer = preview.producer;
  producer.RequestStop();
  producer.worker.join();
  producer.encodedPending = jpeg;
  g_feed = {.preview = &preview,
            .jpeg = &jpeg,
            .framesLeft = 0,
            .decode = g_turboJpeg.tjDecompressToYUVPlanes,
            .decodeStill = g_turboJpeg.tjDecompress2};
  g_turboJpeg.tjDecompressToYUVPlanes = DecodeAndFeed;
  g_turboJpeg.tjDecompress2 = SkipStill;
}

void GiveBack() {
  g_turboJpeg.tjDecompressToYUVPlanes = g_feed.decode;
  g_turboJpeg.tjDecompress2 = g_feed.decodeStill;
}

// Milliseconds that the worker spends on a still, twice a second at most.
double StillMilliseconds(const Bytes& jpeg, const Size& size) {
  Bytes picture(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 3);
  const tjhandle decompressor = g_turboJpeg.tjInitDecompress();
  std::vector<double> seconds;
  for (int round = 0; round < bench::kRounds; ++round) {
    seconds.push_back(bench::ThreadSecondsOf(
        [&] {
          DecodeJpegToRgb(decompressor, jpeg.data(), jpeg.size(), picture.data(), size.width,
                          size.height);
        },
        1));
  }
  g_turboJpeg.tjDestroy(decompressor);
  return bench::Median(seconds) * 1e3;
}

void RunWorker(CameraPreviewProducer& producer, int frames) {
  g_feed.framesLeft = frames;
  producer.running = true;
  producer.encodedPendingFlag = true;
  producer.RunSharedMjpegLoop(producer.generation, kDevice);
}

// The same slots in turns, by the decoder alone. The chroma of other samplings than 4:2:0 lands in
// scratch memory, as the worker's does before it is resampled.
void DecodeBare(DirectPreview& preview, const Bytes& jpeg, const Size& size, int subsampling,
                Bytes& scratch, int frames) {
  const int chromaWidth = g_turboJpeg.tjPlaneWidth(1, size.width, subsampling);
  const auto chromaBytes =
      static_cast<std::size_t>(chromaWidth) *
      static_cast<std::size_t>(g_turboJpeg.tjPlaneHeight(1, size.height, subsampling));
  scratch.resize(2 * chromaBytes);
  const tjhandle decompressor = g_turboJpeg.tjInitDecompress();
  for (int frame = 0; frame < frames; ++frame) {
    std::uint8_t* const luma = preview.slots[frame % kSlots].data();
    std::uint8_t* const chroma =
        subsampling == TJSAMP_420
            ? luma + static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height)
            : scratch.data();
    std::uint8_t* planes[3] = {luma, chroma, chroma + chromaBytes};
    int strides[3] = {size.width, chromaWidth, chromaWidth};
    g_feed.decode(decompressor, jpeg.data(), jpeg.size(), planes, size.width, strides, size.height,
                  TJFLAG_FASTDCT);
  }
  g_turboJpeg.tjDestroy(decompressor);
}

// Smooth shapes under a little noise, as a camera sees them: the detail that a JPEG of 90 percent
// spends about two bits a pixel on.
Bytes CameraPicture(const Size& size) {
  std::minstd_rand random(7);
  Bytes rgb;
  rgb.reserve(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 3);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const double wave = std::sin(x * 0.05) * std::cos(y * 0.04);
      for (int channel = 0; channel < 3; ++channel) {
        const int noise = static_cast<int>(random() % 9);
        rgb.push_back(static_cast<std::uint8_t>(120 + 80 * wave * (1 - 0.3 * channel) + noise));
      }
    }
  }
  return rgb;
}

void ReportDecode(const char* name, const Size& size, int subsampling) {
  constexpr int kFrames = 60;
  const Bytes jpeg = JpegOf(CameraPicture(size), size.width, size.height, subsampling);
  DirectPreview preview(size, CameraPixelFormat::Mjpeg);
  TakeOver(preview, jpeg);
  Bytes scratch;
  const bench::Comparison result =
      bench::Compare([&] { RunWorker(preview.producer, kFrames); },
                     [&] { DecodeBare(preview, jpeg, size, subsampling, scratch, kFrames); });
  GiveBack();
  std::printf("%-22s %12.1f %12.1f %10.3f %10.2f\n", name, kFrames / result.ours,
              kFrames / result.theirs, result.ratio, StillMilliseconds(jpeg, size));
}

void ReportDecoding() {
  std::printf(
      "\nDecoding worker, without its stills; frames a second of processor time. bare: the "
      "decoder\n"
      "alone on the same JPEG. still: of the two that the worker takes a second.\n");
  std::printf("%-22s %12s %12s %10s %10s\n", "JPEG", "worker", "bare", "ratio", "still ms");
  ReportDecode("1920x1080 4:2:0", {1920, 1080}, TJSAMP_420);
  ReportDecode("640x480 4:2:0", {640, 480}, TJSAMP_420);
  ReportDecode("1920x1080 4:2:2", {1920, 1080}, TJSAMP_422);
  ReportDecode("1920x1080 4:4:4", {1920, 1080}, TJSAMP_444);
}

constexpr int kWarmUpFrames = 10;
constexpr int kCountedFrames = 2000;

void ReportAllocations() {
  const Size size = {640, 480};
  std::uint64_t callbackAllocations = 0;
  {
    DirectPreview preview(size, CameraPixelFormat::Bgra);
    const Bytes frame = FrameOf(preview.slots[0].size());
    for (int i = 0; i < kWarmUpFrames + kCountedFrames; ++i) {
      if (i == kWarmUpFrames) {
        callbackAllocations = test::Allocations();
      }
      preview.Fire(frame);
      preview.FreeSlots();
    }
    callbackAllocations = test::Allocations() - callbackAllocations;
  }
  // The real worker beside the callback: the JPEGs vary in size and its vectors change places.
  const Bytes jpegs[] = {SampleJpeg(size.width, size.height, TJSAMP_422),
                         SampleJpeg(size.width, size.height, TJSAMP_420)};
  DirectPreview preview(size, CameraPixelFormat::Mjpeg);
  CameraPreviewProducer& producer = preview.producer;
  const auto deliver = [&](int frame) {
    const std::uint64_t before = producer.producedFrames;
    preview.Fire(jpegs[frame % 2]);
    while (producer.producedFrames == before) {
      std::this_thread::yield();
    }
    preview.FreeSlots();
  };
  int frame = 0;
  // Until two stills have been taken, each in memory of its own that serves from then on.
  while (frame < kWarmUpFrames || producer.LatestQualityFrame(kDevice, 1).sequence < 2) {
    deliver(frame++);
  }
  const std::uint64_t before = test::Allocations();
  for (int counted = 0; counted < kCountedFrames; ++counted) {
    deliver(frame++);
  }
  std::printf("\nheap allocations in %d frames of the steady state: callback %llu, JPEG %llu\n",
              kCountedFrames, static_cast<unsigned long long>(callbackAllocations),
              static_cast<unsigned long long>(test::Allocations() - before));
}

}  // namespace

}  // namespace ostrel_native

int main() {
  ostrel_native::Check(ostrel_native::g_turboJpeg.Load(ostrel_native::kTurboJpegName));
  ostrel_native::ReportCallbacks();
  ostrel_native::ReportDecoding();
  ostrel_native::ReportAllocations();
  return 0;
}
