#include "recording/video_recorder_linux.h"

#include <filesystem>

#include "unit/recording/linux_backend_fixture.h"

namespace ostrel_native {
namespace {

// --- Availability

TEST_F(LinuxBackendTest, RecordingIsAvailableWithAnEncoderAndTheMp4Format) {
  AddSoftwareEncoder();
  EXPECT_TRUE(LinuxVideoRecordingAvailable());
  EXPECT_EQ(fakes.Calls({"avformat_alloc_output_context2"}),
            Names{"avformat_alloc_output_context2(mp4 probe.mp4)"});
  EXPECT_EQ(fakes.Count("avcodec_open2"), 0);
  EXPECT_EQ(fakes.Count("avio_open"), 0);
}

TEST_F(LinuxBackendTest, APositiveAvailabilityIsRemembered) {
  AddSoftwareEncoder();
  EXPECT_TRUE(LinuxVideoRecordingAvailable());
  fakes.state.calls.clear();
  EXPECT_TRUE(LinuxVideoRecordingAvailable());
  EXPECT_EQ(fakes.Names(), Names{});
}

TEST_F(LinuxBackendTest, RecordingIsNotAvailableWithoutAnEncoder) {
  EXPECT_FALSE(LinuxVideoRecordingAvailable());
  EXPECT_EQ(fakes.Count("avformat_alloc_output_context2"), 0);
}

TEST_F(LinuxBackendTest, RecordingIsNotAvailableWithoutTheMp4Format) {
  AddSoftwareEncoder();
  Script("avformat_alloc_output_context2", {-22});
  EXPECT_FALSE(LinuxVideoRecordingAvailable());
}

TEST_F(LinuxBackendTest, AProbeThatSucceedsWithoutAContextCounts) {
  AddSoftwareEncoder();
  Script("avformat_alloc_output_context2", {1});
  EXPECT_TRUE(LinuxVideoRecordingAvailable());
}

TEST_F(LinuxBackendTest, RecordingIsNotAvailableWithoutFfmpeg) {
  fakes.Remove(kFakeUtilName);
  EXPECT_FALSE(LinuxVideoRecordingAvailable());
}

// --- Error texts

TEST_F(LinuxBackendTest, AnErrorIsWordedAsStageAndDescription) {
  FfmpegApi& api = FfmpegApi::Instance();
  api.Load();
  EXPECT_EQ(FfmpegError(api, "Opening the MP4 output", -13),
            "Opening the MP4 output failed: text of -13");
  EXPECT_EQ(fakes.Calls({"av_strerror"}), Names{"av_strerror(-13 64)"});
}

TEST_F(LinuxBackendTest, AnUnknownErrorIsWordedByItsCode) {
  FfmpegApi& api = FfmpegApi::Instance();
  api.Load();
  Script("av_strerror", {-1});
  EXPECT_EQ(FfmpegError(api, "Opening the MP4 output", -4711),
            "Opening the MP4 output failed: error -4711");
}

TEST_F(LinuxBackendTest, AnErrorWithoutALoadedFfmpegIsWordedByItsCode) {
  FfmpegApi empty;
  EXPECT_EQ(FfmpegError(empty, "Stage", -5), "Stage failed: error -5");
}

// --- Start

TEST_F(LinuxBackendTest, MakingTheBackendLoadsNothing) {
  EXPECT_FALSE(FfmpegApi::Instance().loaded);
  ExpectFresh();
}

TEST_F(LinuxBackendTest, StartTellsWhyFfmpegCouldNotBeLoaded) {
  fakes.Use(kFakeUtilName, FakeFfmpegPath("without_av_hwframe_transfer_data/libavutil.so.56"));
  EXPECT_EQ(Start(), "FFmpeg runtime is missing symbol av_hwframe_transfer_data");
  ExpectFresh();
}

TEST_F(LinuxBackendTest, StartHasATextForALoadWithoutAReason) {
  FfmpegApi& api = FfmpegApi::Instance();
  fakes.Remove(kFakeUtilName);
  api.Load();
  api.error.clear();
  EXPECT_EQ(Start(), "FFmpeg is unavailable");
}

TEST_F(LinuxBackendTest, StartMakesEncoderThenFileThenHeader) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.Names({"avcodec_version", "avformat_version", "avutil_version"}),
            (Names{"avformat_alloc_output_context2", "avcodec_find_encoder_by_name",
                   "avcodec_alloc_context3", "av_opt_set", "av_opt_set", "avcodec_open2",
                   "av_frame_alloc", "av_packet_alloc", "av_frame_get_buffer",
                   "avformat_new_stream", "avcodec_parameters_from_context", "avio_open",
                   "av_dict_set", "avformat_write_header", "av_dict_free"}));
  EXPECT_EQ(fakes.Calls({"avformat_alloc_output_context2"}),
            Names{"avformat_alloc_output_context2(mp4 /videos/out.mp4)"});
  EXPECT_EQ(Fields().encoderName, "libx264");
  EXPECT_TRUE(Fields().headerWritten);
  EXPECT_FALSE(Fields().useVaapi);
}

