// The trial of encoders and the settings of the one that is taken.
#include "unit/recording/linux_backend_fixture.h"

namespace ostrel_native {
namespace {

using H264EncoderTest = LinuxBackendTest;

constexpr char kNone[] = "No usable FFmpeg H.264 encoder was found";

std::string NoneBecause(const std::string& reason) {
  return std::string(kNone) + " (" + reason + ")";
}

TEST_F(H264EncoderTest, AForcedEncoderThatIsNotFoundLeavesNoReason) {
  fakes.state.AddEncoder("h264_v4l2m2m");
  fakes.state.defaultEncoder = fakes.state.AddEncoder("h264_other");
  EXPECT_EQ(Start(), kNone);
  EXPECT_EQ(fakes.Calls({"avcodec_find_encoder_by_name", "avcodec_find_encoder"}),
            Names{"avcodec_find_encoder_by_name(libx264)"});
  ExpectFresh();
}

TEST_F(H264EncoderTest, AForcedEncoderThatFailsIsTheOnlyReason) {
  fakes.state.defaultEncoder = fakes.state.AddEncoder("h264_other");
  AddSoftwareEncoder();
  Script("avcodec_open2", {-1});
  EXPECT_EQ(Start(), NoneBecause("libx264: Opening the H.264 encoder failed: text of -1"));
  EXPECT_EQ(fakes.Count("avcodec_find_encoder"), 0);
}

TEST_F(H264EncoderTest, AutoTriesTheListInOrder) {
  Force("auto");
  EXPECT_EQ(Start(), kNone);
  const Names calls = fakes.Calls({"avcodec_find_encoder_by_name", "avcodec_find_encoder"});
  ASSERT_GE(calls.size(), 5u);  // more with hardware
  EXPECT_EQ(
      Names(calls.end() - 5, calls.end()),
      (Names{"avcodec_find_encoder_by_name(h264_v4l2m2m)", "avcodec_find_encoder_by_name(libx264)",
             "avcodec_find_encoder_by_name(libopenh264)", "avcodec_find_encoder_by_name(h264)",
             "avcodec_find_encoder(27)"}));
}

TEST_F(H264EncoderTest, TheFirstThatOpensEndsTheSearch) {
  Force("auto");
  fakes.state.AddEncoder("libx264");
  fakes.state.AddEncoder("libopenh264");
  EXPECT_EQ(Start(), "");
  EXPECT_EQ(Fields().encoderName, "libx264");
  EXPECT_EQ(fakes.Calls({"avcodec_open2"}), Names{"avcodec_open2(libx264)"});
}

TEST_F(H264EncoderTest, EveryFailureOfTheTrialIsListed) {
  Force("");
  fakes.state.AddEncoder("h264_v4l2m2m");
  fakes.state.AddEncoder("libx264", {AV_PIX_FMT_NV12});
  fakes.state.AddEncoder("libopenh264", {AV_PIX_FMT_YUV420P});
  fakes.state.defaultEncoder = fakes.state.AddEncoder("h264_omx");
  Script("avcodec_open2", {-19, -12, -5});
  EXPECT_EQ(Start(), NoneBecause("h264_v4l2m2m: Opening the H.264 encoder failed: text of -19; "
                                 "libx264: Opening the H.264 encoder failed: text of -12; "
                                 "libopenh264: encoder does not accept NV12 frames; "
                                 "h264_omx: Opening the H.264 encoder failed: text of -5"));
  ExpectFresh();
}

TEST_F(H264EncoderTest, AFailedCandidateIsReleasedBeforeTheNextIsTried) {
  unsetenv("OSTREL_FFMPEG_ENCODER");
  fakes.state.AddEncoder("h264_v4l2m2m");
  fakes.state.AddEncoder("libx264");
  Script("av_frame_get_buffer", {-12});
  fakes.state.logLevel = AV_LOG_ERROR;
  EXPECT_EQ(Start(), "");
  EXPECT_EQ(Fields().encoderName, "libx264");
  const Names names = fakes.Names({"avcodec_version", "avformat_version", "avutil_version"});
  const auto failed = std::find(names.begin(), names.end(), "av_strerror");
  ASSERT_NE(failed, names.end());
  EXPECT_EQ(Names(failed + 1, failed + 6),
            (Names{"av_packet_free", "av_frame_free", "avcodec_free_context",
                   "avcodec_find_encoder_by_name", "avcodec_alloc_context3"}));
  EXPECT_EQ(fakes.Count("avformat_free_context"), 0);
  EXPECT_EQ(fakes.state.logLevel, AV_LOG_ERROR);
  fakes.state.logLevel = AV_LOG_INFO;
}

TEST_F(H264EncoderTest, TheFallbackByCodecIsTriedLast) {
  Force("auto");
  fakes.state.defaultEncoder = fakes.state.AddEncoder("h264_omx");
  EXPECT_EQ(Start(), "");
  EXPECT_EQ(Fields().encoderName, "h264_omx");
}

TEST_F(H264EncoderTest, AnEncoderWithoutANameIsCalledByItsFormat) {
  Force("auto");
  AVCodec nameless = {};
  fakes.state.defaultEncoder = &nameless;
  Script("avcodec_open2", {-1});
  EXPECT_EQ(Start(), NoneBecause("H.264: Opening the H.264 encoder failed: text of -1"));
  EXPECT_EQ(Start(), "");
  EXPECT_EQ(Fields().encoderName, "H.264");
}

TEST_F(H264EncoderTest, TheContextIsSetUpForTheSession) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(1920, 1080, 30), "");
  const AVCodecContext& context = fakes.state.openedContext;
  EXPECT_EQ(context.codec_type, AVMEDIA_TYPE_VIDEO);
  EXPECT_EQ(context.codec_id, AV_CODEC_ID_H264);
  EXPECT_EQ(context.width, 1920);
  EXPECT_EQ(context.height, 1080);
  EXPECT_EQ(context.time_base.num, 1);
  EXPECT_EQ(context.time_base.den, 90'000);
  EXPECT_EQ(context.framerate.num, 30);
  EXPECT_EQ(context.framerate.den, 1);
  EXPECT_EQ(context.pix_fmt, AV_PIX_FMT_NV12);
  EXPECT_EQ(context.bit_rate, 4'000'000);
  EXPECT_EQ(context.gop_size, 60);
  EXPECT_EQ(context.max_b_frames, 0);
  EXPECT_EQ(context.profile, 77);
  EXPECT_EQ(context.flags, AV_CODEC_FLAG_GLOBAL_HEADER);
  EXPECT_EQ(context.hw_frames_ctx, nullptr);
  EXPECT_EQ(fakes.Calls({"avcodec_open2"}), Names{"avcodec_open2(libx264)"});
}

TEST_F(H264EncoderTest, WithoutAGlobalHeaderInTheFormatTheFlagStaysClear) {
  AddSoftwareEncoder();
  fakes.state.outputFlags = 0;
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.state.openedContext.flags, 0);
}

