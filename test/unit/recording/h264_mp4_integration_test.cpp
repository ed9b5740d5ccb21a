// Recordings by the real FFmpeg generation, looked at with the FFmpeg command line.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <latch>
#include <thread>

#include "camera/camera_pixel_format.h"
#include "recording/video_recorder_linux.h"
#include "unit/support/media_files.h"
#include "unit/support/output_capture.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

constexpr char kLibraries[] = OSTREL_TEST_NATIVES_DIR;
constexpr std::int32_t kBitrate = 4'000'000;
constexpr std::int64_t kSecond = 10'000'000;  // in ticks of 100 ns
constexpr std::int64_t kTick = kSecond / 30;

// Each picture has a luma level of its own, which says which one it is, and a slow ramp across.
int LumaOfPicture(int number) {
  return 40 + number % 40 * 4;
}

VideoRecorder::Frame EmptyFrame(std::int32_t width, std::int32_t height, CameraPixelFormat format,
                                std::size_t bytes, std::int32_t stride) {
  VideoRecorder::Frame frame;
  frame.data.assign(bytes, 128);
  frame.width = width;
  frame.height = height;
  frame.format = static_cast<std::int32_t>(format);
  frame.planeStrides[0] = stride;
  return frame;
}

VideoRecorder::Frame Nv12Picture(std::int32_t width, std::int32_t height, int number) {
  const std::size_t columns = static_cast<std::size_t>(width);
  const std::size_t pixels = columns * static_cast<std::size_t>(height);
  VideoRecorder::Frame frame =
      EmptyFrame(width, height, CameraPixelFormat::Nv12, pixels + pixels / 2, width);
  for (std::size_t i = 0; i < pixels; ++i) {
    frame.data[i] = static_cast<std::uint8_t>(LumaOfPicture(number) +
                                              static_cast<int>(i % columns * 16 / columns));
  }
  return frame;
}

VideoRecorder::Frame RgbaPicture(std::int32_t width, std::int32_t height, int number) {
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  VideoRecorder::Frame frame =
      EmptyFrame(width, height, CameraPixelFormat::Rgba, pixels * 4, width * 4);
  std::fill(frame.data.begin(), frame.data.end(), static_cast<std::uint8_t>(LumaOfPicture(number)));
  return frame;
}

struct RealFfmpeg : testing::Test {
  void SetUp() override {
    if (!std::filesystem::exists(std::string(kLibraries) + "/libavcodec.so.58")) {
      GTEST_SKIP() << "the FFmpeg libraries are not built: run scripts/build-ffmpeg.sh";
    }
    if (std::system("command -v ffmpeg >/dev/null && command -v ffprobe >/dev/null") != 0) {
      GTEST_SKIP() << "the command line programs ffmpeg and ffprobe are not installed";
    }
    setenv("OSTREL_FFMPEG_LIBRARY_DIR", kLibraries, 1);
    setenv("OSTREL_FFMPEG_ENCODER", "libx264", 1);
  }

  std::string Start(const std::string& file, std::int32_t width, std::int32_t height) {
    return backend->Start(file, width, height, 30, kBitrate);
  }

  // Records `count` pictures at 30 a second; the first failure's text.
  std::string Record(const std::string& file, std::int32_t width, std::int32_t height, int count) {
    std::string failure = Start(file, width, height);
    for (int number = 0; number < count && failure.empty(); ++number) {
      failure = backend->EncodeFrame(Nv12Picture(width, height, number), number * kTick, kTick);
    }
    return failure.empty() ? backend->Finalize() : failure;
  }