TEST_F(LinuxBackendTest, ARelativePathReachesFfmpegAsAnAbsoluteOne) {
  AddSoftwareEncoder();
  const std::string here = std::filesystem::current_path().string();
  ASSERT_EQ(backend->Start("12:30 specimen.mp4", kTestWidth, kTestHeight, 30, 4'000'000), "");
  EXPECT_EQ(fakes.Calls({"avformat_alloc_output_context2", "avio_open"}),
            (Names{"avformat_alloc_output_context2(mp4 " + here + "/12:30 specimen.mp4)",
                   "avio_open(" + here + "/12:30 specimen.mp4 flags 2)"}));
}

TEST_F(LinuxBackendTest, TheTrialIsQuietAndTheFileIsNot) {
  AddSoftwareEncoder();
  fakes.state.logLevel = AV_LOG_VERBOSE;
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.LogLevels("avcodec_find_encoder_by_name"), std::vector<int>{AV_LOG_QUIET});
  EXPECT_EQ(fakes.LogLevels("avcodec_open2"), std::vector<int>{AV_LOG_QUIET});
  EXPECT_EQ(fakes.LogLevels("avio_open"), std::vector<int>{AV_LOG_VERBOSE});
  EXPECT_EQ(fakes.state.logLevel, AV_LOG_VERBOSE);
  fakes.state.logLevel = AV_LOG_INFO;
}

TEST_F(LinuxBackendTest, AFailedTrialRestoresTheLogLevelToo) {
  fakes.state.logLevel = AV_LOG_ERROR;
  EXPECT_EQ(Start(), "No usable FFmpeg H.264 encoder was found");
  EXPECT_EQ(fakes.state.logLevel, AV_LOG_ERROR);
  fakes.state.logLevel = AV_LOG_INFO;
}

// --- Frames

TEST_F(LinuxBackendTest, AFrameBeforeTheStartIsRefused) {
  EXPECT_EQ(Encode(), "The FFmpeg recording session is not running");
}

TEST_F(LinuxBackendTest, AFrameAfterTheEndIsRefused) {
  Open();
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(Encode(), "The FFmpeg recording session is not running");
}