struct GopLength : H264EncoderTest, testing::WithParamInterface<std::pair<int, int>> {};

TEST_P(GopLength, IsTwoSeconds) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(kTestWidth, kTestHeight, GetParam().first), "");
  EXPECT_EQ(fakes.state.openedContext.gop_size, GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(FrameRates, GopLength,
                         testing::Values(std::pair(1, 2), std::pair(25, 50), std::pair(120, 240),
                                         std::pair(0, 1)));

struct ColourCase {
  int width = 0;
  int height = 0;
  int tag = 0;
};

void PrintTo(const ColourCase& size, std::ostream* stream) {
  *stream << size.width << " by " << size.height;
}

struct ColourTags : H264EncoderTest, testing::WithParamInterface<ColourCase> {};

TEST_P(ColourTags, FollowThePictureSizeInContextAndFrame) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(GetParam().width, GetParam().height), "");
  const AVCodecContext& context = fakes.state.openedContext;
  EXPECT_EQ(context.color_range, 1);
  EXPECT_EQ(context.color_primaries, GetParam().tag);
  EXPECT_EQ(context.color_trc, GetParam().tag);
  EXPECT_EQ(context.colorspace, GetParam().tag);
  const AVFrame& frame = *Fields().frame;
  EXPECT_EQ(frame.color_range, 1);
  EXPECT_EQ(frame.color_primaries, GetParam().tag);
  EXPECT_EQ(frame.color_trc, GetParam().tag);
  EXPECT_EQ(frame.colorspace, GetParam().tag);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ColourTags,
                         testing::Values(ColourCase{1280, 480, 1}, ColourCase{1278, 576, 6},
                                         ColourCase{1278, 578, 1}, ColourCase{640, 480, 6},
                                         ColourCase{1280, 578, 1}),
                         [](const testing::TestParamInfo<ColourCase>& test) {
                           return std::to_string(test.param.width) + "by" +
                                  std::to_string(test.param.height);
                         });

TEST_F(H264EncoderTest, OnlyLibx264GetsOptions) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.Calls({"av_opt_set"}),
            (Names{"av_opt_set(preset=veryfast flags 0)", "av_opt_set(tune=zerolatency flags 0)"}));
}

TEST_F(H264EncoderTest, OtherEncodersGetNoOptions) {
  fakes.state.AddEncoder("libx264rgb");
  Force("libx264rgb");
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.Count("av_opt_set"), 0);
}

TEST_F(H264EncoderTest, OptionsNeedPrivateData) {
  AddSoftwareEncoder();
  fakes.state.encodersHavePrivateData = false;
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.Count("av_opt_set"), 0);
}

TEST_F(H264EncoderTest, RefusedOptionsDoNotMatter) {
  AddSoftwareEncoder();
  Script("av_opt_set", {-1, -1});
  EXPECT_EQ(Start(), "");
}

