// What a frame of the virtual microscope costs its camera, against a plain memcpy of its bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "harness.h"
#include "simulator/frame_painter.h"

namespace ostrel_simulator {

namespace {

struct Size {
  int width;
  int height;
  int frameRate;
};

constexpr Size kSizes[] = {{640, 480, 30}, {1920, 1080, 30}, {3840, 2160, 15}};
constexpr int kSensorNoiseTenths = 12;

// How the scene of frame `number` differs from the one before.
struct Case {
  const char* name;
  Scene (*sceneAt)(std::uint32_t number);
};

constexpr Case kCases[] = {
    {"all stands still",
     [](std::uint32_t) {
       Scene scene;
       scene.stage.moves = false;
       return scene;
     }},
    {"the stage moves", [](std::uint32_t) { return Scene{}; }},
    {"the focus moves",
     [](std::uint32_t number) {
       Scene scene;
       scene.optics.focus = 48 + static_cast<int>(number * 7 % 160);
       return scene;
     }},
};

void Report(const std::shared_ptr<const LayeredSpecimen>& specimen, const Size& size,
            const Case& motion) {
  FramePainter painter(specimen, SensorNoise(1, kSensorNoiseTenths), size.width, size.height);
  const int bytesPerRow = size.width * 3;
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(bytesPerRow) *
                                  static_cast<std::size_t>(size.height));
  std::vector<std::uint8_t> copy(frame.size());
  std::uint32_t number = 0;
  const ostrel_native::bench::Comparison result = ostrel_native::bench::Compare(
      [&] {
        ++number;
        painter.Paint(motion.sceneAt(number), number, bytesPerRow, frame.data());
      },
      [&] { std::memcpy(copy.data(), frame.data(), frame.size()); });
  std::printf("%4d x %-4d  %-18s %10.0f %10.0f %8.2f %9.1f %%\n", size.width, size.height,
              motion.name, result.ours * 1e6, result.theirs * 1e6, 1.0 / result.ratio,
              result.ours * size.frameRate * 100);
}

}  // namespace

}  // namespace ostrel_simulator

int main() {
  using ostrel_simulator::LayeredSpecimen;
  const auto specimen = std::make_shared<const LayeredSpecimen>(
      ostrel_simulator::MakeLayeredSpecimen(ostrel_simulator::MakeSpecimen(1)));
  std::printf(
      "Frames of the virtual microscope; microseconds a frame, and the share of one core\n");
  std::printf("that they take at the rate of their format.\n");
  std::printf("%-11s  %-18s %10s %10s %8s %11s\n", "frame", "", "frame us", "memcpy us", "ratio",
              "of one core");
  for (const ostrel_simulator::Size& size : ostrel_simulator::kSizes) {
    for (const ostrel_simulator::Case& motion : ostrel_simulator::kCases) {
      ostrel_simulator::Report(specimen, size, motion);
    }
  }
  return 0;
}