TEST_F(LinuxBackendTest, TimesAreRescaledToTheEncodersTimeBase) {
  Open();
  // 333,333 ticks of 100 ns are 2999.997 ticks of 1/90000 s.
  EXPECT_EQ(Encode(0, 333'333), "");
  EXPECT_EQ(Encode(333'333, 333'334), "");
  EXPECT_EQ(Encode(10'000'000, 10'000'000), "");
  EXPECT_EQ(fakes.Calls({"avcodec_send_frame"}),
            (Names{"avcodec_send_frame(nv12 pts 0 duration 3000)",
                   "avcodec_send_frame(nv12 pts 3000 duration 3000)",
                   "avcodec_send_frame(nv12 pts 90000 duration 90000)"}));
  EXPECT_EQ(Fields().lastPacketDuration, 90'000);
}

TEST_F(LinuxBackendTest, TwoFramesOnOneTickOfTheEncoderGetTicksOfTheirOwn) {
  Open();
  // 100 ns are 0.0009 of a tick.
  for (const std::int64_t pts : {0, 1, 2, 333'333}) {
    EXPECT_EQ(Encode(pts, 1), "");
  }
  EXPECT_EQ(fakes.Calls({"avcodec_send_frame"}),
            (Names{"avcodec_send_frame(nv12 pts 0 duration 1)",
                   "avcodec_send_frame(nv12 pts 1 duration 1)",
                   "avcodec_send_frame(nv12 pts 2 duration 1)",
                   "avcodec_send_frame(nv12 pts 3000 duration 1)"}));
}

TEST_F(LinuxBackendTest, AGapThatNoFileCanHoldIsShortenedAndLaterFramesFollow) {
  Open();
  constexpr std::int64_t kWeek = 7 * 24 * 3600 * std::int64_t{10'000'000};
  EXPECT_EQ(Encode(0, kWeek), "");
  EXPECT_EQ(Encode(kWeek, kThirtiethSecond), "");
  EXPECT_EQ(Encode(kWeek + kThirtiethSecond, kThirtiethSecond), "");
  EXPECT_EQ(fakes.Calls({"avcodec_send_frame"}),
            (Names{"avcodec_send_frame(nv12 pts 0 duration 2147483646)",
                   "avcodec_send_frame(nv12 pts 2147483646 duration 3000)",
                   "avcodec_send_frame(nv12 pts 2147486646 duration 3000)"}));
}

TEST_F(LinuxBackendTest, ADurationBelowOneTickOfTheEncoderIsRaisedToOne) {
  Open();
  EXPECT_EQ(Encode(0, 1), "");
  EXPECT_EQ(fakes.state.sentFrames.at(0).pkt_duration, 1);
  EXPECT_EQ(Fields().lastPacketDuration, 1);
}

TEST_F(LinuxBackendTest, ThePictureIsConvertedIntoTheFrameAsItStandsWhenWritable) {
  Open();
  fakes.state.framesMove = true;
  for (const std::uint8_t luma : std::vector<std::uint8_t>{90, 120, 150}) {
    EXPECT_EQ(backend->EncodeFrame(Nv12Frame(kTestWidth, kTestHeight, luma), luma * 1000, 1000),
              "");
  }
  EXPECT_EQ(fakes.state.sentLuma, (std::vector<std::uint8_t>{90, 120, 150}));
  EXPECT_EQ(fakes.Count("av_frame_make_writable"), 3);
}

TEST_F(LinuxBackendTest, AFrameThatCannotBeMadeWritableFails) {
  Open();
  Script("av_frame_make_writable", {-12});
  EXPECT_EQ(Encode(), "Preparing a video frame failed: text of -12");
  EXPECT_EQ(fakes.Count("avcodec_send_frame"), 0);
}

TEST_F(LinuxBackendTest, ALayoutThatCannotBeConvertedFails) {
  Open();
  VideoRecorder::Frame frame = Nv12Frame(kTestWidth, kTestHeight);
  frame.format = static_cast<std::int32_t>(CameraPixelFormat::Mjpeg);
  EXPECT_EQ(backend->EncodeFrame(frame, 0, 1), "Unsupported or invalid camera frame format");
  EXPECT_EQ(fakes.Count("avcodec_send_frame"), 0);
}

TEST_F(LinuxBackendTest, AFrameOfAnotherSizeNeverReachesThePicture) {
  Open();
  for (const auto& [width, height] : {std::pair<int, int>{kTestWidth, 2 * kTestHeight},
                                      {kTestWidth - 2, kTestHeight},
                                      {kTestWidth + 2, kTestHeight}}) {
    EXPECT_EQ(backend->EncodeFrame(Nv12Frame(width, height), 0, 1),
              "Unsupported or invalid camera frame format");
  }
}

TEST_F(LinuxBackendTest, AFullEncoderIsDrainedAndAskedOnceMore) {
  Open();
  fakes.state.encoderDelay = 1;
  ASSERT_EQ(Encode(0), "");
  fakes.state.calls.clear();
  fakes.state.encoderDelay = 0;
  Script("avcodec_send_frame", {kEagain});
  EXPECT_EQ(Encode(kThirtiethSecond), "");
  EXPECT_EQ(fakes.Names({"av_frame_make_writable", "av_rescale_q", "av_packet_rescale_ts"}),
            (Names{"avcodec_send_frame", "avcodec_receive_packet", "av_interleaved_write_frame",
                   "av_packet_unref", "avcodec_receive_packet", "avcodec_send_frame",
                   "avcodec_receive_packet", "av_interleaved_write_frame", "av_packet_unref",
                   "avcodec_receive_packet"}));
}

TEST_F(LinuxBackendTest, AnEncoderThatStaysFullFails) {
  Open();
  Script("avcodec_send_frame", {kEagain, kEagain});
  EXPECT_EQ(Encode(), "Submitting a video frame failed: text of -11");
  EXPECT_EQ(fakes.Count("avcodec_send_frame"), 2);
}

TEST_F(LinuxBackendTest, AnErrorWhileMakingRoomIsTold) {
  Open();
  Script("avcodec_send_frame", {kEagain});
  Script("avcodec_receive_packet", {-5});
  EXPECT_EQ(Encode(), "Encoding a video frame failed: text of -5");
  EXPECT_EQ(fakes.Count("avcodec_send_frame"), 1);
}

TEST_F(LinuxBackendTest, ARefusedFrameFails) {
  Open();
  Script("avcodec_send_frame", {-22});
  EXPECT_EQ(Encode(), "Submitting a video frame failed: text of -22");
  EXPECT_EQ(fakes.Count("avcodec_receive_packet"), 0);
}

TEST_F(LinuxBackendTest, AnEncoderErrorFails) {
  Open();
  Script("avcodec_receive_packet", {-1094995529});
  EXPECT_EQ(Encode(), "Encoding a video frame failed: text of -1094995529");
}

TEST_F(LinuxBackendTest, AnEarlyEndOfTheEncoderEndsTheDrainWithoutError) {
  Open();
  Script("avcodec_receive_packet", {AVERROR_EOF});
  EXPECT_EQ(Encode(), "");
}

// --- The end

TEST_F(LinuxBackendTest, FinalizeFlushesFinishesClosesAndReleasesInOrder) {
  Open();
  fakes.state.encoderDelay = 1;
  ASSERT_EQ(Encode(), "");
  fakes.state.calls.clear();
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Names(),
            (Names{"avcodec_send_frame", "avcodec_receive_packet", "av_packet_rescale_ts",
                   "av_interleaved_write_frame", "av_packet_unref", "avcodec_receive_packet",
                   "av_write_trailer", "avio_closep", "av_packet_free", "av_frame_free",
                   "avcodec_free_context", "avformat_free_context"}));
  EXPECT_EQ(fakes.Calls({"avcodec_send_frame"}), Names{"avcodec_send_frame(flush)"});
  EXPECT_TRUE(Fields().finalized);
  EXPECT_EQ(Fields().stream, nullptr);
}

TEST_F(LinuxBackendTest, ASecondFinalizeDoesNothingWhateverTheFirstReturned) {
  Open();
  Script("av_write_trailer", {-28});
  EXPECT_EQ(backend->Finalize(), "Finalizing the MP4 file failed: text of -28");
  fakes.state.calls.clear();
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Names(), Names{});
}

TEST_F(LinuxBackendTest, FinalizeWithoutAStartDoesNothing) {
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Names(), Names{});
}

TEST_F(LinuxBackendTest, AFullEncoderIsDrainedBeforeTheFlush) {
  Open();
  Script("avcodec_send_frame", {kEagain});
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Calls({"avcodec_send_frame"}),
            (Names{"avcodec_send_frame(flush)", "avcodec_send_frame(flush)"}));
}

