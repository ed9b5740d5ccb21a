// What the recorder relies on in FFmpeg: who owns a buffer, a packet, a dictionary or a frame after
// each call. The same assertions hold for the fake libraries, on which the recorder's other tests
// rest, and for the real ones.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "fakes/ffmpeg/fake_ffmpeg_set.h"
#include "recording/ffmpeg_api.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

constexpr char kRealLibraries[] = OSTREL_TEST_NATIVES_DIR;
constexpr int kSide = 64;

struct FfmpegContract : testing::TestWithParam<const char*> {
  bool IsReal() const { return std::string(GetParam()) == "RealLibraries"; }

  void SetUp() override {
    if (IsReal() && !std::filesystem::exists(std::string(kRealLibraries) + "/libavcodec.so.58")) {
      GTEST_SKIP() << "the FFmpeg libraries are not built: run scripts/build-ffmpeg.sh";
    }
    setenv("OSTREL_FFMPEG_LIBRARY_DIR", IsReal() ? kRealLibraries : fakes.directory.path.c_str(),
           1);
    fakes.state.AddEncoder("libx264", {AV_PIX_FMT_NV12});
    api.Load();
    ASSERT_TRUE(api.loaded) << api.error;
    api.av_log_set_level(AV_LOG_QUIET);
  }

  void TearDown() override {
    if (memory != nullptr) {
      Symbol<void(AVBufferPool**)>("av_buffer_pool_uninit")(&memory);
    }
    if (!IsReal()) {
      EXPECT_EQ(fakes.LiveObjects(), 0);
    }
  }

  template <typename Function>
  Function* Symbol(const char* name) {
    return reinterpret_cast<Function*>(dlsym(api.avutilHandle, name));
  }

  int References(const AVBufferRef* reference) {
    return IsReal() ? Symbol<int(const AVBufferRef*)>("av_buffer_get_ref_count")(reference)
                    : reference->buffer->references;
  }

  // Drops `reference`, which must be the last one to its buffer.
  void ExpectLast(AVBufferRef*& reference) {
    EXPECT_EQ(References(reference), 1);
    api.av_buffer_unref(&reference);
    EXPECT_EQ(reference, nullptr);
  }

  AVFrame* NewPicture() {
    AVFrame* const frame = api.av_frame_alloc();
    frame->format = AV_PIX_FMT_NV12;
    frame->width = frame->height = kSide;
    EXPECT_EQ(api.av_frame_get_buffer(frame, 32), 0);
    return frame;
  }

  AVCodecContext* NewEncoder() {
    const AVCodec* const codec = api.avcodec_find_encoder_by_name("libx264");
    AVCodecContext* const context = api.avcodec_alloc_context3(codec);
    context->width = context->height = kSide;
    context->pix_fmt = AV_PIX_FMT_NV12;
    context->time_base = {1, 90'000};
    context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    api.av_opt_set(context->priv_data, "preset", "veryfast", 0);
    api.av_opt_set(context->priv_data, "tune", "zerolatency", 0);
    EXPECT_EQ(api.avcodec_open2(context, codec, nullptr), 0);
    return context;
  }

  // One packet, out of a fresh picture.
  void Encode(AVCodecContext* encoder, std::int64_t pts, AVPacket* packet) {
    AVFrame* picture = NewPicture();
    picture->pts = pts;
    EXPECT_EQ(api.avcodec_send_frame(encoder, picture), 0);
    EXPECT_EQ(api.avcodec_receive_packet(encoder, packet), 0);
    api.av_frame_free(&picture);
  }

  // A device and a pool of `size` surfaces that need no hardware: of the real libraries, the kind
  // whose surfaces are whatever memory its pool is given.
  AVBufferRef* NewDevice() {
    AVBufferRef* device = nullptr;
    if (IsReal()) {
      device = Symbol<AVBufferRef*(AVHWDeviceType)>("av_hwdevice_ctx_alloc")(AV_HWDEVICE_TYPE_DRM);
    } else {
      EXPECT_EQ(api.av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, nullptr, nullptr, 0),
                0);
    }
    return device;
  }