  void ExpectPlayable(const std::string& file, int frames, double seconds) {
    std::map<std::string, std::string> stream = ProbedStream(file);
    EXPECT_EQ(stream["codec_name"], "h264");
    EXPECT_EQ(stream["profile"], "Main");
    EXPECT_EQ(stream["pix_fmt"], "yuv420p");
    EXPECT_EQ(stream["color_range"], "tv");
    EXPECT_EQ(stream["nb_read_frames"], std::to_string(frames));
    EXPECT_NEAR(std::atof(stream["duration"].c_str()), seconds, 1.0 / 30);
    EXPECT_EQ(DecodingComplaints(file), "");
    const std::vector<std::string> boxes = TopLevelBoxes(file);
    const auto index = std::find(boxes.begin(), boxes.end(), "moov");
    const auto data = std::find(boxes.begin(), boxes.end(), "mdat");
    EXPECT_NE(index, boxes.end());
    EXPECT_NE(data, boxes.end());
    EXPECT_LT(index, data);
  }

  const TemporaryDirectory directory;
  const std::string path = directory.File("out.mp4");
  std::unique_ptr<VideoRecorder::Backend> backend = CreateLinuxBackend();
};

TEST_F(RealFfmpeg, IsAvailableToManyThreadsAtOnce) {
  constexpr int kCallers = 4;
  std::latch together(kCallers);
  std::vector<std::thread> callers;
  callers.reserve(kCallers);
  for (int i = 0; i < kCallers; ++i) {
    callers.emplace_back([&together] {
      together.arrive_and_wait();
      EXPECT_TRUE(LinuxVideoRecordingAvailable());
    });
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
}

TEST_F(RealFfmpeg, IsFoundInTheBundledDirectory) {
  unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
  FfmpegApi api;
  api.LoadOnce(kLibraries);
  EXPECT_TRUE(api.loaded) << api.error;
}

struct SizeCase {
  int width = 0;
  int height = 0;
  std::string colours;
};

void PrintTo(const SizeCase& size, std::ostream* stream) {
  *stream << size.colours;
}

struct RealFfmpegSizes : RealFfmpeg, testing::WithParamInterface<SizeCase> {};

TEST_P(RealFfmpegSizes, GiveAPlayableFileWithTheColourTagsOfTheSize) {
  ASSERT_EQ(Record(path, GetParam().width, GetParam().height, 36), "");
  ExpectPlayable(path, 36, 36.0 / 30);
  std::map<std::string, std::string> stream = ProbedStream(path);
  EXPECT_EQ(stream["width"], std::to_string(GetParam().width));
  EXPECT_EQ(stream["height"], std::to_string(GetParam().height));
  EXPECT_EQ(stream["color_space"], GetParam().colours);
  EXPECT_EQ(stream["color_transfer"], GetParam().colours);
  EXPECT_EQ(stream["color_primaries"], GetParam().colours);
}

INSTANTIATE_TEST_SUITE_P(Sizes, RealFfmpegSizes,
                         testing::Values(SizeCase{1280, 480, "bt709"},
                                         SizeCase{1278, 576, "smpte170m"},
                                         SizeCase{1278, 578, "bt709"}),
                         [](const testing::TestParamInfo<SizeCase>& test) {
                           return std::to_string(test.param.width) + "by" +
                                  std::to_string(test.param.height);
                         });

TEST_F(RealFfmpeg, PicturesComeOutInOrderAndLookAsTheyWere) {
  constexpr std::int32_t kWidth = 320;
  constexpr std::int32_t kHeight = 240;
  constexpr int kCount = 40;
  ASSERT_EQ(Record(path, kWidth, kHeight, kCount), "");
  const std::string decoded = DecodedPictures(path);
  const std::size_t bytes = Nv12Picture(kWidth, kHeight, 0).data.size();
  ASSERT_EQ(decoded.size(), bytes * kCount);
  for (int number = 0; number < kCount; ++number) {
    const VideoRecorder::Frame source = Nv12Picture(kWidth, kHeight, number);
    double difference = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
      const auto got =
          static_cast<unsigned char>(decoded[static_cast<std::size_t>(number) * bytes + i]);
      difference += std::abs(got - source.data[i]);
    }
    // Neighbouring pictures are 4 levels apart.
    EXPECT_LT(difference / static_cast<double>(bytes), 1.5) << number;
  }
}