TEST_F(LinuxBackendTest, AnErrorWhileDrainingBeforeTheFlushIsTold) {
  Open();
  Script("avcodec_send_frame", {kEagain});
  Script("avcodec_receive_packet", {-5});
  EXPECT_EQ(backend->Finalize(), "Encoding a video frame failed: text of -5");
  EXPECT_EQ(fakes.Count("avcodec_send_frame"), 1);
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
}

TEST_F(LinuxBackendTest, AnEncoderThatRefusesTheFlushFails) {
  Open();
  Script("avcodec_send_frame", {kEagain, kEagain});
  EXPECT_EQ(backend->Finalize(), "Flushing the H.264 encoder failed: text of -11");
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
}

TEST_F(LinuxBackendTest, AnEncoderThatHasEndedAlreadyIsReadToItsEnd) {
  Open();
  fakes.state.flushing = true;
  Script("avcodec_send_frame", {AVERROR_EOF});
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Count("avcodec_receive_packet"), 1);
}

TEST_F(LinuxBackendTest, AnEncoderThatWantsMoreAfterTheFlushFails) {
  Open();
  Script("avcodec_receive_packet", {kEagain});
  EXPECT_EQ(backend->Finalize(), "The H.264 encoder did not finish flushing");
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
  EXPECT_EQ(fakes.Count("avio_closep"), 1);
}

TEST_F(LinuxBackendTest, OnlyTheFirstErrorOfTheEndIsTold) {
  Open();
  Script("avcodec_send_frame", {-1});
  Script("av_write_trailer", {-2});
  Script("avio_closep", {-3});
  EXPECT_EQ(backend->Finalize(), "Flushing the H.264 encoder failed: text of -1");
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
  EXPECT_EQ(fakes.Count("avio_closep"), 1);
}

TEST_F(LinuxBackendTest, TheTrailerIsWrittenAfterARefusedFrame) {
  Open();
  Script("avcodec_send_frame", {-22});
  EXPECT_NE(Encode(), "");
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
}

