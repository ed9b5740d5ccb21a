// Recording throughput at 1920 x 1080: our writer on libx264 against the ffmpeg command line with
// the same encoder and settings on the same frames.
//
// Both read raw NV12 from one file, which stays in the page cache, and both leave libx264's number
// of threads to itself. The command line may be of a later FFmpeg generation; the x264 library
// under both is the system's.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "harness.h"
#include "recording/video_recorder_linux.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {

namespace {

constexpr std::int32_t kWidth = 1920;
constexpr std::int32_t kHeight = 1080;
constexpr int kFramesInFile = 60;
constexpr int kPasses = 3;
constexpr int kFrames = kFramesInFile * kPasses;
constexpr int kFrameRate = 30;
constexpr std::int64_t kTicksPerFrame = 10'000'000 / kFrameRate;
constexpr int kTurns = 5;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;
constexpr std::size_t kFrameBytes = kPixels + kPixels / 2;

[[noreturn]] void Fail(const std::string& reason) {
  std::fprintf(stderr, "recording_bench: %s\n", reason.c_str());
  std::exit(1);
}

// Tissue under a moving stage: soft blobs with some grain, seen through a window that drifts.
struct Specimen {
  static constexpr std::size_t kSide = 2560;

  Specimen() : luma(kSide * kSide) {
    std::mt19937 random(1);
    constexpr std::size_t kCell = 16;
    constexpr std::size_t kCells = kSide / kCell + 1;
    std::vector<std::size_t> blobs(kCells * kCells);
    for (std::size_t& blob : blobs) {
      blob = 40 + random() % 150;
    }
    for (std::size_t y = 0; y < kSide; ++y) {
      for (std::size_t x = 0; x < kSide; ++x) {
        const std::size_t* const cell = &blobs[y / kCell * kCells + x / kCell];
        const std::size_t right = x % kCell;
        const std::size_t down = y % kCell;
        const std::size_t top = cell[0] * (kCell - right) + cell[1] * right;
        const std::size_t bottom = cell[kCells] * (kCell - right) + cell[kCells + 1] * right;
        const std::size_t soft = (top * (kCell - down) + bottom * down) / (kCell * kCell);
        luma[y * kSide + x] = static_cast<std::uint8_t>(soft + random() % 8);
      }
    }
  }

  // The window's picture as NV12, its chroma a slow ramp.
  std::vector<char> Picture(int number) const {
    const auto drift = static_cast<std::size_t>(number);
    std::vector<char> picture(kFrameBytes);
    for (std::size_t y = 0; y < kHeight; ++y) {
      const std::uint8_t* const row = &luma[(y + 2 * drift) * kSide + 3 * drift];
      std::copy(row, row + kWidth, picture.begin() + static_cast<std::ptrdiff_t>(y * kWidth));
    }
    for (std::size_t i = 0; i < kPixels / 2; ++i) {
      picture[kPixels + i] = static_cast<char>(100 + (i / kWidth + drift) % 56);
    }
    return picture;
  }