TEST_F(H264EncoderTest, AnEncoderWithoutAPixelFormatListIsAccepted) {
  fakes.state.AddEncoder("libx264");
  EXPECT_EQ(Start(), "");
}

TEST_F(H264EncoderTest, AnEncoderWithoutNv12IsRefused) {
  fakes.state.AddEncoder("libx264", {AV_PIX_FMT_YUV420P, AV_PIX_FMT_VAAPI});
  EXPECT_EQ(Start(), NoneBecause("libx264: encoder does not accept NV12 frames"));
  EXPECT_EQ(fakes.Count("avcodec_alloc_context3"), 0);
}

TEST_F(H264EncoderTest, AVaapiEncoderWithoutSurfacesIsRefused) {
  fakes.state.AddEncoder("h264_vaapi", {AV_PIX_FMT_NV12});
  Force("h264_vaapi");
  EXPECT_EQ(Start(), NoneBecause("h264_vaapi: encoder does not accept VAAPI frames"));
}

struct TrialFailure {
  std::string function;
  int result = 0;
  std::string text;
};

void PrintTo(const TrialFailure& failure, std::ostream* stream) {
  *stream << failure.text;
}

struct SoftwareTrial : H264EncoderTest, testing::WithParamInterface<TrialFailure> {};

TEST_P(SoftwareTrial, TellsWhatFailedAndLeavesNothing) {
  AddSoftwareEncoder();
  Script(GetParam().function, {GetParam().result});
  EXPECT_EQ(Start(), NoneBecause("libx264: " + GetParam().text));
  ExpectFresh();
  EXPECT_EQ(Start(), "");
}

std::string FunctionName(const testing::TestParamInfo<TrialFailure>& test) {
  return test.param.function;
}

INSTANTIATE_TEST_SUITE_P(
    Failures, SoftwareTrial,
    testing::Values(
        TrialFailure{"avcodec_alloc_context3", 1, "could not allocate the encoder context"},
        TrialFailure{"avcodec_open2", -22, "Opening the H.264 encoder failed: text of -22"},
        TrialFailure{"av_frame_alloc", 1, "could not allocate FFmpeg frame buffers"},
        TrialFailure{"av_packet_alloc", 1, "could not allocate FFmpeg frame buffers"},
        TrialFailure{"av_frame_get_buffer", -12,
                     "Allocating the NV12 frame buffer failed: text of -12"}),
    FunctionName);

struct VaapiTrial : H264EncoderTest, testing::WithParamInterface<TrialFailure> {};

TEST_P(VaapiTrial, TellsWhatFailedAndLeavesNothing) {
  AddVaapiEncoder();
  Script(GetParam().function, {GetParam().result});
  EXPECT_EQ(Start(), NoneBecause("h264_vaapi: " + GetParam().text));
  ExpectFresh();
  EXPECT_EQ(Start(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Failures, VaapiTrial,
    testing::Values(
        TrialFailure{"av_hwdevice_ctx_create", -542398533,
                     "Creating a VAAPI device failed: text of -542398533"},
        TrialFailure{"av_hwframe_ctx_alloc", 1, "could not allocate the VAAPI frame pool"},
        TrialFailure{"av_hwframe_ctx_init", -38,
                     "Initializing the VAAPI frame pool failed: text of -38"},
        TrialFailure{"av_buffer_ref", 1, "could not attach the VAAPI frame pool"},
        TrialFailure{"avcodec_open2", -5, "Opening the H.264 encoder failed: text of -5"},
        TrialFailure{"av_frame_alloc", 1, "could not allocate FFmpeg frame buffers"}),
    FunctionName);

TEST_F(H264EncoderTest, AVaapiEncoderGetsAPoolOfEightSurfaces) {
  AddVaapiEncoder();
  ASSERT_EQ(Start(1280, 720), "");
  EXPECT_EQ(
      fakes.Calls({"av_hwdevice_ctx_create", "av_hwframe_ctx_alloc", "av_hwframe_ctx_init",
                   "av_buffer_ref", "avcodec_open2", "av_frame_get_buffer"}),
      (Names{"av_hwdevice_ctx_create(3)", "av_hwframe_ctx_alloc(device)",
             "av_hwframe_ctx_init(1280x720 format 46 from 23 size 8)", "av_buffer_ref(pool)",
             "avcodec_open2(h264_vaapi)", "av_frame_get_buffer(1280x720 format 23 alignment 32)"}));
  EXPECT_EQ(fakes.state.openedContext.pix_fmt, AV_PIX_FMT_VAAPI);
  EXPECT_NE(fakes.state.openedContext.hw_frames_ctx, nullptr);
  EXPECT_TRUE(Fields().useVaapi);
  EXPECT_EQ(Fields().encoderName, "h264_vaapi");
}

}  // namespace
}  // namespace ostrel_native
