// What the preview worker costs a frame, against a plain memcpy of the bytes that it must move:
// the camera's frame into its scratch memory, and the preview out of it.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "camera/backend/camera_binding.h"
#include "camera/preview/camera_preview.h"
#include "harness.h"
#include "unit/support/allocation_spy.h"

namespace ostrel_native {

namespace {

struct Case {
  const char* name;
  int sourceWidth;
  int sourceHeight;
  int targetWidth;
  int targetHeight;
};

constexpr Case kCases[] = {
    {"1920x1080 to 960x540", 1920, 1080, 960, 540},  {"1920x1080 to 640x360", 1920, 1080, 640, 360},
    {"1920x1080 unreduced", 1920, 1080, 1920, 1080}, {"3840x2160 to 960x540", 3840, 2160, 960, 540},
    {"640x480 unreduced", 640, 480, 640, 480},
};

// The camera behind the worker: a frame in memory, copied at each grab. One at a time.
struct MemoryCamera {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> frame;
  int framesLeft = 0;
  int warmUpFrames = 0;
  std::uint64_t allocationsAtStart = 0;
  CameraPreviewProducer* producer = nullptr;
};
MemoryCamera g_memoryCamera;

int Grab(int, void* buffer, int capacity) {
  MemoryCamera& camera = g_memoryCamera;
  std::memcpy(buffer, camera.frame.data(), static_cast<std::size_t>(capacity));
  if (--camera.warmUpFrames == 0) {
    camera.allocationsAtStart = test::Allocations();
  }
  if (--camera.framesLeft == 0) {
    camera.producer->running = false;
  }
  return kResultOk;
}

void InstallCamera(const Case& size) {
  g_memoryCamera.width = size.sourceWidth;
  g_memoryCamera.height = size.sourceHeight;
  g_memoryCamera.frame.resize(static_cast<std::size_t>(size.sourceWidth) *
                              static_cast<std::size_t>(size.sourceHeight) * 3);
  for (std::size_t i = 0; i < g_memoryCamera.frame.size(); ++i) {
    g_memoryCamera.frame[i] = static_cast<std::uint8_t>(i * 31 + i / 977);
  }
  g_camera.cnokhwa_has_first_frame = [](int) { return 0; };
  g_camera.cnokhwa_frame_width = [](int) { return g_memoryCamera.width; };
  g_camera.cnokhwa_frame_height = [](int) { return g_memoryCamera.height; };
  g_camera.cnokhwa_frame_bytes_per_row = [](int) { return g_memoryCamera.width * 3; };
  g_camera.cnokhwa_grab_frame = Grab;
  g_camera.kind = BackendKind::Linux;
}

void Prepare(CameraPreviewProducer& producer, const Case& size) {
  producer.deviceIndex = 0;
  producer.bufferBytes = static_cast<std::uint64_t>(size.targetWidth) *
                         static_cast<std::uint64_t>(size.targetHeight) * 4;
  for (auto& buffer : producer.buffers) {
    buffer.assign(producer.bufferBytes, 0);
  }
  g_memoryCamera.producer = &producer;
}

// Runs the worker without a pace until it has grabbed `frames` frames. The last of them is
// grabbed, but not published.
void RunWorker(CameraPreviewProducer& producer, const Case& size, int frames) {
  g_memoryCamera.framesLeft = frames;
  producer.running = true;
  producer.RunLoop(producer.generation, 0, size.targetWidth, size.targetHeight, 0,
                   producer.bufferBytes);
}

// Frames a call of the worker: enough that its first plan and first still weigh nothing.
constexpr int kFramesPerRun = 100;

void Report(const Case& size) {
  InstallCamera(size);
  CameraPreviewProducer producer;
  Prepare(producer, size);
  std::vector<std::uint8_t> scratch(g_memoryCamera.frame.size());
  // The worker fills another buffer than the one published before, so its turns alternate.
  std::vector<std::uint8_t> previews[2] = {std::vector<std::uint8_t>(producer.bufferBytes),
                                           std::vector<std::uint8_t>(producer.bufferBytes)};
  const bench::Comparison result =
      bench::Compare([&] { RunWorker(producer, size, kFramesPerRun); },
                     [&] {
                       for (int frame = 0; frame < kFramesPerRun; ++frame) {
                         std::memcpy(scratch.data(), g_memoryCamera.frame.data(), scratch.size());
                         std::vector<std::uint8_t>& preview = previews[frame % 2];
                         std::memcpy(preview.data(), scratch.data(), preview.size());
                       }
                     });
  constexpr double kMicroseconds = 1e6 / kFramesPerRun;
  std::printf("%-24s %12.1f %12.1f %10.2f\n", size.name, result.ours * kMicroseconds,
              result.theirs * kMicroseconds, 1.0 / result.ratio);
}

// Frames before the counting begins: the vectors have reached their size by then. The still is
// taken with the first frame and refreshed within its own capacity.
constexpr int kWarmUpFrames = 10;
constexpr int kCountedFrames = 2000;

void ReportAllocations() {
  InstallCamera(kCases[0]);
  CameraPreviewProducer producer;
  Prepare(producer, kCases[0]);
  g_memoryCamera.warmUpFrames = kWarmUpFrames;
  RunWorker(producer, kCases[0], kWarmUpFrames + kCountedFrames);
  const std::uint64_t allocations = test::Allocations() - g_memoryCamera.allocationsAtStart;
  std::printf("\nheap allocations in %d frames of the steady state: %llu\n", kCountedFrames,
              static_cast<unsigned long long>(allocations));
}

}  // namespace

}  // namespace ostrel_native

int main() {
  std::printf("Preview worker, no pace, the camera's frame in memory; microseconds a frame.\n");
  std::printf("memcpy = the camera's frame once, then the preview's bytes once.\n");
  std::printf("%-24s %12s %12s %10s\n", "frame", "worker us", "memcpy us", "ratio");
  for (const ostrel_native::Case& size : ostrel_native::kCases) {
    ostrel_native::Report(size);
  }
  ostrel_native::ReportAllocations();
  return 0;
}