  std::vector<std::uint8_t> luma;
};

void WriteFrames(const std::string& path) {
  const Specimen specimen;
  std::ofstream file(path, std::ios::binary);
  for (int number = 0; number < kFramesInFile; ++number) {
    const std::vector<char> picture = specimen.Picture(number);
    file.write(picture.data(), static_cast<std::streamsize>(picture.size()));
  }
  if (!file.flush()) {
    Fail("the frames could not be written to " + path);
  }
}

void Require(const std::string& failure) {
  if (!failure.empty()) {
    Fail(failure);
  }
}

void RecordByOurs(const std::string& frames, const std::string& output) {
  const int file = open(frames.c_str(), O_RDONLY | O_CLOEXEC);
  VideoRecorder::Frame frame;
  frame.data.resize(kFrameBytes);
  frame.width = kWidth;
  frame.height = kHeight;
  frame.format = static_cast<std::int32_t>(CameraPixelFormat::Nv12);
  frame.planeStrides[0] = kWidth;

  const std::unique_ptr<VideoRecorder::Backend> backend = CreateLinuxBackend();
  Require(backend->Start(output, kWidth, kHeight, kFrameRate, 4'000'000));
  for (int number = 0; number < kFrames; ++number) {
    const auto offset = static_cast<off_t>(kFrameBytes) * (number % kFramesInFile);
    if (pread(file, frame.data.data(), kFrameBytes, offset) != static_cast<ssize_t>(kFrameBytes)) {
      Fail("the frames could not be read");
    }
    Require(backend->EncodeFrame(frame, number * kTicksPerFrame, kTicksPerFrame));
  }
  Require(backend->Finalize());
  close(file);
}

void RecordByCommandLine(const std::string& frames, const std::string& output) {
  const std::string command =
      "ffmpeg -nostdin -v error -y -f rawvideo -pixel_format nv12 -video_size 1920x1080 "
      "-framerate 30 -stream_loop " +
      std::to_string(kPasses - 1) + " -i '" + frames +
      "' -c:v libx264 -preset veryfast -tune zerolatency -b:v 4M -g 60 -bf 0 -profile:v main "
      "-pix_fmt nv12 -movflags +faststart '" +
      output + "'";
  if (std::system(command.c_str()) != 0) {
    Fail("the ffmpeg command line failed");
  }
}

// Of this process and of the command lines that have ended.
double ProcessorSeconds(int who) {
  rusage usage = {};
  getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Turn {
  double wall = 0;
  double processor = 0;
};

Turn Timed(int who, const std::function<void()>& recording) {
  const double before = ProcessorSeconds(who);
  const double wall = bench::SecondsOf(recording, 1);
  return {wall, ProcessorSeconds(who) - before};
}

double MedianOf(const std::vector<Turn>& turns, double Turn::*field) {
  std::vector<double> values;
  for (const Turn& turn : turns) {
    values.push_back(turn.*field);
  }
  return bench::Median(values);
}

double MedianRatio(const std::vector<Turn>& theirs, const std::vector<Turn>& ours,
                   double Turn::*field) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < ours.size(); ++i) {
    ratios.push_back(theirs[i].*field / ours[i].*field);
  }
  return bench::Median(ratios);
}

void Run() {
  setenv("OSTREL_FFMPEG_LIBRARY_DIR", OSTREL_BENCH_NATIVES_DIR, 0);
  setenv("OSTREL_FFMPEG_ENCODER", "libx264", 1);
  const TemporaryDirectory directory;
  const std::string frames = directory.File("frames.nv12");
  WriteFrames(frames);
  const auto ours = [&] { RecordByOurs(frames, directory.File("ours.mp4")); };
  const auto theirs = [&] { RecordByCommandLine(frames, directory.File("theirs.mp4")); };
  std::vector<Turn> ourTurns;
  std::vector<Turn> theirTurns;
  for (int turn = 0; turn < kTurns; ++turn) {
    ourTurns.push_back(Timed(RUSAGE_SELF, ours));
    theirTurns.push_back(Timed(RUSAGE_CHILDREN, theirs));
  }
  std::printf(
      "%-24s %12.1f %14.1f %8.2f\n", "frames a second", kFrames / MedianOf(ourTurns, &Turn::wall),
      kFrames / MedianOf(theirTurns, &Turn::wall), MedianRatio(theirTurns, ourTurns, &Turn::wall));
  std::printf("%-24s %12.1f %14.1f %8.2f\n", "frames a processor second",
              kFrames / MedianOf(ourTurns, &Turn::processor),
              kFrames / MedianOf(theirTurns, &Turn::processor),
              MedianRatio(theirTurns, ourTurns, &Turn::processor));
}

}  // namespace

}  // namespace ostrel_native

int main() {
  std::printf("Recording, 1920 x 1080 NV12, libx264 veryfast zerolatency, 4 Mbit/s, faststart\n");
  std::printf("%-24s %12s %14s %8s\n", "", "ours", "command line", "ratio");
  ostrel_native::Run();
  return 0;
}
