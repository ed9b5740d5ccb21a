// libavutil: frames, options, hardware contexts, the log level.
#include <algorithm>
#include <cstdio>

#include "fakes/ffmpeg/fake_ffmpeg_state.h"

using ostrel_native::AddFakeReference;
using ostrel_native::DropFakeDictionary;
using ostrel_native::DropFakeReference;
using ostrel_native::FakeFfmpeg;
using ostrel_native::FakeFfmpegState;
using ostrel_native::NewFakeBuffer;
using ostrel_native::RescaleFakeTime;

namespace {

int AlignedTo(int value, int alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

// Lays an NV12 picture out in a fresh buffer.
void TakePictureBuffer(AVFrame& frame, int alignment) {
  const int stride = AlignedTo(frame.width, alignment);
  const std::size_t lumaBytes =
      static_cast<std::size_t>(stride) * static_cast<std::size_t>(frame.height);
  frame.buf[0] = NewFakeBuffer("picture", lumaBytes + lumaBytes / 2);
  frame.data[0] = frame.buf[0]->data;
  frame.data[1] = frame.buf[0]->data + lumaBytes;
  frame.linesize[0] = frame.linesize[1] = stride;
}

}  // namespace

extern "C" {

unsigned avutil_version() {
  FakeFfmpeg()->Call("avutil_version");
  return FakeFfmpeg()->avutilVersion;
}

int av_strerror(int code, char* text, std::size_t size) {
  // As the real one, it writes a text also for a code that it doesn't know.
  std::snprintf(text, size, "text of %d", code);
  return FakeFfmpeg()->Call("av_strerror", std::to_string(code) + " " + std::to_string(size));
}

AVFrame* av_frame_alloc() {
  if (FakeFfmpeg()->Call("av_frame_alloc") != 0) {
    return nullptr;
  }
  ++FakeFfmpeg()->live["frame"];
  return new AVFrame{};
}

void av_frame_free(AVFrame** frame) {
  if (*frame == nullptr) {
    return;
  }
  FakeFfmpeg()->Call("av_frame_free", (*frame)->format == AV_PIX_FMT_VAAPI ? "vaapi" : "nv12");
  DropFakeReference(&(*frame)->buf[0]);
  DropFakeReference(&(*frame)->hw_frames_ctx);
  delete *frame;
  *frame = nullptr;
  --FakeFfmpeg()->live["frame"];
}

int av_frame_get_buffer(AVFrame* frame, int alignment) {
  const int result = FakeFfmpeg()->Call(
      "av_frame_get_buffer", std::to_string(frame->width) + "x" + std::to_string(frame->height) +
                                 " format " + std::to_string(frame->format) + " alignment " +
                                 std::to_string(alignment));
  if (result == 0) {
    TakePictureBuffer(*frame, alignment);
  }
  return result;
}

int av_frame_make_writable(AVFrame* frame) {
  const int result = FakeFfmpeg()->Call("av_frame_make_writable");
  if (result == 0 && (FakeFfmpeg()->framesMove || frame->buf[0]->buffer->references > 1)) {
    AVBufferRef* previous = frame->buf[0];
    TakePictureBuffer(*frame, 64);
    DropFakeReference(&previous);
  }
  return result;
}

int av_dict_set(AVDictionary** dictionary, const char* key, const char* value, int flags) {
  const int result = FakeFfmpeg()->Call(
      "av_dict_set", std::string(key) + "=" + value + " flags " + std::to_string(flags));
  if (*dictionary == nullptr) {
    *dictionary = new AVDictionary;
    ++FakeFfmpeg()->live["dictionary"];
  }
  (*dictionary)->entries[key] = value;
  return result;
}

void av_dict_free(AVDictionary** dictionary) {
  FakeFfmpeg()->Call("av_dict_free");
  DropFakeDictionary(dictionary);
}

int av_opt_set(void* object, const char* key, const char* value, int flags) {
  return FakeFfmpeg()->Call("av_opt_set", std::string(object == nullptr ? "null " : "") + key +
                                              "=" + value + " flags " + std::to_string(flags));
}

std::int64_t av_rescale_q(std::int64_t value, AVRational from, AVRational to) {
  FakeFfmpeg()->Call("av_rescale_q", std::to_string(value) + " from 1/" + std::to_string(from.den) +
                                         " to 1/" + std::to_string(to.den));
  return RescaleFakeTime(value, from, to);
}

AVBufferRef* av_buffer_ref(AVBufferRef* reference) {
  return FakeFfmpeg()->Call("av_buffer_ref", reference->buffer->type) != 0
             ? nullptr
             : AddFakeReference(reference);
}

void av_buffer_unref(AVBufferRef** reference) {
  FakeFfmpeg()->Call("av_buffer_unref", *reference == nullptr ? "" : (*reference)->buffer->type);
  DropFakeReference(reference);
}

int av_hwdevice_ctx_create(AVBufferRef** device, AVHWDeviceType type, const char* name,
                           AVDictionary* options, int flags) {
  const bool plain = name == nullptr && options == nullptr && flags == 0;
  const int result = FakeFfmpeg()->Call("av_hwdevice_ctx_create",
                                        std::to_string(type) + (plain ? "" : " with arguments"));
  if (result == 0) {
    *device = NewFakeBuffer("device", 1);
  }
  return result;
}

AVBufferRef* av_hwframe_ctx_alloc(AVBufferRef* device) {
  if (FakeFfmpeg()->Call("av_hwframe_ctx_alloc", device->buffer->type) != 0) {
    return nullptr;
  }
  AVBufferRef* const pool = NewFakeBuffer("pool", sizeof(AVHWFramesContext));
  pool->buffer->needs = AddFakeReference(device);
  return pool;
}

int av_hwframe_ctx_init(AVBufferRef* frames) {
  const auto& pool = *reinterpret_cast<const AVHWFramesContext*>(frames->data);
  return FakeFfmpeg()->Call("av_hwframe_ctx_init", std::to_string(pool.width) + "x" +
                                                       std::to_string(pool.height) + " format " +
                                                       std::to_string(pool.format) + " from " +
                                                       std::to_string(pool.sw_format) + " size " +
                                                       std::to_string(pool.initial_pool_size));
}

int av_hwframe_get_buffer(AVBufferRef* frames, AVFrame* frame, int flags) {
  FakeFfmpegState& state = *FakeFfmpeg();
  int result = state.Call("av_hwframe_get_buffer",
                          frames->buffer->type + " " + std::to_string(frame->width) + "x" +
                              std::to_string(frame->height) + " flags " + std::to_string(flags));
  const auto& pool = *reinterpret_cast<const AVHWFramesContext*>(frames->data);
  if (result == 0 && state.live["surface"] >= pool.initial_pool_size) {
    result = AVERROR(ENOMEM);
  }
  // As the real one, it never releases what the field held before.
  frame->hw_frames_ctx = result == 0 ? AddFakeReference(frames) : nullptr;
  if (result == 0) {
    frame->buf[0] = NewFakeBuffer("surface", 1);
    frame->format = pool.format;
    frame->width = pool.width;
    frame->height = pool.height;
  }
  return result;
}

int av_hwframe_transfer_data(AVFrame* target, const AVFrame* source, int flags) {
  return FakeFfmpeg()->Call("av_hwframe_transfer_data", std::to_string(source->format) + " to " +
                                                            std::to_string(target->format) +
                                                            " flags " + std::to_string(flags));
}

int av_log_get_level() {
  return FakeFfmpeg()->logLevel;
}

void av_log_set_level(int level) {
  FakeFfmpeg()->logLevel = level;
}

}  // extern "C"
