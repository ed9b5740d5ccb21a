#include "simulator/simulated_camera.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "simulator/frame_code.h"

namespace ostrel_simulator {
namespace {

struct SmallCamera {
  explicit SmallCamera(const Settings& settings = {})
      : microscope(settings, 0, clock), camera(settings, microscope) {}
  ~SmallCamera() { camera.Stop(); }

  void AwaitFirstFrame() {
    while (camera.HasFirstFrame() == kNotYet) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(camera.HasFirstFrame(), kOk);
  }

  // The newest frame, and the number in it.
  std::vector<std::uint8_t> Grab() {
    std::vector<std::uint8_t> frame(
        static_cast<std::size_t>(camera.FrameBytesPerRow() * camera.FrameHeight()));
    EXPECT_EQ(camera.Grab(frame.data(), static_cast<int>(frame.size())), kOk);
    return frame;
  }

  std::uint32_t NumberOf(const std::vector<std::uint8_t>& frame) {
    return ReadFrameCode(frame.data(), camera.FrameWidth(), camera.FrameHeight(),
                         camera.FrameBytesPerRow(), 3)
        .value_or(0);
  }

  // The frame as it has to be, made anew from its number.
  std::vector<std::uint8_t> Expected(std::uint32_t number) {
    const int row = camera.FrameBytesPerRow();
    std::vector<std::uint8_t> frame(static_cast<std::size_t>(row * camera.FrameHeight()));
    FramePainter painter(microscope.SharedSpecimen(), SensorNoise(1, 12), camera.FrameWidth(),
                         camera.FrameHeight());
    painter.Paint(microscope.SceneNow(), number, row, frame.data());
    return frame;
  }

  SimulatedClock clock;
  Microscope microscope;
  SimulatedCamera camera;
};

TEST(BestFormat, IsTheClosestSizeAndTheFirstListedAmongEquals) {
  EXPECT_EQ(BestFormat(640, 480), 0);
  EXPECT_EQ(BestFormat(1280, 720), 1);
  EXPECT_EQ(BestFormat(1920, 1080), 2);
  EXPECT_EQ(BestFormat(1900, 1100), 2);
  EXPECT_EQ(BestFormat(2592, 1944), 4);
  EXPECT_EQ(BestFormat(2147483647, 2147483647), 5);
  EXPECT_EQ(BestFormat(1, 1), 0);
}

TEST(BestFormat, IsFullHighDefinitionWithoutASize) {
  EXPECT_EQ(BestFormat(0, 0), 2);
  EXPECT_EQ(BestFormat(-5, 480), 2);
  EXPECT_EQ(BestFormat(640, 0), 2);
}

TEST(SimulatedCamera, AnswersThatItIsNotCapturingWhileIdle) {
  SmallCamera small;
  std::uint8_t byte = 7;
  EXPECT_EQ(small.camera.HasFirstFrame(), kNotCapturing);
  EXPECT_EQ(small.camera.FrameWidth(), kNotCapturing);
  EXPECT_EQ(small.camera.FrameHeight(), kNotCapturing);
  EXPECT_EQ(small.camera.FrameBytesPerRow(), kNotCapturing);
  EXPECT_EQ(small.camera.Grab(&byte, 1), kNotCapturing);
  EXPECT_EQ(small.camera.Stop(), kOk);
  EXPECT_EQ(byte, 7);
}

TEST(SimulatedCamera, RefusesAFormatThatItDoesNotHave) {
  SmallCamera small;
  EXPECT_EQ(small.camera.Start(-1), kNoDevice);
  EXPECT_EQ(small.camera.Start(6), kNoDevice);
  EXPECT_EQ(small.camera.FrameWidth(), kNotCapturing);
}

TEST(SimulatedCamera, HandsOutEachFrameOnceToAThread) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  std::uint32_t last = 0;
  for (int grab = 0; grab < 5; ++grab) {
    const std::vector<std::uint8_t> frame = small.Grab();
    const std::uint32_t number = small.NumberOf(frame);
    ASSERT_GT(number, last);
    ASSERT_TRUE(frame == small.Expected(number)) << number;
    last = number;
  }
}

TEST(SimulatedCamera, SeesWhatTheMicroscopeIsSetTo) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  for (const int focus : {60, 200}) {
    small.microscope.PlaceFocus(focus);
    small.microscope.SetLight(focus / 4);
    // The frame that was under way may still be one of before.
    small.Grab();
    small.Grab();
    const std::vector<std::uint8_t> frame = small.Grab();
    const std::uint32_t number = small.NumberOf(frame);
    ASSERT_TRUE(frame == small.Expected(number)) << focus;
    EXPECT_GE(small.microscope.lastFrame, number);
  }
  EXPECT_EQ(small.microscope.LastFrameSize().width, 640);
  EXPECT_EQ(small.microscope.LastFrameSize().height, 480);
}

TEST(SimulatedCamera, SaysNotYetBeforeTheFirstFrame) {
  SmallCamera small;
  // However slow this machine is: no frame is made until the camera thaws.
  small.microscope.faults.freezes = true;
  ASSERT_EQ(small.camera.Start(5), kOk);
  const int size = small.camera.FrameBytesPerRow() * small.camera.FrameHeight();
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(size));
  EXPECT_EQ(small.camera.HasFirstFrame(), kNotYet);
  EXPECT_EQ(small.camera.Grab(frame.data(), size), kNotYet);
  small.microscope.faults.freezes = false;
  small.AwaitFirstFrame();
  EXPECT_EQ(small.camera.Grab(frame.data(), size), kOk);
}