TEST_F(RealFfmpeg, RgbaPicturesAreConverted) {
  ASSERT_EQ(Start(path, 640, 480), "");
  for (int number = 0; number < 24; ++number) {
    ASSERT_EQ(backend->EncodeFrame(RgbaPicture(640, 480, number), number * kTick, kTick), "");
  }
  ASSERT_EQ(backend->Finalize(), "");
  ExpectPlayable(path, 24, 24.0 / 30);
  // Grey of level v: luma (220 v + 128 >> 8) + 16.
  const std::string decoded = DecodedPictures(path);
  for (const int number : {0, 12, 23}) {
    const int expected = ((220 * LumaOfPicture(number) + 128) >> 8) + 16;
    const std::size_t middle =
        static_cast<std::size_t>(number) * 640 * 480 * 3 / 2 + 640 * 240 + 320;
    EXPECT_NEAR(static_cast<unsigned char>(decoded.at(middle)), expected, 3) << number;
  }
}

TEST_F(RealFfmpeg, PacketDurationsFollowTheCaptureTimes) {
  const std::vector<std::int64_t> durations = {kTick, kTick, 3 * kTick, kTick, kSecond, kTick};
  ASSERT_EQ(Start(path, 320, 240), "");
  std::int64_t pts = 0;
  for (std::size_t i = 0; i < durations.size(); ++i) {
    ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, static_cast<int>(i)), pts, durations[i]),
              "");
    pts += durations[i];
  }
  ASSERT_EQ(backend->Finalize(), "");
  const std::vector<double> written = PacketDurations(path);
  ASSERT_EQ(written.size(), durations.size());
  for (std::size_t i = 0; i < durations.size(); ++i) {
    EXPECT_NEAR(written[i], static_cast<double>(durations[i]) / kSecond, 0.0001) << i;
  }
}

TEST_F(RealFfmpeg, ASingleFrameGivesAPlayableFile) {
  ASSERT_EQ(Record(path, 640, 480, 1), "");
  ExpectPlayable(path, 1, 1.0 / 30);
}

TEST_F(RealFfmpeg, ARecordingWithoutFramesGivesAWholeFile) {
  ASSERT_EQ(Record(path, 640, 480, 0), "");
  const std::vector<std::string> boxes = TopLevelBoxes(path);
  EXPECT_NE(std::find(boxes.begin(), boxes.end(), "moov"), boxes.end());
  EXPECT_EQ(std::find(boxes.begin(), boxes.end(), "broken"), boxes.end());
}

TEST_F(RealFfmpeg, APathWithSpacesAndUtf8IsTaken) {
  const std::string odd = directory.File("Prüfling 3 – Ölfleck's 顕微鏡.mp4");
  ASSERT_EQ(Record(odd, 320, 240, 12), "");
  EXPECT_TRUE(std::filesystem::exists(odd));
  ExpectPlayable(odd, 12, 12.0 / 30);
}

TEST_F(RealFfmpeg, ARelativeNameWithAColonIsKeptWhenTheWorkingDirectoryChanges) {
  const TemporaryDirectory elsewhere;
  std::filesystem::current_path(directory.path);
  ASSERT_EQ(Start("12:30 a.mp4", 320, 240), "");
  std::filesystem::current_path(elsewhere.path);
  // What another program has put there in the meantime stays as it is.
  std::ofstream("12:30 a.mp4") << "foreign";
  for (int number = 0; number < 12; ++number) {
    ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, number), number * kTick, kTick), "");
  }
  EXPECT_EQ(backend->Finalize(), "");
  ExpectPlayable(directory.File("12:30 a.mp4"), 12, 12.0 / 30);
  EXPECT_EQ(std::filesystem::file_size(elsewhere.File("12:30 a.mp4")), 7u);
}

