// What a test sets, and sees, of the fake FFmpeg libraries. One state serves all three; it lies
// in a library of its own, which they load as real ones load their codecs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "recording/ffmpeg_headers.h"

namespace ostrel_native {

struct FakeFfmpegCall {
  std::string name;
  std::string detail;
  int logLevel = 0;  ///< in force at the call
};

/// The members of a packet that matter, as the muxer got them.
struct FakeMuxedPacket {
  std::int64_t pts = 0;
  std::int64_t dts = 0;
  std::int64_t duration = 0;
  int streamIndex = 0;

  bool operator==(const FakeMuxedPacket&) const = default;
};

struct FakeEncoderEntry {
  std::string name;
  std::vector<AVPixelFormat> pixelFormats;  ///< ends at AV_PIX_FMT_NONE
  AVCodec codec = {};
};

/// A picture on its way through the encoder, which holds references of its own to it.
struct FakeHeldPicture {
  std::int64_t pts = 0;
  AVBufferRef* picture = nullptr;  ///< of the frame's first buffer, or null
  AVBufferRef* pool = nullptr;     ///< of the frame's hardware frame pool, or null
};

/// Public fields are for the test; set them before the calls that they concern.
struct FakeFfmpegState {
  /// The results of the next calls of a function, oldest first; 0, and whatever comes after the
  /// last, is its ordinary behaviour. Any other value is returned as it is, and makes a function
  /// that returns a pointer, or that makes an object, give null.
  std::map<std::string, std::deque<int>> results;

  std::vector<FakeFfmpegCall> calls;  ///< all but the log level's

  unsigned avcodecVersion = LIBAVCODEC_VERSION_INT;
  unsigned avformatVersion = LIBAVFORMAT_VERSION_INT;
  unsigned avutilVersion = LIBAVUTIL_VERSION_INT;

  std::list<FakeEncoderEntry> encoders;     ///< found by name; fill it by `AddEncoder`
  const AVCodec* defaultEncoder = nullptr;  ///< found by codec id
  bool encodersHavePrivateData = true;
  int outputFlags = AVFMT_GLOBALHEADER;
  AVRational streamTimeBase = {1, 12'800};  ///< set by the header
  bool framesMove = false;                  ///< av_frame_make_writable takes a new buffer
  int encoderDelay = 0;                     ///< frames that the encoder holds back
  std::int64_t packetDuration = 0;          ///< that the encoder reports

  AVCodecContext openedContext = {};   ///< as it was given to the last avcodec_open2
  std::vector<AVFrame> sentFrames;     ///< their plain members only
  std::vector<std::uint8_t> sentLuma;  ///< first luma byte of each picture in memory
  std::vector<FakeMuxedPacket> muxed;
  AVCodecParameters writtenParameters = {};  ///< of the stream, at the header
  std::map<std::string, int> live;           ///< objects that exist, by type
  int logLevel = AV_LOG_INFO;

  std::deque<FakeHeldPicture> heldPictures;  ///< in the encoder
  bool flushing = false;

  /// Logs a call and takes its next scripted result.
  int Call(const std::string& name, const std::string& detail = "") {
    const std::lock_guard<std::mutex> lock(mutex);
    calls.push_back({name, detail, logLevel});
    std::deque<int>& scripted = results[name];
    if (scripted.empty()) {
      return 0;
    }
    const int result = scripted.front();
    scripted.pop_front();
    return result;
  }

  /// An encoder that publishes the given pixel formats, or, if there are none, no list.
  const AVCodec* AddEncoder(const std::string& name, std::vector<AVPixelFormat> formats = {}) {
    FakeEncoderEntry& entry = encoders.emplace_back();
    entry.name = name;
    entry.pixelFormats = std::move(formats);
    entry.codec.name = entry.name.c_str();
    entry.codec.id = AV_CODEC_ID_H264;
    if (!entry.pixelFormats.empty()) {
      entry.pixelFormats.push_back(AV_PIX_FMT_NONE);
      entry.codec.pix_fmts = entry.pixelFormats.data();
    }
    return &entry.codec;
  }

  std::mutex mutex;  ///< guards `calls` and `results` between callers of the loader
};

/// The one state; also the one function that the control library exports, under this name.
extern "C" FakeFfmpegState* FakeFfmpeg();

}  // namespace ostrel_native

/// A reference-counted buffer, which FFmpeg's headers leave open.
struct AVBuffer {
  int references = 0;
  std::string type;              ///< under which it counts in `live`
  std::vector<char> bytes;       ///< what AVBufferRef::data points to
  AVBufferRef* needs = nullptr;  ///< a reference that goes with the buffer: a pool's to its device
};

/// What FFmpeg's headers leave open.
struct AVDictionary {
  std::map<std::string, std::string> entries;
};

namespace ostrel_native {

// Shared by the libraries, as libavutil's buffers are shared by real ones.

/// A first reference to a zeroed buffer of `size` bytes.
AVBufferRef* NewFakeBuffer(const std::string& type, std::size_t size);
AVBufferRef* AddFakeReference(AVBufferRef* reference);
/// Drops `*reference`, which may be null, and nulls it.
void DropFakeReference(AVBufferRef** reference);
/// Deletes `*dictionary`, which may be null, and nulls it.
void DropFakeDictionary(AVDictionary** dictionary);
/// Drops what the packet refers to, and makes it as a fresh one is.
void BlankFakePacket(AVPacket& packet);

std::int64_t RescaleFakeTime(std::int64_t value, AVRational from, AVRational to);

}  // namespace ostrel_native
