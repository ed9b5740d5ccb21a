// libavcodec: encoders, which turn each picture into one packet, and packets.
#include "fakes/ffmpeg/fake_ffmpeg_state.h"

using ostrel_native::AddFakeReference;
using ostrel_native::BlankFakePacket;
using ostrel_native::DropFakeReference;
using ostrel_native::FakeEncoderEntry;
using ostrel_native::FakeFfmpeg;
using ostrel_native::FakeFfmpegState;
using ostrel_native::FakeHeldPicture;
using ostrel_native::NewFakeBuffer;
using ostrel_native::RescaleFakeTime;

namespace {

char g_privateData = 0;

std::string Describe(const AVFrame* frame) {
  if (frame == nullptr) {
    return "flush";
  }
  return std::string(frame->format == AV_PIX_FMT_VAAPI ? "vaapi" : "nv12") + " pts " +
         std::to_string(frame->pts) + " duration " + std::to_string(frame->pkt_duration);
}

// Keeps what a test can look at after the frame has gone.
void Record(FakeFfmpegState& state, const AVFrame& frame) {
  AVFrame& kept = state.sentFrames.emplace_back();
  kept = AVFrame{};
  kept.format = frame.format;
  kept.width = frame.width;
  kept.height = frame.height;
  kept.pts = frame.pts;
  kept.pkt_duration = frame.pkt_duration;
  kept.color_range = frame.color_range;
  kept.colorspace = frame.colorspace;
  kept.color_primaries = frame.color_primaries;
  kept.color_trc = frame.color_trc;
  if (frame.data[0] != nullptr) {
    state.sentLuma.push_back(frame.data[0][0]);
  }
}

AVBufferRef* ReferenceOrNull(AVBufferRef* reference) {
  return reference == nullptr ? nullptr : AddFakeReference(reference);
}

void Drop(FakeHeldPicture& held) {
  DropFakeReference(&held.picture);
  DropFakeReference(&held.pool);
}

}  // namespace

extern "C" {

unsigned avcodec_version() {
  FakeFfmpeg()->Call("avcodec_version");
  return FakeFfmpeg()->avcodecVersion;
}

AVCodec* avcodec_find_encoder_by_name(const char* name) {
  FakeFfmpeg()->Call("avcodec_find_encoder_by_name", name);
  for (FakeEncoderEntry& entry : FakeFfmpeg()->encoders) {
    if (entry.name == name) {
      return &entry.codec;
    }
  }
  return nullptr;
}

AVCodec* avcodec_find_encoder(AVCodecID id) {
  FakeFfmpeg()->Call("avcodec_find_encoder", std::to_string(id));
  return const_cast<AVCodec*>(FakeFfmpeg()->defaultEncoder);
}

AVCodecContext* avcodec_alloc_context3(const AVCodec* codec) {
  if (FakeFfmpeg()->Call("avcodec_alloc_context3", codec->name == nullptr ? "" : codec->name) !=
      0) {
    return nullptr;
  }
  ++FakeFfmpeg()->live["encoder"];
  auto* const context = new AVCodecContext{};
  context->priv_data = FakeFfmpeg()->encodersHavePrivateData ? &g_privateData : nullptr;
  return context;
}

void avcodec_free_context(AVCodecContext** context) {
  FakeFfmpeg()->Call("avcodec_free_context");
  if (*context == nullptr) {
    return;
  }
  for (FakeHeldPicture& held : FakeFfmpeg()->heldPictures) {
    Drop(held);
  }
  FakeFfmpeg()->heldPictures.clear();
  DropFakeReference(&(*context)->hw_frames_ctx);
  delete *context;
  *context = nullptr;
  --FakeFfmpeg()->live["encoder"];
}

int avcodec_open2(AVCodecContext* context, const AVCodec* codec, AVDictionary** options) {
  FakeFfmpeg()->openedContext = *context;
  return FakeFfmpeg()->Call("avcodec_open2",
                            std::string(codec->name == nullptr ? "" : codec->name) +
                                (options == nullptr ? "" : " with options"));
}

int avcodec_parameters_from_context(AVCodecParameters* parameters, const AVCodecContext*) {
  parameters->codec_tag = 1;
  return FakeFfmpeg()->Call("avcodec_parameters_from_context");
}

int avcodec_send_frame(AVCodecContext*, const AVFrame* frame) {
  FakeFfmpegState& state = *FakeFfmpeg();
  const int result = state.Call("avcodec_send_frame", Describe(frame));
  if (result != 0) {
    return result;
  }
  if (frame == nullptr) {
    state.flushing = true;
    return 0;
  }
  Record(state, *frame);
  state.heldPictures.push_back(
      {frame->pts, ReferenceOrNull(frame->buf[0]), ReferenceOrNull(frame->hw_frames_ctx)});
  return 0;
}

int avcodec_receive_packet(AVCodecContext*, AVPacket* packet) {
  FakeFfmpegState& state = *FakeFfmpeg();
  const int result = state.Call("avcodec_receive_packet");
  BlankFakePacket(*packet);
  if (result != 0) {
    return result;
  }
  const std::size_t kept = state.flushing ? 0 : static_cast<std::size_t>(state.encoderDelay);
  if (state.heldPictures.size() <= kept) {
    return state.flushing ? AVERROR_EOF : AVERROR(EAGAIN);
  }
  FakeHeldPicture held = state.heldPictures.front();
  state.heldPictures.pop_front();
  packet->pts = packet->dts = held.pts;
  packet->duration = state.packetDuration;
  packet->buf = NewFakeBuffer("packet content", 1);
  packet->data = packet->buf->data;
  packet->size = packet->buf->size;
  Drop(held);
  return 0;
}

AVPacket* av_packet_alloc() {
  if (FakeFfmpeg()->Call("av_packet_alloc") != 0) {
    return nullptr;
  }
  ++FakeFfmpeg()->live["packet"];
  auto* const packet = new AVPacket{};
  BlankFakePacket(*packet);
  return packet;
}

void av_packet_free(AVPacket** packet) {
  FakeFfmpeg()->Call("av_packet_free");
  if (*packet == nullptr) {
    return;
  }
  BlankFakePacket(**packet);
  delete *packet;
  *packet = nullptr;
  --FakeFfmpeg()->live["packet"];
}

void av_packet_unref(AVPacket* packet) {
  FakeFfmpeg()->Call("av_packet_unref");
  BlankFakePacket(*packet);
}

void av_packet_rescale_ts(AVPacket* packet, AVRational from, AVRational to) {
  FakeFfmpeg()->Call("av_packet_rescale_ts",
                     "1/" + std::to_string(from.den) + " to 1/" + std::to_string(to.den));
  packet->pts = RescaleFakeTime(packet->pts, from, to);
  packet->dts = RescaleFakeTime(packet->dts, from, to);
  packet->duration = RescaleFakeTime(packet->duration, from, to);
}

}  // extern "C"