TEST(SimulatedCamera, RefusesABufferThatIsTooSmall) {
  Settings settings;
  settings.rowPadding = 6;
  SmallCamera small(settings);
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  const int row = 640 * 3 + 6;
  EXPECT_EQ(small.camera.FrameBytesPerRow(), row);
  std::vector<std::uint8_t> frame(static_cast<std::size_t>(row) * 480);
  EXPECT_EQ(small.camera.Grab(frame.data(), row * 480 - 1), kNoRoom);
  EXPECT_EQ(small.camera.Grab(frame.data(), 640 * 3 * 480), kNoRoom);
  EXPECT_EQ(small.camera.Grab(frame.data(), -1), kNoRoom);
  EXPECT_EQ(small.camera.Grab(nullptr, row * 480), kNoRoom);
  EXPECT_EQ(small.camera.Grab(frame.data(), row * 480), kOk);
}

TEST(SimulatedCamera, EndsAtItsFrameLimitWithTheLastFrameInPlace) {
  Settings settings;
  settings.frameLimit = 2;
  SmallCamera small(settings);
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  std::uint32_t number = 0;
  while (number < 2) {
    number = small.NumberOf(small.Grab());
  }
  EXPECT_EQ(small.NumberOf(small.Grab()), number);
}

TEST(SimulatedCamera, LosesFramesWhileItStutters) {
  Settings settings;
  settings.stutterEvery = 2;
  settings.stutterMs = 300;
  SmallCamera small(settings);
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  std::uint32_t late = 0;
  while (late == 0 || late % 2 != 0) {
    late = small.NumberOf(small.Grab());
  }
  std::uint32_t next = late;
  while (next == late) {
    next = small.NumberOf(small.Grab());
  }
  // A frame that is 300 ms late comes when the ninth after it was due.
  EXPECT_GE(next, late + 8);
}

TEST(SimulatedCamera, StartsAnewInAnotherFormat) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  ASSERT_EQ(small.camera.Start(1), kOk);
  EXPECT_EQ(small.camera.FrameWidth(), 1280);
  EXPECT_EQ(small.camera.FrameHeight(), 720);
  EXPECT_EQ(small.camera.FrameBytesPerRow(), 3840);
  small.AwaitFirstFrame();
  EXPECT_GE(small.NumberOf(small.Grab()), 1U);
  EXPECT_EQ(small.camera.Stop(), kOk);
  EXPECT_EQ(small.camera.HasFirstFrame(), kNotCapturing);
}

TEST(SimulatedCamera, GivesWholeFramesToSeveralThreadsAtOnce) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&small] {
      std::uint32_t last = 0;
      for (int seen = 0; seen < 5;) {
        const std::vector<std::uint8_t> frame = small.Grab();
        const std::uint32_t number = small.NumberOf(frame);
        ASSERT_GE(number, last);
        if (number > last) {
          ASSERT_TRUE(frame == small.Expected(number)) << number;
          last = number;
          ++seen;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(SimulatedCamera, MayBeStartedStoppedAndAskedByAnyThread) {
  SmallCamera small;
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&small, i] {
      std::vector<std::uint8_t> frame(1280 * 720 * 3);
      for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(i == 0 ? small.camera.Stop() : small.camera.Start(round % 2), kOk);
        small.camera.HasFirstFrame();
        small.camera.FrameWidth();
        small.camera.Grab(frame.data(), static_cast<int>(frame.size()));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(small.camera.Stop(), kOk);
  EXPECT_EQ(small.camera.FrameWidth(), kNotCapturing);
}

TEST(SimulatedCamera, GivesNoFrameTwiceWhileItIsFrozen) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  small.microscope.faults.freezes = true;
  std::vector<std::uint8_t> frame(640 * 480 * 3);
  const auto grab = [&] { return small.camera.Grab(frame.data(), static_cast<int>(frame.size())); };
  // Those that were made already come out, the last of them perhaps late.
  for (int quiet = 0; quiet < 2;) {
    quiet = grab() == kOk ? 0 : quiet + 1;
  }
  const std::vector<std::uint8_t> last = frame;
  EXPECT_EQ(grab(), kNotYet);
  EXPECT_EQ(frame, last);
  small.microscope.faults.freezes = false;
  while (grab() == kNotYet) {
  }
  EXPECT_GT(small.NumberOf(frame), small.NumberOf(last));
}

TEST(SimulatedCamera, StartsNoCaptureWhileItRefuses) {
  SmallCamera small;
  small.microscope.faults.refuses = true;
  EXPECT_EQ(small.camera.Start(0), kRefused);
  EXPECT_EQ(small.camera.HasFirstFrame(), kNotCapturing);
  small.microscope.faults.refuses = false;
  EXPECT_EQ(small.camera.Start(0), kOk);
}

TEST(SimulatedCamera, KeepsAGrabWhileItHangs) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  small.microscope.faults.Hang(DevicePart::Camera);
  std::atomic<bool> isBack = false;
  std::vector<std::uint8_t> frame;
  std::thread grab([&] {
    frame = small.Grab();
    isBack = true;
  });
  // All else answers meanwhile, also the end of the capture.
  const std::uint32_t seen = small.microscope.lastFrame;
  while (small.microscope.lastFrame < seen + 3) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(small.camera.HasFirstFrame(), kOk);
  EXPECT_FALSE(isBack);
  small.microscope.faults.Hang(DevicePart::Microscope);
  grab.join();
  EXPECT_GT(small.NumberOf(frame), seen);
}

TEST(SimulatedCamera, GrabsAsLateAsItIsSlowedDown) {
  SmallCamera small;
  ASSERT_EQ(small.camera.Start(0), kOk);
  small.AwaitFirstFrame();
  small.Grab();
  small.microscope.faults.slowMs = 120;
  const auto begin = std::chrono::steady_clock::now();
  small.Grab();
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(120));
}

}  // namespace
}  // namespace ostrel_simulator
