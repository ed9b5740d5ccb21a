// The fusion of focus stacks on one and on two threads, next to OpenCV's multi-band blender on the
// same frames, and next to the literal form of the same arithmetic.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "focus_stack.h"
#include "fuse_peer.h"
#include "harness.h"
#include "own_process.h"
#include "peak_memory.h"
#include "reference/fuse_reference.h"

namespace ostrel_native::bench {

namespace {

constexpr int kTurns = 5;
constexpr int kTurnsOfLargeStacks = 3;
constexpr double kLargeStack = 5e7;  // pixels of all frames

// One contender: seconds of each turn.
struct Times {
  std::vector<double> wall;
  std::vector<double> processor;

  void Add(const OwnProcess::Seconds& seconds) {
    wall.push_back(seconds.wall);
    processor.push_back(seconds.processor);
  }
};

// The median of the quotients of the turns: what slows the machine down in a turn meets both.
double MedianRatio(const std::vector<double>& dividends, const std::vector<double>& divisors) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < dividends.size(); ++i) {
    ratios.push_back(dividends[i] / divisors[i]);
  }
  return Median(ratios);
}

// Both on one and on two threads, each in one process, which warms up first.
struct Contest {
  Contest(const FocusStack& stack, const Peer& peer) {
    const int turns = stack.PixelsOfAllFrames() > kLargeStack ? kTurnsOfLargeStacks : kTurns;
    const OwnProcess us([&stack](int threads) { stack.Fused(static_cast<unsigned>(threads)); });
    const OwnProcess them(peer ? peer : [](int) {});
    us.Run(2);
    them.Run(2);
    for (int turn = 0; turn < turns; ++turn) {
      for (int threads = 1; threads <= 2; ++threads) {
        ours[threads - 1].Add(us.Run(threads));
        theirs[threads - 1].Add(them.Run(threads));
      }
    }
  }

  Times ours[2];
  Times theirs[2];
};

// Beyond the request and the result, which is of 4 bytes a pixel; the blender's of 3 and a mask.
double WorkingBytesPerPixel(const FocusStack& stack, const std::function<void()>& operation) {
  return PeakBytes(operation) / stack.Pixels() - 4.0;
}

void PrintTimes(const char* name, const FocusStack& stack, const Times (&times)[2],
                double workingBytes) {
  const double nanoseconds = 1e9 / stack.PixelsOfAllFrames();
  std::printf("%4d x %4d %7zu  %-8s %8.1f %8.1f %8.1f %8.1f %9.2f %8.1f\n", stack.width,
              stack.height, stack.frames.size(), name, 1e3 * Median(times[0].wall),
              1e3 * Median(times[1].wall), nanoseconds * Median(times[0].processor),
              nanoseconds * Median(times[1].processor), MedianRatio(times[0].wall, times[1].wall),
              workingBytes);
}

void Report(int width, int height, int count) {
  const FocusStack stack(width, height, count);
  // Before any threads are started that a process split off would lack.
  const double ourBytes = WorkingBytesPerPixel(stack, [&stack] { stack.Fused(2); });
  const Peer peer = MakePeer(stack);
  const double theirBytes = peer ? WorkingBytesPerPixel(stack, [&peer] { peer(1); }) : 0.0;
  const Contest contest(stack, peer);
  PrintTimes("ours", stack, contest.ours, ourBytes);
  if (!peer) {
    return;
  }
  PrintTimes("OpenCV", stack, contest.theirs, theirBytes);
  const bool twoAreFaster = Median(contest.theirs[1].wall) < Median(contest.theirs[0].wall);
  std::printf(
      "    ours / OpenCV: processor time on 1 thread %.2f; time on 2 threads %.2f of its "
      "time on %s\n",
      MedianRatio(contest.ours[0].processor, contest.theirs[0].processor),
      MedianRatio(contest.ours[1].wall, contest.theirs[twoAreFaster ? 1 : 0].wall),
      twoAreFaster ? "2" : "1, its faster mode");
}

std::vector<std::uint8_t> Reference(const FocusStack& stack) {
  return test::ReferenceFuse(
      {stack.width, stack.height, stack.Reference(), stack.frames, stack.fields, stack.weights});
}

void ReportReference(int width, int height, int count) {
  const FocusStack stack(width, height, count);
  if (stack.Fused(1) != Reference(stack)) {
    std::fprintf(stderr, "The two forms differ.\n");
    std::exit(1);
  }
  const OwnProcess us([&stack](int) { stack.Fused(1); });
  const OwnProcess them([&stack](int) { Reference(stack); });
  Times ours;
  Times literal;
  for (int turn = 0; turn < 3; ++turn) {
    literal.Add(them.Run(1));
    ours.Add(us.Run(1));
  }
  const double nanoseconds = 1e9 / stack.PixelsOfAllFrames();
  std::printf("\nThe literal form, %d x %d, %d frames: %.1f ns; ours %.1f ns, %.2f times less\n",
              width, height, count, nanoseconds * Median(literal.processor),
              nanoseconds * Median(ours.processor), MedianRatio(literal.processor, ours.processor));
}

// Stacks of `onlyHeight` rows, or of all sizes if that is 0.
void Run(int onlyHeight) {
  if (!HasPeer()) {
    std::printf("Built without OpenCV (libopencv-dev): its blender takes no part.\n");
  }
  std::printf(
      "Fusion; ns = processor time for a pixel of a frame on 1 and on 2 threads; memory\n"
      "beyond the request and the result, in bytes for a pixel of the result\n");
  std::printf("%11s %7s  %-8s %8s %8s %8s %8s %9s %8s\n", "size", "frames", "", "ms (1)", "ms (2)",
              "ns (1)", "ns (2)", "speed-up", "memory");
  for (const auto& [width, height] : {std::pair{1920, 1080}, std::pair{3840, 2160}}) {
    for (const int count : {3, 11}) {
      if (onlyHeight == 0 || onlyHeight == height) {
        Report(width, height, count);
      }
    }
  }
  if (onlyHeight == 0 || onlyHeight == 1080) {
    ReportReference(1920, 1080, 11);
  }
}

}  // namespace

}  // namespace ostrel_native::bench

// An argument keeps it to the stacks of that many rows, 1080 or 2160.
int main(int argumentCount, char** arguments) {
  ostrel_native::bench::Run(argumentCount > 1 ? std::atoi(arguments[1]) : 0);
  return 0;
}
