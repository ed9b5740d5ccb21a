// The fusion of focus stacks on one and on two threads, against the literal form of the same
// arithmetic.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <random>
#include <vector>

#include "edof/fusion.h"
#include "harness.h"
#include "reference/fuse_reference.h"

namespace ostrel_native {

namespace {

// Cells of a map for a pixel, in each direction.
constexpr int kPixelsPerCell = 8;
constexpr int kTurns = 5;

// Textured frames that differ, fields that differ a little from identity, and weights that change
// from cell to cell: all of a frame's pixels are warped but those of the outer half cells.
struct Stack {
  Stack(int stackWidth, int stackHeight, int count) : width(stackWidth), height(stackHeight) {
    std::mt19937 random(1);
    const int mapWidth = width / kPixelsPerCell;
    const int mapHeight = height / kPixelsPerCell;
    for (int i = 0; i < count; ++i) {
      std::vector<std::uint8_t>& rgba = pixels.emplace_back(4 * static_cast<std::size_t>(width) *
                                                            static_cast<std::size_t>(height));
      for (std::uint8_t& byte : rgba) {
        byte = static_cast<std::uint8_t>(random());
      }
      std::vector<float>& x = maps.emplace_back();
      std::vector<float>& y = maps.emplace_back();
      std::vector<float>& confidence = maps.emplace_back();
      std::vector<float>& weight = maps.emplace_back();
      for (int row = 0; row < mapHeight; ++row) {
        for (int column = 0; column < mapWidth; ++column) {
          x.push_back(static_cast<float>(column + 0.05 * std::sin(row + i)));
          y.push_back(static_cast<float>(row + 0.05 * std::cos(column + i)));
          confidence.push_back(0.9F);
          weight.push_back(0.001F + static_cast<float>(random() % 1000) / 1000.0F);
        }
      }
      frames.push_back({rgba.data(), 1.0 + 0.0005 * i});
      fields.push_back({mapWidth, mapHeight, x.data(), y.data(), confidence.data(), true});
      weights.push_back(weight.data());
    }
  }

  int Reference() const { return static_cast<int>(frames.size()) / 2; }
  double Pixels() const { return static_cast<double>(width) * height; }
  double PixelsOfAllFrames() const { return Pixels() * static_cast<double>(frames.size()); }

  std::vector<std::uint8_t> Fused(unsigned threads) const {
    return Fuse(width, height, Reference(), frames, fields, weights, threads,
                __builtin_cpu_supports("avx2") ? "avx2" : "sse2");
  }

  int width;
  int height;
  std::deque<std::vector<std::uint8_t>> pixels;
  std::deque<std::vector<float>> maps;
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;
};

// Processor seconds of all threads.
double ProcessSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Times {
  std::vector<double> wall;
  std::vector<double> processor;

  void Add(const std::function<void()>& operation) {
    const double begin = ProcessSeconds();
    wall.push_back(bench::SecondsOf(operation, 1));
    processor.push_back(ProcessSeconds() - begin);
  }
};

double PeakKilobytes() {
  double peak = 0.0;
  std::FILE* const status = std::fopen("/proc/self/status", "r");
  char line[256];
  while (status != nullptr && std::fgets(line, sizeof line, status) != nullptr) {
    std::sscanf(line, "VmHWM: %lf kB", &peak);
  }
  if (status != nullptr) {
    std::fclose(status);
  }
  return peak;
}

// Bytes by which the peak of the resident memory rises, in a process of its own.
double PeakBytes(const std::function<void()>& operation) {
  int ends[2];
  if (pipe(ends) != 0) {
    return 0.0;
  }
  double bytes = 0.0;
  const pid_t child = fork();
  if (child == 0) {
    malloc_trim(0);
    // 5 sets the peak back to what is resident now.
    std::FILE* const reset = std::fopen("/proc/self/clear_refs", "w");
    if (reset != nullptr) {
      std::fputs("5", reset);
      std::fclose(reset);
    }
    const double before = PeakKilobytes();
    operation();
    bytes = 1024.0 * (PeakKilobytes() - before);
    const bool written = write(ends[1], &bytes, sizeof bytes) == sizeof bytes;
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  if (read(ends[0], &bytes, sizeof bytes) != sizeof bytes) {
    bytes = 0.0;
  }
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return bytes;
}

void Report(int width, int height, int count) {
  const Stack stack(width, height, count);
  Times one;
  Times two;
  std::vector<double> speedUps;
  stack.Fused(1);
  for (int turn = 0; turn < kTurns; ++turn) {
    one.Add([&stack] { stack.Fused(1); });
    two.Add([&stack] { stack.Fused(2); });
    speedUps.push_back(one.wall.back() / two.wall.back());
  }
  const double nanoseconds = 1e9 / stack.PixelsOfAllFrames();
  // The result is 4 bytes a pixel.
  const double bytes = PeakBytes([&stack] { stack.Fused(2); }) / stack.Pixels() - 4.0;
  std::printf("%4d x %4d %7d %9.1f %9.1f %10.1f %10.1f %9.2f %14.1f\n", width, height, count,
              1e3 * bench::Median(one.wall), 1e3 * bench::Median(two.wall),
              nanoseconds * bench::Median(one.processor),
              nanoseconds * bench::Median(two.processor), bench::Median(speedUps), bytes);
}

void ReportReference(int width, int height, int count) {
  const Stack stack(width, height, count);
  std::vector<std::uint8_t> expected;
  std::vector<std::uint8_t> fused;
  Times literal;
  Times ours;
  std::vector<double> ratios;
  for (int turn = 0; turn < 3; ++turn) {
    literal.Add([&stack, &expected] {
      expected = test::ReferenceFuse({stack.width, stack.height, stack.Reference(), stack.frames,
                                      stack.fields, stack.weights});
    });
    ours.Add([&stack, &fused] { fused = stack.Fused(1); });
    ratios.push_back(literal.processor.back() / ours.processor.back());
  }
  if (fused != expected) {
    std::fprintf(stderr, "The two forms differ.\n");
    std::exit(1);
  }
  const double nanoseconds = 1e9 / stack.PixelsOfAllFrames();
  std::printf("\nThe literal form, %d x %d, %d frames: %.1f ns; ours %.1f ns, %.2f times less\n",
              width, height, count, nanoseconds * bench::Median(literal.processor),
              nanoseconds * bench::Median(ours.processor), bench::Median(ratios));
}

}  // namespace

}  // namespace ostrel_native

int main() {
  std::printf(
      "Fusion; ns = processor time for a pixel of a frame on 1 and on 2 threads; memory\n"
      "beyond the request and the result, in bytes for a pixel of the result\n");
  std::printf("%11s %7s %9s %9s %10s %10s %9s %14s\n", "size", "frames", "ms (1)", "ms (2)",
              "ns (1)", "ns (2)", "speed-up", "memory, bytes");
  for (const int count : {3, 11}) {
    ostrel_native::Report(1920, 1080, count);
  }
  for (const int count : {3, 11}) {
    ostrel_native::Report(3840, 2160, count);
  }
  ostrel_native::ReportReference(1920, 1080, 11);
  return 0;
}
