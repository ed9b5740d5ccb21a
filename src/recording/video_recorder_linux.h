// The writer of a recording: H.264 in an MP4 file, through the FFmpeg libraries that are found
// at run time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "recording/encoder_ticks.h"
#include "recording/ffmpeg_api.h"
#include "recording/recording_platform.h"
#include "recording/video_recorder.h"

namespace ostrel_native {

/// The text of a failed FFmpeg call: `stage`, " failed: " and FFmpeg's description of `code`.
/// Thread: recorder worker.
std::string FfmpegError(FfmpegApi& api, const char* stage, int code);

/// The unit of all time stamps and durations that the recorder hands over.
inline constexpr AVRational kInputTimestampTimeBase = {1, 10'000'000};

/// Writes one recording, from `Start` to `Finalize`. A failed `Start` leaves it as it was made.
/// Destroyed without `Finalize` it leaves a file without an index.
/// Thread: recorder worker.
struct LinuxBackend : VideoRecorder::Backend {
  explicit LinuxBackend(FfmpegApi& ffmpeg) : api(ffmpeg) {}
  LinuxBackend(const LinuxBackend&) = delete;
  LinuxBackend& operator=(const LinuxBackend&) = delete;
  ~LinuxBackend() override;

  std::string Start(const std::string& outputPath, std::int32_t pictureWidth,
                    std::int32_t pictureHeight, std::int32_t framesPerSecond,
                    std::int32_t bitsPerSecond) override;
  std::string EncodeFrame(const VideoRecorder::Frame& input, std::int64_t pts,
                          std::int64_t duration) override;
  /// Also after an error: it finishes what can be finished and returns the first error.
  std::string Finalize() override;

  FfmpegApi& api;
  AVFormatContext* formatContext = nullptr;  ///< null when closed
  AVCodecContext* codecContext = nullptr;    ///< null when no encoder is open
  AVStream* stream = nullptr;                ///< the muxer's
  AVFrame* frame = nullptr;                  ///< NV12, reused for every picture
  AVPacket* packet = nullptr;                ///< reused for every packet
  AVBufferRef* hwDevice = nullptr;           ///< VAAPI device, or null
  AVBufferRef* hwFrames = nullptr;           ///< VAAPI frame pool, or null
  bool useVaapi = false;                     ///< the open encoder takes VAAPI surfaces
  bool headerWritten = false;                ///< without it no frame is accepted
  bool finalized = false;
  std::int32_t width = 0;               ///< pixels
  std::int32_t height = 0;              ///< pixels
  std::int32_t frameRate = 0;           ///< frames a second
  std::int32_t bitrate = 0;             ///< bits a second
  std::int64_t lastPacketDuration = 0;  ///< of the latest frame, in the encoder's time base
  EncoderTicks ticks;
  std::string encoderName;  ///< of the open encoder

 private:
  // The encoder: h264_encoder.cpp.
  std::string OpenFirstUsableEncoder();
  bool TryEncoder(const AVCodec* codec, bool vaapi, const std::string& name,
                  std::vector<std::string>& failures);
  std::string OpenEncoder(const AVCodec* codec, bool vaapi);
  void ConfigureEncoder();
  std::string AttachVaapiFramePool();
  std::string AllocateBuffers();
  void ReleaseEncoder();

  // The file: mp4_writer.cpp.
  std::string CreateMuxer(const std::string& outputPath);
  std::string OpenFile(const std::string& outputPath);
  bool WritesToFile() const;
  std::string WritePacket();
  std::string WriteTrailer();
  int CloseOutput();
  std::string CloseFile();
  void ReleaseMuxer();

  // Frames on their way from the one to the other: video_recorder_linux.cpp.
  std::string UploadFrame(AVFrame* surface);
  // Null flushes the encoder. Makes room once if it is full; `sent` is the call's last result.
  std::string SendFrame(const AVFrame* picture, int& sent);
  std::string DrainPackets();
  std::string ReceivePackets(bool flushing);
  std::string Flush();
  void Release();
};

}  // namespace ostrel_native
