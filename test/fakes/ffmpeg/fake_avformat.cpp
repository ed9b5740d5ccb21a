// libavformat: a muxer that keeps the packets instead of writing them.
#include "fakes/ffmpeg/fake_ffmpeg_state.h"

using ostrel_native::BlankFakePacket;
using ostrel_native::DropFakeDictionary;
using ostrel_native::FakeFfmpeg;
using ostrel_native::FakeFfmpegState;

namespace {

AVOutputFormat g_outputFormat = {};

constexpr int kStreamIndex = 3;  // not 0, so that a packet without it is found

bool HasOptions(AVDictionary** options) {
  return options != nullptr && *options != nullptr;
}

// Leaves those that no muxer knows.
void TakeKnownOptions(AVDictionary** options) {
  if (HasOptions(options)) {
    (*options)->entries.erase("movflags");
    if ((*options)->entries.empty()) {
      DropFakeDictionary(options);
    }
  }
}

}  // namespace

extern "C" {

unsigned avformat_version() {
  FakeFfmpeg()->Call("avformat_version");
  return FakeFfmpeg()->avformatVersion;
}

int avformat_alloc_output_context2(AVFormatContext** context, AVOutputFormat*, const char* format,
                                   const char* fileName) {
  FakeFfmpegState& state = *FakeFfmpeg();
  *context = nullptr;
  const int result =
      state.Call("avformat_alloc_output_context2", std::string(format) + " " + fileName);
  if (result != 0) {
    // A positive result stands for success without an object.
    return result < 0 ? result : 0;
  }
  g_outputFormat.flags = state.outputFlags;
  *context = new AVFormatContext{};
  (*context)->oformat = &g_outputFormat;
  ++state.live["muxer"];
  return 0;
}

AVStream* avformat_new_stream(AVFormatContext* context, const AVCodec*) {
  if (FakeFfmpeg()->Call("avformat_new_stream") != 0) {
    return nullptr;
  }
  auto* const stream = new AVStream{};
  stream->index = kStreamIndex;
  stream->codecpar = new AVCodecParameters{};
  context->streams = new AVStream* [1] { stream };
  context->nb_streams = 1;
  return stream;
}

int avformat_write_header(AVFormatContext* context, AVDictionary** options) {
  FakeFfmpegState& state = *FakeFfmpeg();
  AVStream& stream = *context->streams[0];
  const int result =
      state.Call("avformat_write_header", "time base 1/" + std::to_string(stream.time_base.den) +
                                              (HasOptions(options) ? "" : " without options"));
  state.writtenParameters = *stream.codecpar;
  if (result == 0) {
    stream.time_base = state.streamTimeBase;
    TakeKnownOptions(options);
  }
  return result;
}

int av_interleaved_write_frame(AVFormatContext*, AVPacket* packet) {
  const int result = FakeFfmpeg()->Call("av_interleaved_write_frame");
  if (result == 0) {
    FakeFfmpeg()->muxed.push_back(
        {packet->pts, packet->dts, packet->duration, packet->stream_index});
  }
  // The reference is the muxer's from here on, also after an error.
  BlankFakePacket(*packet);
  return result;
}

int av_write_trailer(AVFormatContext*) {
  return FakeFfmpeg()->Call("av_write_trailer");
}

void avformat_free_context(AVFormatContext* context) {
  FakeFfmpeg()->Call("avformat_free_context", context->pb == nullptr ? "" : "with an open file");
  if (context->nb_streams != 0) {
    delete context->streams[0]->codecpar;
    delete context->streams[0];
    delete[] context->streams;
  }
  delete context;
  --FakeFfmpeg()->live["muxer"];
}

int avio_open(AVIOContext** file, const char* path, int flags) {
  const int result =
      FakeFfmpeg()->Call("avio_open", std::string(path) + " flags " + std::to_string(flags));
  if (result == 0) {
    *file = new AVIOContext{};
    ++FakeFfmpeg()->live["file"];
  }
  return result;
}

int avio_closep(AVIOContext** file) {
  const int result = FakeFfmpeg()->Call("avio_closep");
  delete *file;
  *file = nullptr;
  --FakeFfmpeg()->live["file"];
  return result;
}

}  // extern "C"