TEST_F(RealFfmpeg, StampsThatFallOnOneTickGiveAPlayableFile) {
  ASSERT_EQ(Start(path, 320, 240), "");
  int number = 0;
  for (const std::int64_t pts : {0, 1, 2, 1'000'000, 1'000'001, 1'000'100, 2'000'000}) {
    ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, number), pts, kTick), "") << pts;
    ++number;
  }
  ASSERT_EQ(backend->Finalize(), "");
  ExpectPlayable(path, number, 0.2 + 1.0 / 30);
}

TEST_F(RealFfmpeg, AGapOfYearsGivesAPlayableFile) {
  constexpr std::int64_t kYear = 365 * 24 * 3600 * kSecond;
  ASSERT_EQ(Start(path, 320, 240), "");
  int number = 0;
  for (const std::int64_t pts : {std::int64_t{0}, kYear, kYear + kTick, 40 * kYear}) {
    ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, number), pts, kYear), "") << pts;
    ++number;
  }
  ASSERT_EQ(backend->Finalize(), "");
  const std::vector<double> durations = PacketDurations(path);
  constexpr double kLongest = EncoderTicks::kLongestGap / 90'000.0;
  ASSERT_EQ(durations.size(), 4u);
  EXPECT_NEAR(durations[0], kLongest, 0.001);
  EXPECT_NEAR(durations[1], 1.0 / 30, 0.001);
  EXPECT_NEAR(durations[2], kLongest, 0.001);
  EXPECT_EQ(DecodingComplaints(path), "");
}

TEST_F(RealFfmpeg, TheLongestGapThatFitsIsKept) {
  constexpr std::int64_t kHour = 3600 * kSecond;
  ASSERT_EQ(Start(path, 320, 240), "");
  ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, 0), 0, 6 * kHour), "");
  ASSERT_EQ(backend->EncodeFrame(Nv12Picture(320, 240, 1), 6 * kHour, kTick), "");
  ASSERT_EQ(backend->Finalize(), "");
  ASSERT_EQ(PacketDurations(path).size(), 2u);
  EXPECT_NEAR(PacketDurations(path)[0], 6 * 3600, 0.001);
}

TEST_F(RealFfmpeg, APathThatCannotBeWrittenFailsTheStart) {
  EXPECT_EQ(Start(directory.File("missing/out.mp4"), 640, 480),
            "Opening the MP4 output failed: No such file or directory");
  EXPECT_EQ(Start(directory.path, 640, 480), "Opening the MP4 output failed: Is a directory");
  EXPECT_EQ(Record(path, 640, 480, 2), "");
}

TEST_F(RealFfmpeg, ARefusedLayoutLeavesAFileThatPlays) {
  ASSERT_EQ(Start(path, 640, 480), "");
  for (int number = 0; number < 10; ++number) {
    ASSERT_EQ(backend->EncodeFrame(Nv12Picture(640, 480, number), number * kTick, kTick), "");
  }
  VideoRecorder::Frame refused = Nv12Picture(640, 480, 10);
  refused.format = static_cast<std::int32_t>(CameraPixelFormat::Rgb);
  EXPECT_EQ(backend->EncodeFrame(refused, 10 * kTick, kTick),
            "Unsupported or invalid camera frame format");
  EXPECT_EQ(backend->Finalize(), "");
  ExpectPlayable(path, 10, 10.0 / 30);
}

TEST_F(RealFfmpeg, DestroyedWithoutFinalizeItLeavesAFileWithoutAnIndex) {
  ASSERT_EQ(Start(path, 640, 480), "");
  ASSERT_EQ(backend->EncodeFrame(Nv12Picture(640, 480, 0), 0, kTick), "");
  backend.reset();
  const std::vector<std::string> boxes = TopLevelBoxes(path);
  EXPECT_FALSE(boxes.empty());
  EXPECT_EQ(std::find(boxes.begin(), boxes.end(), "moov"), boxes.end());
}