TEST_F(LinuxBackendTest, TheTrailerShowsWarningsAndTheReleaseIsQuiet) {
  Open();
  fakes.state.logLevel = AV_LOG_DEBUG;
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.LogLevels("av_write_trailer"), std::vector<int>{AV_LOG_WARNING});
  EXPECT_EQ(fakes.LogLevels("avio_closep"), std::vector<int>{AV_LOG_DEBUG});
  EXPECT_EQ(fakes.LogLevels("avcodec_free_context"), std::vector<int>{AV_LOG_QUIET});
  EXPECT_EQ(fakes.state.logLevel, AV_LOG_DEBUG);
  fakes.state.logLevel = AV_LOG_INFO;
}

TEST_F(LinuxBackendTest, DestroyedWithoutFinalizeItReleasesEverythingAndWritesNoTrailer) {
  Open();
  ASSERT_EQ(Encode(), "");
  fakes.state.calls.clear();
  backend.reset();
  EXPECT_EQ(fakes.Names(), (Names{"av_packet_free", "av_frame_free", "avcodec_free_context",
                                  "avio_closep", "avformat_free_context"}));
}

// --- VAAPI surfaces

TEST_F(LinuxBackendTest, AVaapiFrameIsUploadedAndFreedBeforeItsPackets) {
  AddVaapiEncoder();
  Open();
  EXPECT_EQ(Encode(kThirtiethSecond), "");
  EXPECT_EQ(fakes.Calls(),
            (Names{"av_frame_make_writable", "av_rescale_q(333333 from 1/10000000 to 1/90000)",
                   "av_rescale_q(333333 from 1/10000000 to 1/90000)", "av_frame_alloc",
                   "av_buffer_ref(pool)", "av_hwframe_get_buffer(pool 64x48 flags 0)",
                   "av_buffer_unref(pool)", "av_hwframe_transfer_data(23 to 46 flags 0)",
                   "avcodec_send_frame(vaapi pts 3000 duration 3000)", "av_frame_free(vaapi)",
                   "avcodec_receive_packet", "av_packet_rescale_ts(1/90000 to 1/12800)",
                   "av_interleaved_write_frame", "av_packet_unref", "avcodec_receive_packet"}));
}

TEST_F(LinuxBackendTest, EachFailureOfTheUploadFreesItsFrame) {
  AddVaapiEncoder();
  Open();
  Script("av_frame_alloc", {1});
  EXPECT_EQ(Encode(), "Could not allocate a VAAPI video frame");
  Script("av_buffer_ref", {1});
  EXPECT_EQ(Encode(), "Could not reference the VAAPI frame pool");
  Script("av_hwframe_get_buffer", {-12});
  EXPECT_EQ(Encode(), "Uploading a VAAPI video frame failed: text of -12");
  Script("av_hwframe_transfer_data", {-5});
  EXPECT_EQ(Encode(), "Uploading a VAAPI video frame failed: text of -5");
  Script("avcodec_send_frame", {-22});
  EXPECT_EQ(Encode(), "Submitting a video frame failed: text of -22");
  Script("avcodec_send_frame", {kEagain});
  Script("avcodec_receive_packet", {-5});
  EXPECT_EQ(Encode(), "Encoding a video frame failed: text of -5");
  EXPECT_EQ(fakes.state.live["frame"], 1);
  EXPECT_EQ(fakes.Calls({"av_frame_free"}), Names(5, "av_frame_free(vaapi)"));
}

TEST_F(LinuxBackendTest, ALongVaapiRecordingKeepsNoSurfaceAndNoReferenceToItsPool) {
  AddVaapiEncoder();
  Open();
  fakes.state.encoderDelay = 2;
  for (int frame = 0; frame < 100; ++frame) {
    ASSERT_EQ(Encode(frame * kThirtiethSecond), "");
  }
  EXPECT_EQ(fakes.state.live["surface"], 2) << "those that the encoder holds";
  EXPECT_EQ(fakes.state.live["frame"], 1);
  // The backend's, the encoder's, and one for each picture that the encoder holds.
  EXPECT_EQ(Fields().hwFrames->buffer->references, 4);
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.LiveObjects(), 0);
}

TEST_F(LinuxBackendTest, AVaapiRecordingReleasesPoolThenDeviceAfterTheEncoder) {
  AddVaapiEncoder();
  Open();
  EXPECT_EQ(backend->Finalize(), "");
  const Names names = fakes.Calls({"av_packet_free", "av_frame_free", "avcodec_free_context",
                                   "av_buffer_unref", "avformat_free_context"});
  EXPECT_EQ(names,
            (Names{"av_packet_free", "av_frame_free(nv12)", "avcodec_free_context",
                   "av_buffer_unref(pool)", "av_buffer_unref(device)", "avformat_free_context"}));
}

}  // namespace
}  // namespace ostrel_native
