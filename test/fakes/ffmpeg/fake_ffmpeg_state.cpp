#include "fakes/ffmpeg/fake_ffmpeg_state.h"

namespace ostrel_native {

FakeFfmpegState* FakeFfmpeg() {
  static FakeFfmpegState state;
  return &state;
}

AVBufferRef* NewFakeBuffer(const std::string& type, std::size_t size) {
  auto* const buffer = new AVBuffer{1, type, std::vector<char>(size), nullptr};
  ++FakeFfmpeg()->live[type];
  return new AVBufferRef{buffer, reinterpret_cast<std::uint8_t*>(buffer->bytes.data()),
                         static_cast<int>(size)};
}

AVBufferRef* AddFakeReference(AVBufferRef* reference) {
  ++reference->buffer->references;
  return new AVBufferRef(*reference);
}

void DropFakeReference(AVBufferRef** reference) {
  if (*reference == nullptr) {
    return;
  }
  AVBuffer* const buffer = (*reference)->buffer;
  if (--buffer->references == 0) {
    --FakeFfmpeg()->live[buffer->type];
    DropFakeReference(&buffer->needs);
    delete buffer;
  }
  delete *reference;
  *reference = nullptr;
}

void DropFakeDictionary(AVDictionary** dictionary) {
  if (*dictionary != nullptr) {
    --FakeFfmpeg()->live["dictionary"];
    delete *dictionary;
    *dictionary = nullptr;
  }
}

void BlankFakePacket(AVPacket& packet) {
  DropFakeReference(&packet.buf);
  packet = AVPacket{};
  packet.pts = packet.dts = AV_NOPTS_VALUE;
  packet.pos = -1;
}

std::int64_t RescaleFakeTime(std::int64_t value, AVRational from, AVRational to) {
  const std::int64_t numerator = value * from.num * to.den;
  const std::int64_t denominator = static_cast<std::int64_t>(from.den) * to.num;
  const std::int64_t half = numerator < 0 ? -denominator / 2 : denominator / 2;
  return (numerator + half) / denominator;
}

}  // namespace ostrel_native
