#include "simulator/frame_painter.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "simulator/frame_code.h"

namespace ostrel_simulator {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;

using Frame = std::vector<std::uint8_t>;

std::shared_ptr<const LayeredSpecimen> RealSpecimen() {
  static const auto specimen =
      std::make_shared<const LayeredSpecimen>(MakeLayeredSpecimen(MakeSpecimen(1)));
  return specimen;
}

struct SmallPainter {
  explicit SmallPainter(int noiseTenths = 12)
      : painter(RealSpecimen(), SensorNoise(1, noiseTenths), kWidth, kHeight) {}

  Frame Paint(const Scene& scene, std::uint32_t number) {
    Frame frame(std::size_t{kWidth} * kHeight * 3);
    painter.Paint(scene, number, kWidth * 3, frame.data());
    return frame;
  }

  FramePainter painter;
};

TEST(FramePainter, PaintsAFrameTheSameWhateverCameBefore) {
  SmallPainter used;
  Scene scene;
  // Small and large moves, backwards, other light, other focus, another stage.
  const std::vector<std::uint32_t> numbers = {1, 2, 3, 7, 6, 100, 90, 5000, 4294967295U, 1};
  for (std::size_t i = 0; i < numbers.size() * 3; ++i) {
    scene.optics.focus = i < numbers.size() ? 128 : 90;
    scene.optics.light = i < numbers.size() * 2 ? 100 : 30;
    const std::uint32_t number = numbers[i % numbers.size()];
    SmallPainter fresh;
    ASSERT_TRUE(used.Paint(scene, number) == fresh.Paint(scene, number)) << number << " " << i;
  }
  for (const int x : {0, 3, -4, 500, 2}) {
    scene.stage = {false, x, -x};
    SmallPainter fresh;
    ASSERT_TRUE(used.Paint(scene, 9) == fresh.Paint(scene, 9)) << x;
  }
}

TEST(FramePainter, MovesTheSpecimenByTwoPixelsAndOne) {
  SmallPainter small(0);
  Scene scene;
  scene.showsNumber = false;
  for (const int magnification : {50, 100}) {
    scene.optics.magnification = magnification;
    const int scale = magnification / 50;
    const Frame first = small.Paint(scene, 10);
    const Frame second = small.Paint(scene, 11);
    for (int y = 0; y + scale < kHeight; ++y) {
      for (int i = 0; i < (kWidth - 2 * scale) * 3; ++i) {
        ASSERT_EQ(second[static_cast<std::size_t>(y * kWidth * 3 + i)],
                  first[static_cast<std::size_t>((y + scale) * kWidth * 3 + i + 6 * scale)])
            << magnification << " at " << i << "," << y;
      }
    }
  }
}

TEST(FramePainter, ShowsASpecimenThatStandsStill) {
  SmallPainter small(0);
  Scene scene;
  scene.showsNumber = false;
  scene.stage = {false, 40, 30};
  const Frame frame = small.Paint(scene, 1);
  EXPECT_TRUE(small.Paint(scene, 2) == frame);
  scene.stage.x = 41;
  EXPECT_FALSE(small.Paint(scene, 2) == frame);
}

TEST(FramePainter, AddsOtherNoiseToEachFrame) {
  SmallPainter small;
  Scene scene;
  scene.showsNumber = false;
  scene.stage.moves = false;
  EXPECT_FALSE(small.Paint(scene, 1) == small.Paint(scene, 2));
}

TEST(FramePainter, PaintsANumberThatIsReadAtEveryFocusAndInTheDark) {
  SmallPainter small(100);
  Scene scene;
  for (const int focus : {0, 128, 255}) {
    for (const int light : {0, 100}) {
      scene.optics = {focus, 50, light};
      const Frame frame = small.Paint(scene, 4711);
      EXPECT_EQ(ReadFrameCode(frame.data(), kWidth, kHeight, kWidth * 3, 3), 4711U);
    }
  }
  scene.showsNumber = false;
  const Frame plain = small.Paint(scene, 4711);
  EXPECT_EQ(ReadFrameCode(plain.data(), kWidth, kHeight, kWidth * 3, 3), std::nullopt);
}

TEST(FramePainter, IsDarkWithTheLampOff) {
  SmallPainter small;
  Scene scene;
  scene.showsNumber = false;
  scene.optics.light = 0;
  std::size_t differing = 0;
  const Frame dark = small.Paint(scene, 1);
  const Frame next = small.Paint(scene, 2);
  for (std::size_t i = 0; i < dark.size(); ++i) {
    ASSERT_LT(dark[i], 24);
    differing += dark[i] != next[i] ? 1 : 0;
  }
  EXPECT_GT(differing, dark.size() / 2);
}

TEST(FramePainter, LeavesTheRestOfARowAlone) {
  SmallPainter small;
  constexpr int kRow = kWidth * 3 + 6;
  Frame frame(std::size_t{kRow} * kHeight, 200);
  small.painter.Paint({}, 3, kRow, frame.data());
  for (int y = 0; y < kHeight; ++y) {
    for (int padding = kWidth * 3; padding < kRow; ++padding) {
      ASSERT_EQ(frame[static_cast<std::size_t>(y * kRow + padding)], 200);
    }
  }
}

TEST(StageAt, FollowsTheFrameNumberOrStands) {
  EXPECT_EQ(StageAt({}, 0).x, 0);
  EXPECT_EQ(StageAt({}, 3).x, 6 * 45875);
  EXPECT_EQ(StageAt({}, 3).y, 3 * 45875);
  EXPECT_EQ(StageAt({}, 4294967295U).x, std::int64_t{4294967295} * 91750);
  EXPECT_EQ(StageAt({false, -5, 7}, 3).x, -5 * 65536);
  EXPECT_EQ(StageAt({false, -5, 7}, 3).y, 7 * 65536);
}

}  // namespace
}  // namespace ostrel_simulator
