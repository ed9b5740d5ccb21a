#include "recording/video_recorder_linux.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "recording/encoder_selection.h"
#include "recording/nv12_conversion.h"

namespace ostrel_native {
namespace {

// Frees a hardware frame on every way out of its scope.
struct FrameHolder {
  explicit FrameHolder(FfmpegApi& ffmpeg) : api(ffmpeg) {}
  ~FrameHolder() { Free(); }
  FrameHolder(const FrameHolder&) = delete;
  FrameHolder& operator=(const FrameHolder&) = delete;

  void Free() {
    if (frame != nullptr) {
      api.av_frame_free(&frame);
    }
  }

  FfmpegApi& api;
  AVFrame* frame = nullptr;
};

bool CanAttemptRecording(FfmpegApi& api) {
  api.Load();
  if (!api.loaded || !HasPotentialH264Encoder(api)) {
    return false;
  }
  AVFormatContext* probe = nullptr;
  const int created = api.avformat_alloc_output_context2(&probe, nullptr, "mp4", "probe.mp4");
  if (probe != nullptr) {
    api.avformat_free_context(probe);
  }
  return created >= 0;
}

// FFmpeg opens the file once more by its name when it moves the index to the front, and it takes
// what stands before a colon in a relative name for a protocol.
std::string AbsolutePath(const std::string& path) {
  std::error_code failure;
  const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
  return failure ? path : absolute.string();
}

}  // namespace

bool LinuxVideoRecordingAvailable() {
  // Written and read by any thread. Relaxed order: a reader of the flag alone takes nothing from
  // the table, and those that use the table pass through `Load`.
  static std::atomic<bool> known{false};
  if (known.load(std::memory_order_relaxed)) {
    return true;
  }
  const bool available = CanAttemptRecording(FfmpegApi::Instance());
  if (available) {
    known.store(true, std::memory_order_relaxed);
  }
  return available;
}

std::unique_ptr<VideoRecorder::Backend> CreateLinuxBackend() {
  return std::make_unique<LinuxBackend>(FfmpegApi::Instance());
}

std::string FfmpegError(FfmpegApi& api, const char* stage, int code) {
  const std::string prefix = std::string(stage) + " failed: ";
  constexpr std::size_t kTextBytes = 64;  // what FFmpeg's longest description needs
  char text[kTextBytes] = {};
  // An unknown code fills the buffer too, but with words of another form.
  if (api.av_strerror == nullptr || api.av_strerror(code, text, kTextBytes) < 0) {
    return prefix + "error " + std::to_string(code);
  }
  return prefix + text;
}

LinuxBackend::~LinuxBackend() {
  Release();
}

std::string LinuxBackend::Start(const std::string& outputPath, std::int32_t pictureWidth,
                                std::int32_t pictureHeight, std::int32_t framesPerSecond,
                                std::int32_t bitsPerSecond) {
  api.Load();
  if (!api.loaded) {
    return api.error.empty() ? "FFmpeg is unavailable" : api.error;
  }
  finalized = false;
  ticks = EncoderTicks();
  width = pictureWidth;
  height = pictureHeight;
  frameRate = framesPerSecond;
  bitrate = bitsPerSecond;

  const std::string file = AbsolutePath(outputPath);
  std::string failure = CreateMuxer(file);
  if (failure.empty()) {
    failure = OpenFirstUsableEncoder();
  }
  if (failure.empty()) {
    failure = OpenFile(file);
  }
  if (!failure.empty()) {
    Release();
    width = height = frameRate = bitrate = 0;
  }
  return failure;
}

std::string LinuxBackend::EncodeFrame(const VideoRecorder::Frame& input, std::int64_t pts,
                                      std::int64_t duration) {
  if (codecContext == nullptr || frame == nullptr || stream == nullptr || !headerWritten) {
    return "The FFmpeg recording session is not running";
  }
  // An encoder may still hold the last picture; the planes may then move.
  const int writable = api.av_frame_make_writable(frame);
  if (writable < 0) {
    return FfmpegError(api, "Preparing a video frame", writable);
  }
  if (input.width != width || input.height != height ||
      !ConvertFrameToNv12Planar(input, frame->data[0], frame->linesize[0], frame->data[1],
                                frame->linesize[1])) {
    return "Unsupported or invalid camera frame format";
  }
  const AVRational timeBase = codecContext->time_base;
  frame->pts = ticks.Place(api.av_rescale_q(pts, kInputTimestampTimeBase, timeBase));
  frame->pkt_duration = std::clamp<std::int64_t>(
      api.av_rescale_q(duration, kInputTimestampTimeBase, timeBase), 1, EncoderTicks::kLongestGap);
  lastPacketDuration = frame->pkt_duration;

  FrameHolder surface(api);
  if (useVaapi) {
    surface.frame = api.av_frame_alloc();
    if (surface.frame == nullptr) {
      return "Could not allocate a VAAPI video frame";
    }
    std::string failure = UploadFrame(surface.frame);
    if (!failure.empty()) {
      return failure;
    }
  }
  int sent = 0;
  std::string failure = SendFrame(useVaapi ? surface.frame : frame, sent);
  surface.Free();
  if (!failure.empty()) {
    return failure;
  }
  return sent < 0 ? FfmpegError(api, "Submitting a video frame", sent) : DrainPackets();
}

std::string LinuxBackend::UploadFrame(AVFrame* surface) {
  surface->format = AV_PIX_FMT_VAAPI;
  surface->width = width;
  surface->height = height;
  AVBufferRef* reference = api.av_buffer_ref(hwFrames);
  surface->hw_frames_ctx = reference;
  if (reference == nullptr) {
    return "Could not reference the VAAPI frame pool";
  }
  int uploaded = api.av_hwframe_get_buffer(hwFrames, surface, 0);
  // It puts a reference of its own over ours, or null, and does not release ours.
  if (surface->hw_frames_ctx != reference) {
    api.av_buffer_unref(&reference);
  }
  if (uploaded >= 0) {
    uploaded = api.av_hwframe_transfer_data(surface, frame, 0);
  }
  if (uploaded < 0) {
    return FfmpegError(api, "Uploading a VAAPI video frame", uploaded);
  }
  surface->pts = frame->pts;
  surface->pkt_duration = frame->pkt_duration;
  return std::string();
}

std::string LinuxBackend::SendFrame(const AVFrame* picture, int& sent) {
  sent = api.avcodec_send_frame(codecContext, picture);
  if (sent != AVERROR(EAGAIN)) {
    return std::string();
  }
  std::string failure = DrainPackets();
  if (failure.empty()) {
    sent = api.avcodec_send_frame(codecContext, picture);
  }
  return failure;
}

std::string LinuxBackend::DrainPackets() {
  return ReceivePackets(false);
}

std::string LinuxBackend::ReceivePackets(bool flushing) {
  if (codecContext == nullptr || packet == nullptr || formatContext == nullptr ||
      stream == nullptr) {
    return std::string();
  }
  while (true) {
    const int received = api.avcodec_receive_packet(codecContext, packet);
    if (received == AVERROR_EOF) {
      return std::string();
    }
    if (received == AVERROR(EAGAIN)) {
      return flushing ? "The H.264 encoder did not finish flushing" : "";
    }
    if (received < 0) {
      return FfmpegError(api, "Encoding a video frame", received);
    }
    std::string failure = WritePacket();
    if (!failure.empty()) {
      return failure;
    }
  }
}

std::string LinuxBackend::Flush() {
  if (codecContext == nullptr || !headerWritten) {
    return std::string();
  }
  int sent = 0;
  std::string failure = SendFrame(nullptr, sent);
  if (!failure.empty()) {
    return failure;
  }
  if (sent < 0 && sent != AVERROR_EOF) {
    return FfmpegError(api, "Flushing the H.264 encoder", sent);
  }
  return ReceivePackets(true);
}

std::string LinuxBackend::Finalize() {
  if (finalized) {
    return std::string();
  }
  finalized = true;
  // Each step runs also after an error, to leave a file that plays if it can still be written; the
  // first error is told.
  std::string flushFailure = Flush();
  std::string trailerFailure = WriteTrailer();
  std::string closeFailure = CloseFile();
  Release();
  if (!flushFailure.empty()) {
    return flushFailure;
  }
  return trailerFailure.empty() ? closeFailure : trailerFailure;
}

void LinuxBackend::Release() {
  ReleaseEncoder();
  ReleaseMuxer();
}

}  // namespace ostrel_native