TEST_F(RealFfmpeg, AnEncoderThatDoesNotExistHasNoReason) {
  setenv("OSTREL_FFMPEG_ENCODER", "h264", 1);
  EXPECT_EQ(Start(path, 640, 480), "No usable FFmpeg H.264 encoder was found");
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(RealFfmpeg, WithoutHardwareTheChoiceFallsToSoftware) {
  if (std::filesystem::exists("/dev/dri") || std::filesystem::exists("/dev/nvidia0") ||
      std::filesystem::exists("/dev/video0")) {
    GTEST_SKIP() << "this machine has devices that may encode";
  }
  setenv("OSTREL_FFMPEG_ENCODER", "auto", 1);
  ASSERT_EQ(Start(path, 640, 480), "");
  EXPECT_EQ(static_cast<LinuxBackend&>(*backend).encoderName, "libx264");
}

TEST_F(RealFfmpeg, ManyStartsThatTryEveryEncoderKeepNoMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "not under a sanitizer, whose allocator keeps no such count: it looks for leaks";
#endif
  setenv("OSTREL_FFMPEG_ENCODER", "auto", 1);
  constexpr int kWarmUp = 20;
  constexpr int kRecordings = 100;
  const auto record = [this] {
    backend = CreateLinuxBackend();
    ASSERT_EQ(Record(path, 320, 240, 2), "");
    backend.reset();
  };
  const auto bytesInUse = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  for (int i = 0; i < kWarmUp; ++i) {
    record();
  }
  const std::size_t before = bytesInUse();
  for (int i = 0; i < kRecordings; ++i) {
    record();
  }
  // A context that is lost at each start takes 4.9 kB of these; the allocator's caches for the
  // encoder's threads some hundred bytes.
  const auto kept = static_cast<std::int64_t>(bytesInUse()) - static_cast<std::int64_t>(before);
  EXPECT_LT(kept / kRecordings, 2500);
}

TEST_F(RealFfmpeg, PrintsNothing) {
  OutputCapture capture;
  const std::string recorded = Record(path, 640, 480, 24);
  backend.reset();
  for (const char* const encoder : {"h264_vaapi", "h264_nvenc", "h264_v4l2m2m", "auto"}) {
    setenv("OSTREL_FFMPEG_ENCODER", encoder, 1);
    CreateLinuxBackend()->Start(path, 640, 480, 30, kBitrate);
  }
  LinuxVideoRecordingAvailable();
  EXPECT_EQ(capture.Take(), "");
  EXPECT_EQ(recorded, "");
}

// A disk of its own, seen by this process only and gone with it; false with a reason otherwise.
bool MountSmallDisk(const std::string& place, const char* size, std::string& reason) {
  if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", place.c_str(), "tmpfs", 0, (std::string("size=") + size).c_str()) != 0) {
    reason = std::strerror(errno);
    return false;
  }
  return true;
}

TEST_F(RealFfmpeg, AFullDiskEndsTheRecordingWithTheSystemsWords) {
  const TemporaryDirectory disk;
  std::string reason;
  if (!MountSmallDisk(disk.path, "64k", reason)) {
    GTEST_SKIP() << "no small disk can be mounted here: " << reason;
  }
  OutputCapture capture;
  ASSERT_EQ(Start(disk.File("out.mp4"), 640, 480), "");
  std::string failure;
  for (int number = 0; number < 300 && failure.empty(); ++number) {
    VideoRecorder::Frame noise = Nv12Picture(640, 480, number);
    std::uint32_t seed = static_cast<std::uint32_t>(number) + 1;
    for (std::uint8_t& value : noise.data) {
      seed = seed * 1'664'525 + 1'013'904'223;
      value = static_cast<std::uint8_t>(seed >> 24);
    }
    failure = backend->EncodeFrame(noise, number * kTick, kTick);
  }
  EXPECT_EQ(failure, "Writing an H.264 packet failed: No space left on device");
  EXPECT_EQ(backend->Finalize(), "Finalizing the MP4 file failed: No space left on device");
  EXPECT_EQ(capture.Take(), "");
  umount(disk.path.c_str());
}

}  // namespace
}  // namespace ostrel_native
