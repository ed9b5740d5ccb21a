// A recording on the fake FFmpeg libraries, for the tests of the writer's parts.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "camera/camera_pixel_format.h"
#include "fakes/ffmpeg/fake_ffmpeg_set.h"
#include "recording/video_recorder_linux.h"

namespace ostrel_native {

using Names = std::vector<std::string>;

inline constexpr char kOutputPath[] = "/videos/out.mp4";
inline constexpr std::int32_t kTestWidth = 64;
inline constexpr std::int32_t kTestHeight = 48;
inline constexpr std::int64_t kThirtiethSecond = 333'333;  // in ticks of 100 ns
inline constexpr int kEagain = AVERROR(EAGAIN);

inline VideoRecorder::Frame Nv12Frame(std::int32_t width, std::int32_t height,
                                      std::uint8_t luma = 80) {
  VideoRecorder::Frame frame;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  frame.data.assign(pixels + pixels / 2, luma);
  frame.width = width;
  frame.height = height;
  frame.format = static_cast<std::int32_t>(CameraPixelFormat::Nv12);
  frame.planeStrides[0] = width;
  return frame;
}

/// Every test ends with all FFmpeg objects freed and the log level as it was.
struct LinuxBackendTest : testing::Test {
  LinuxBackendTest() {
    setenv("OSTREL_FFMPEG_LIBRARY_DIR", fakes.directory.path.c_str(), 1);
    Force("libx264");
  }

  void TearDown() override {
    backend.reset();
    EXPECT_EQ(fakes.LiveObjects(), 0);
    EXPECT_EQ(fakes.state.logLevel, AV_LOG_INFO);
  }

  void Force(const char* encoder) { setenv("OSTREL_FFMPEG_ENCODER", encoder, 1); }

  void AddSoftwareEncoder() {
    fakes.state.AddEncoder("libx264", {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12});
  }

  void AddVaapiEncoder() {
    fakes.state.AddEncoder("h264_vaapi", {AV_PIX_FMT_VAAPI});
    Force("h264_vaapi");
  }

  std::string Start(std::int32_t width = kTestWidth, std::int32_t height = kTestHeight,
                    std::int32_t frameRate = 30) {
    return backend->Start(kOutputPath, width, height, frameRate, 4'000'000);
  }

  /// Starts a recording that must start, on libx264 if the test has added no encoder, and
  /// forgets the calls so far.
  void Open() {
    if (fakes.state.encoders.empty()) {
      AddSoftwareEncoder();
    }
    ASSERT_EQ(Start(), "");
    fakes.state.calls.clear();
  }

  void Script(const std::string& function, std::deque<int> results) {
    fakes.state.results[function] = std::move(results);
  }

  std::string Encode(std::int64_t pts = 0, std::int64_t duration = kThirtiethSecond) {
    return backend->EncodeFrame(Nv12Frame(kTestWidth, kTestHeight), pts, duration);
  }

  LinuxBackend& Fields() { return static_cast<LinuxBackend&>(*backend); }

  /// The backend is as it was made.
  void ExpectFresh() {
    const LinuxBackend& fields = Fields();
    EXPECT_EQ(fields.formatContext, nullptr);
    EXPECT_EQ(fields.codecContext, nullptr);
    EXPECT_EQ(fields.stream, nullptr);
    EXPECT_EQ(fields.frame, nullptr);
    EXPECT_EQ(fields.packet, nullptr);
    EXPECT_EQ(fields.hwDevice, nullptr);
    EXPECT_EQ(fields.hwFrames, nullptr);
    EXPECT_FALSE(fields.useVaapi);
    EXPECT_FALSE(fields.headerWritten);
    EXPECT_FALSE(fields.finalized);
    EXPECT_EQ(fields.width, 0);
    EXPECT_EQ(fields.height, 0);
    EXPECT_EQ(fields.frameRate, 0);
    EXPECT_EQ(fields.bitrate, 0);
    EXPECT_EQ(fields.lastPacketDuration, 0);
    EXPECT_EQ(fields.encoderName, "");
    EXPECT_EQ(fakes.LiveObjects(), 0);
  }

  FakeFfmpegSet fakes;
  std::unique_ptr<VideoRecorder::Backend> backend = CreateLinuxBackend();
};

}  // namespace ostrel_native
