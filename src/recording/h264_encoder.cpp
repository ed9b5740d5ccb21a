// The encoder of a recording: the trial of candidates and the set-up of the one that works.
#include <algorithm>

#include "recording/encoder_selection.h"
#include "recording/video_recorder_linux.h"

namespace ostrel_native {
namespace {

// As fine as the usual video clocks: 30, 29.97 and 25 frames a second have whole steps.
constexpr AVRational kEncoderTimeBase = {1, 90'000};

// Surfaces that an encoder may hold at once.
constexpr int kVaapiPoolSize = 8;

constexpr int kFrameAlignment = 32;

std::string EncoderName(const AVCodec& codec) {
  return codec.name == nullptr ? "H.264" : codec.name;
}

bool AcceptsPixelFormat(const AVCodec& codec, AVPixelFormat wanted) {
  if (codec.pix_fmts == nullptr) {
    return true;
  }
  for (const AVPixelFormat* format = codec.pix_fmts; *format != AV_PIX_FMT_NONE; ++format) {
    if (*format == wanted) {
      return true;
    }
  }
  return false;
}

// Players take an untagged or wrongly tagged picture by its size: standard definition as
// SMPTE 170M, anything larger as BT.709.
void SetColourTags(AVCodecContext& context) {
  context.color_range = AVCOL_RANGE_MPEG;
  if (context.width < 1280 && context.height < 577) {
    context.color_primaries = AVCOL_PRI_SMPTE170M;
    context.color_trc = AVCOL_TRC_SMPTE170M;
    context.colorspace = AVCOL_SPC_SMPTE170M;
  } else {
    context.color_primaries = AVCOL_PRI_BT709;
    context.color_trc = AVCOL_TRC_BT709;
    context.colorspace = AVCOL_SPC_BT709;
  }
}

std::string JoinedBySemicolons(const std::vector<std::string>& items) {
  std::string text;
  for (const std::string& item : items) {
    text += text.empty() ? item : "; " + item;
  }
  return text;
}

}  // namespace

std::string LinuxBackend::OpenFirstUsableEncoder() {
  // A candidate that does not work on this machine complains at length.
  const FfmpegLogLevel quiet(api, AV_LOG_QUIET);
  const std::string forced = ForcedEncoder();
  std::vector<std::string> failures;
  for (const EncoderCandidate& candidate : MachineCandidates(forced)) {
    const AVCodec* const codec = api.avcodec_find_encoder_by_name(candidate.name.c_str());
    if (codec != nullptr && TryEncoder(codec, candidate.vaapi, candidate.name, failures)) {
      return std::string();
    }
  }
  if (forced.empty()) {
    const AVCodec* const codec = api.avcodec_find_encoder(AV_CODEC_ID_H264);
    if (codec != nullptr && TryEncoder(codec, false, EncoderName(*codec), failures)) {
      return std::string();
    }
  }
  const std::string text = "No usable FFmpeg H.264 encoder was found";
  return failures.empty() ? text : text + " (" + JoinedBySemicolons(failures) + ")";
}

bool LinuxBackend::TryEncoder(const AVCodec* codec, bool vaapi, const std::string& name,
                              std::vector<std::string>& failures) {
  std::string failure = OpenEncoder(codec, vaapi);
  if (failure.empty()) {
    return true;
  }
  failures.push_back(name + ": " + failure);
  ReleaseEncoder();
  return false;
}

std::string LinuxBackend::OpenEncoder(const AVCodec* codec, bool vaapi) {
  const AVPixelFormat pixelFormat = vaapi ? AV_PIX_FMT_VAAPI : AV_PIX_FMT_NV12;
  if (!AcceptsPixelFormat(*codec, pixelFormat)) {
    return vaapi ? "encoder does not accept VAAPI frames" : "encoder does not accept NV12 frames";
  }
  codecContext = api.avcodec_alloc_context3(codec);
  if (codecContext == nullptr) {
    return "could not allocate the encoder context";
  }
  codecContext->pix_fmt = pixelFormat;
  ConfigureEncoder();
  if (vaapi) {
    std::string failure = AttachVaapiFramePool();
    if (!failure.empty()) {
      return failure;
    }
  }
  const std::string name = EncoderName(*codec);
  if (name == "libx264" && codecContext->priv_data != nullptr) {
    api.av_opt_set(codecContext->priv_data, "preset", "veryfast", 0);
    api.av_opt_set(codecContext->priv_data, "tune", "zerolatency", 0);
  }
  const int opened = api.avcodec_open2(codecContext, codec, nullptr);
  if (opened < 0) {
    return FfmpegError(api, "Opening the H.264 encoder", opened);
  }
  std::string failure = AllocateBuffers();
  if (failure.empty()) {
    useVaapi = vaapi;
    encoderName = name;
  }
  return failure;
}

void LinuxBackend::ConfigureEncoder() {
  codecContext->codec_type = AVMEDIA_TYPE_VIDEO;
  codecContext->codec_id = AV_CODEC_ID_H264;
  codecContext->width = width;
  codecContext->height = height;
  codecContext->time_base = kEncoderTimeBase;
  codecContext->framerate = {frameRate, 1};
  codecContext->bit_rate = bitrate;
  // A key frame every two seconds bounds the wait of a seek in a player.
  codecContext->gop_size = std::max(2 * frameRate, 1);
  codecContext->max_b_frames = 0;
  codecContext->profile = FF_PROFILE_H264_MAIN;
  SetColourTags(*codecContext);
  if ((formatContext->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
    codecContext->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
}

std::string LinuxBackend::AttachVaapiFramePool() {
  const int created =
      api.av_hwdevice_ctx_create(&hwDevice, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0);
  if (created < 0) {
    return FfmpegError(api, "Creating a VAAPI device", created);
  }
  hwFrames = api.av_hwframe_ctx_alloc(hwDevice);
  if (hwFrames == nullptr) {
    return "could not allocate the VAAPI frame pool";
  }
  AVHWFramesContext& pool = *reinterpret_cast<AVHWFramesContext*>(hwFrames->data);
  pool.format = AV_PIX_FMT_VAAPI;
  pool.sw_format = AV_PIX_FMT_NV12;
  pool.width = width;
  pool.height = height;
  pool.initial_pool_size = kVaapiPoolSize;
  const int initialized = api.av_hwframe_ctx_init(hwFrames);
  if (initialized < 0) {
    return FfmpegError(api, "Initializing the VAAPI frame pool", initialized);
  }
  codecContext->hw_frames_ctx = api.av_buffer_ref(hwFrames);
  return codecContext->hw_frames_ctx == nullptr ? "could not attach the VAAPI frame pool" : "";
}

std::string LinuxBackend::AllocateBuffers() {
  frame = api.av_frame_alloc();
  packet = api.av_packet_alloc();
  if (frame == nullptr || packet == nullptr) {
    return "could not allocate FFmpeg frame buffers";
  }
  // Pictures are converted in memory also for VAAPI, and uploaded from there.
  frame->format = AV_PIX_FMT_NV12;
  frame->width = width;
  frame->height = height;
  frame->color_range = codecContext->color_range;
  frame->colorspace = codecContext->colorspace;
  frame->color_primaries = codecContext->color_primaries;
  frame->color_trc = codecContext->color_trc;
  const int allocated = api.av_frame_get_buffer(frame, kFrameAlignment);
  return allocated < 0 ? FfmpegError(api, "Allocating the NV12 frame buffer", allocated)
                       : std::string();
}

void LinuxBackend::ReleaseEncoder() {
  if (packet != nullptr) {
    api.av_packet_free(&packet);
  }
  if (frame != nullptr) {
    api.av_frame_free(&frame);
  }
  if (codecContext != nullptr) {
    // Software encoders print their statistics when they are freed.
    const FfmpegLogLevel quiet(api, AV_LOG_QUIET);
    api.avcodec_free_context(&codecContext);
  }
  if (hwFrames != nullptr) {
    api.av_buffer_unref(&hwFrames);
  }
  if (hwDevice != nullptr) {
    api.av_buffer_unref(&hwDevice);
  }
  useVaapi = false;
  encoderName.clear();
}

}  // namespace ostrel_native