  AVBufferRef* NewPool(AVBufferRef* device) {
    AVBufferRef* const frames = api.av_hwframe_ctx_alloc(device);
    AVHWFramesContext& pool = *reinterpret_cast<AVHWFramesContext*>(frames->data);
    pool.format = IsReal() ? AV_PIX_FMT_DRM_PRIME : AV_PIX_FMT_VAAPI;
    pool.sw_format = AV_PIX_FMT_NV12;
    pool.width = pool.height = kSide;
    pool.initial_pool_size = IsReal() ? 0 : 8;
    if (IsReal()) {
      pool.pool = memory = Symbol<AVBufferPool*(int, void*)>("av_buffer_pool_init")(64, nullptr);
    }
    EXPECT_EQ(api.av_hwframe_ctx_init(frames), 0);
    return frames;
  }

  // An MP4 muxer with one stream and an open file.
  AVFormatContext* NewMuxer(AVCodecContext* encoder) {
    const std::string path = directory.File("contract.mp4");
    AVFormatContext* muxer = nullptr;
    EXPECT_EQ(api.avformat_alloc_output_context2(&muxer, nullptr, "mp4", path.c_str()), 0);
    AVStream* const stream = api.avformat_new_stream(muxer, nullptr);
    stream->time_base = encoder->time_base;
    EXPECT_EQ(api.avcodec_parameters_from_context(stream->codecpar, encoder), 0);
    stream->codecpar->codec_tag = 0;
    EXPECT_EQ(api.avio_open(&muxer->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
    return muxer;
  }

  void FreeMuxer(AVFormatContext* muxer) {
    EXPECT_EQ(api.avio_closep(&muxer->pb), 0);
    EXPECT_EQ(muxer->pb, nullptr);
    api.avformat_free_context(muxer);
  }

  const TemporaryDirectory directory;
  FakeFfmpegSet fakes;
  FfmpegApi& api = FfmpegApi::Instance();
  AVBufferPool* memory = nullptr;  ///< of the real pool: freed by the user who set it
};

TEST_P(FfmpegContract, ABufferLivesAsLongAsAReferenceToIt) {
  AVFrame* frame = NewPicture();
  AVBufferRef* mine = api.av_buffer_ref(frame->buf[0]);
  EXPECT_NE(mine, frame->buf[0]);
  EXPECT_EQ(mine->data, frame->buf[0]->data);
  EXPECT_EQ(References(mine), 2);
  api.av_frame_free(&frame);
  EXPECT_EQ(frame, nullptr);
  ExpectLast(mine);
  api.av_buffer_unref(&mine);
  api.av_frame_free(&frame);
}

TEST_P(FfmpegContract, AFrameMovesWhenItIsMadeWritableWhileSomebodyElseHoldsIt) {
  AVFrame* frame = NewPicture();
  const std::uint8_t* const place = frame->data[0];
  EXPECT_EQ(api.av_frame_make_writable(frame), 0);
  EXPECT_EQ(frame->data[0], place);
  AVBufferRef* mine = api.av_buffer_ref(frame->buf[0]);
  EXPECT_EQ(api.av_frame_make_writable(frame), 0);
  EXPECT_NE(frame->data[0], place);
  ExpectLast(mine);
  api.av_frame_free(&frame);
}

TEST_P(FfmpegContract, AFreedFrameGivesItsPoolBack) {
  AVBufferRef* device = NewDevice();
  AVBufferRef* frames = NewPool(device);
  AVFrame* frame = api.av_frame_alloc();
  frame->hw_frames_ctx = api.av_buffer_ref(frames);
  EXPECT_EQ(References(frames), 2);
  api.av_frame_free(&frame);
  ExpectLast(frames);
  ExpectLast(device);
}

TEST_P(FfmpegContract, APoolHoldsItsDeviceAndTheDeviceNothing) {
  AVBufferRef* device = NewDevice();
  EXPECT_EQ(References(device), 1);
  AVBufferRef* frames = NewPool(device);
  EXPECT_EQ(References(device), 2);
  api.av_buffer_unref(&frames);
  ExpectLast(device);
}

TEST_P(FfmpegContract, ASurfaceOverwritesTheReferenceThatItsFrameHasAlready) {
  AVBufferRef* device = NewDevice();
  AVBufferRef* frames = NewPool(device);
  AVFrame* surface = api.av_frame_alloc();
  AVBufferRef* mine = surface->hw_frames_ctx = api.av_buffer_ref(frames);
  EXPECT_EQ(api.av_hwframe_get_buffer(frames, surface, 0), 0);
  ASSERT_NE(surface->hw_frames_ctx, nullptr);
  EXPECT_NE(surface->hw_frames_ctx, mine);
  EXPECT_EQ(References(frames), 3);
  EXPECT_NE(surface->buf[0], nullptr);
  api.av_buffer_unref(&mine);
  api.av_frame_free(&surface);
  ExpectLast(frames);
  ExpectLast(device);
}

TEST_P(FfmpegContract, AnEncoderThatIsFreedGivesItsPoolBack) {
  AVBufferRef* device = NewDevice();
  AVBufferRef* frames = NewPool(device);
  AVCodecContext* context = api.avcodec_alloc_context3(api.avcodec_find_encoder_by_name("libx264"));
  context->hw_frames_ctx = api.av_buffer_ref(frames);
  api.avcodec_free_context(&context);
  EXPECT_EQ(context, nullptr);
  api.avcodec_free_context(&context);
  ExpectLast(frames);
  ExpectLast(device);
}

TEST_P(FfmpegContract, AnEncoderReadsAPictureAndLeavesItToItsOwner) {
  AVCodecContext* encoder = NewEncoder();
  AVFrame* picture = NewPicture();
  AVPacket* packet = api.av_packet_alloc();
  picture->pts = 0;
  EXPECT_EQ(api.avcodec_send_frame(encoder, picture), 0);
  EXPECT_NE(picture->buf[0], nullptr);
  EXPECT_EQ(api.avcodec_receive_packet(encoder, packet), 0);
  EXPECT_EQ(References(picture->buf[0]), 1);
  EXPECT_EQ(api.avcodec_receive_packet(encoder, packet), AVERROR(EAGAIN));
  EXPECT_EQ(api.avcodec_send_frame(encoder, nullptr), 0);
  EXPECT_EQ(api.avcodec_receive_packet(encoder, packet), AVERROR_EOF);
  api.av_packet_free(&packet);
  api.av_frame_free(&picture);
  api.avcodec_free_context(&encoder);
}

TEST_P(FfmpegContract, APictureInAnEncoderThatIsFreedIsFreedWithIt) {
  fakes.state.encoderDelay = 1;
  AVCodecContext* encoder = NewEncoder();
  AVFrame* picture = NewPicture();
  picture->pts = 0;
  AVBufferRef* mine = api.av_buffer_ref(picture->buf[0]);
  EXPECT_EQ(api.avcodec_send_frame(encoder, picture), 0);
  api.avcodec_free_context(&encoder);
  api.av_frame_free(&picture);
  ExpectLast(mine);
}

TEST_P(FfmpegContract, APacketGivesItsOldContentBackWhenItIsFilledEmptiedOrFreed) {
  AVCodecContext* encoder = NewEncoder();
  AVPacket* packet = api.av_packet_alloc();
  EXPECT_EQ(packet->buf, nullptr);
  Encode(encoder, 0, packet);
  ASSERT_NE(packet->buf, nullptr);
  AVBufferRef* first = api.av_buffer_ref(packet->buf);
  Encode(encoder, 3000, packet);
  ExpectLast(first);
  AVBufferRef* second = api.av_buffer_ref(packet->buf);
  api.av_packet_unref(packet);
  EXPECT_EQ(packet->buf, nullptr);
  EXPECT_EQ(packet->size, 0);
  ExpectLast(second);
  api.av_packet_unref(packet);
  Encode(encoder, 6000, packet);
  AVBufferRef* third = api.av_buffer_ref(packet->buf);
  api.av_packet_free(&packet);
  EXPECT_EQ(packet, nullptr);
  ExpectLast(third);
  api.av_packet_free(&packet);
  api.avcodec_free_context(&encoder);
}

TEST_P(FfmpegContract, AMuxerTakesAPacketsContentAndTheOptionsThatItKnows) {
  AVCodecContext* encoder = NewEncoder();
  AVFormatContext* muxer = NewMuxer(encoder);
  AVDictionary* options = nullptr;
  api.av_dict_set(&options, "movflags", "+faststart", 0);
  api.av_dict_set(&options, "movflags", "+faststart", 0);
  ASSERT_NE(options, nullptr);
  EXPECT_GE(api.avformat_write_header(muxer, &options), 0);
  EXPECT_EQ(options, nullptr);
  api.av_dict_free(&options);
  AVPacket* packet = api.av_packet_alloc();
  Encode(encoder, 0, packet);
  packet->stream_index = muxer->streams[0]->index;
  EXPECT_EQ(api.av_interleaved_write_frame(muxer, packet), 0);
  EXPECT_EQ(packet->buf, nullptr);
  EXPECT_EQ(packet->size, 0);
  EXPECT_EQ(api.av_write_trailer(muxer), 0);
  api.av_packet_free(&packet);
  FreeMuxer(muxer);
  api.avcodec_free_context(&encoder);
}

TEST_P(FfmpegContract, AMuxerThatRefusesAPacketHasTakenItsContentAllTheSame) {
  AVCodecContext* encoder = NewEncoder();
  AVFormatContext* muxer = NewMuxer(encoder);
  ASSERT_GE(api.avformat_write_header(muxer, nullptr), 0);
  AVPacket* packet = api.av_packet_alloc();
  for (const std::int64_t pts : {3000, 6000}) {
    Encode(encoder, pts, packet);
    packet->stream_index = muxer->streams[0]->index;
    EXPECT_EQ(api.av_interleaved_write_frame(muxer, packet), 0);
  }
  Encode(encoder, 9000, packet);
  packet->stream_index = muxer->streams[0]->index;
  packet->pts = packet->dts = 6000;
  AVBufferRef* mine = api.av_buffer_ref(packet->buf);
  fakes.state.results["av_interleaved_write_frame"] = {AVERROR(EINVAL)};
  EXPECT_EQ(api.av_interleaved_write_frame(muxer, packet), AVERROR(EINVAL));
  EXPECT_EQ(packet->buf, nullptr);
  ExpectLast(mine);
  EXPECT_EQ(api.av_write_trailer(muxer), 0);
  api.av_packet_free(&packet);
  FreeMuxer(muxer);
  api.avcodec_free_context(&encoder);
}

TEST_P(FfmpegContract, ADictionaryIsMadeByItsFirstEntryAndFreedWithAll) {
  AVDictionary* options = nullptr;
  EXPECT_EQ(api.av_dict_set(&options, "movflags", "+faststart", 0), 0);
  EXPECT_NE(options, nullptr);
  api.av_dict_free(&options);
  EXPECT_EQ(options, nullptr);
  api.av_dict_free(&options);
}

INSTANTIATE_TEST_SUITE_P(Of, FfmpegContract, testing::Values("FakeLibraries", "RealLibraries"),
                         [](const testing::TestParamInfo<const char*>& test) {
                           return std::string(test.param);
                         });

}  // namespace
}  // namespace ostrel_native
