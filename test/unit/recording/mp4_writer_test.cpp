// The file of a recording, on the fake muxer.
#include "unit/recording/linux_backend_fixture.h"

namespace ostrel_native {
namespace {

using Mp4WriterTest = LinuxBackendTest;

struct StartFailure {
  std::string function;
  int result = 0;
  std::string text;
};

void PrintTo(const StartFailure& failure, std::ostream* stream) {
  *stream << failure.text;
}

struct FailedStart : Mp4WriterTest, testing::WithParamInterface<StartFailure> {};

TEST_P(FailedStart, TellsWhatFailedAndLeavesTheBackendFresh) {
  AddSoftwareEncoder();
  Script(GetParam().function, {GetParam().result});
  EXPECT_EQ(Start(), GetParam().text);
  ExpectFresh();
  EXPECT_EQ(Encode(), "The FFmpeg recording session is not running");
  EXPECT_EQ(Start(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Stages, FailedStart,
    testing::Values(StartFailure{"avformat_alloc_output_context2", -12,
                                 "Creating the MP4 output failed: text of -12"},
                    StartFailure{"avformat_new_stream", 1, "Could not create the MP4 video stream"},
                    StartFailure{"avcodec_parameters_from_context", -22,
                                 "Configuring the MP4 stream failed: text of -22"},
                    StartFailure{"avio_open", -13, "Opening the MP4 output failed: text of -13"},
                    StartFailure{"avformat_write_header", -28,
                                 "Writing the MP4 header failed: text of -28"}),
    [](const testing::TestParamInfo<StartFailure>& test) { return test.param.function; });

TEST_F(Mp4WriterTest, AMuxerThatIsMissingAfterASuccessFailsTheStart) {
  AddSoftwareEncoder();
  Script("avformat_alloc_output_context2", {1});
  EXPECT_EQ(Start(), "Creating the MP4 output failed: text of 0");
}

TEST_F(Mp4WriterTest, AFailedHeaderClosesTheFileBeforeTheMuxer) {
  AddSoftwareEncoder();
  Script("avformat_write_header", {-28});
  EXPECT_NE(Start(), "");
  const Names names = fakes.Calls({"av_dict_free", "av_packet_free", "avcodec_free_context",
                                   "avio_closep", "avformat_free_context", "av_write_trailer"});
  EXPECT_EQ(names, (Names{"av_dict_free", "av_packet_free", "avcodec_free_context", "avio_closep",
                          "avformat_free_context"}));
}

TEST_F(Mp4WriterTest, TheStreamTakesTheEncodersTimeBaseAndNoTag) {
  AddSoftwareEncoder();
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(fakes.Calls({"avio_open", "av_dict_set", "avformat_write_header"}),
            (Names{"avio_open(/videos/out.mp4 flags 2)", "av_dict_set(movflags=+faststart flags 0)",
                   "avformat_write_header(time base 1/90000)"}));
  EXPECT_EQ(fakes.state.writtenParameters.codec_tag, 0u);
}

TEST_F(Mp4WriterTest, AFormatWithoutFilesOpensAndClosesNone) {
  AddSoftwareEncoder();
  fakes.state.outputFlags = AVFMT_NOFILE;
  ASSERT_EQ(Start(), "");
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.Count("avio_open"), 0);
  EXPECT_EQ(fakes.Count("avio_closep"), 0);
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
}

TEST_F(Mp4WriterTest, PacketsAreRescaledToTheTimeBaseThatTheHeaderSet) {
  Open();
  fakes.state.packetDuration = 3000;
  EXPECT_EQ(Encode(0), "");
  EXPECT_EQ(Encode(10'000'000), "");
  EXPECT_EQ(fakes.Calls({"av_packet_rescale_ts"}),
            Names(2, "av_packet_rescale_ts(1/90000 to 1/12800)"));
  EXPECT_EQ(fakes.state.muxed,
            (std::vector<FakeMuxedPacket>{{0, 0, 427, 3}, {12'800, 12'800, 427, 3}}));
}

TEST_F(Mp4WriterTest, APacketWithoutADurationTakesThatOfTheLatestFrame) {
  fakes.state.streamTimeBase = {1, 90'000};
  fakes.state.encoderDelay = 1;
  Open();
  EXPECT_EQ(Encode(0, 1'000'000), "");
  EXPECT_EQ(Encode(1'000'000, 2'000'000), "");
  EXPECT_EQ(backend->Finalize(), "");
  EXPECT_EQ(fakes.state.muxed,
            (std::vector<FakeMuxedPacket>{{0, 0, 18'000, 3}, {9'000, 9'000, 18'000, 3}}));
}

TEST_F(Mp4WriterTest, APacketsOwnDurationIsKept) {
  fakes.state.streamTimeBase = {1, 90'000};
  fakes.state.packetDuration = 1;
  Open();
  EXPECT_EQ(Encode(0, 1'000'000), "");
  EXPECT_EQ(fakes.state.muxed, (std::vector<FakeMuxedPacket>{{0, 0, 1, 3}}));
}

TEST_F(Mp4WriterTest, APacketThatCannotBeWrittenIsLetGoAndFails) {
  Open();
  Script("av_interleaved_write_frame", {-28});
  EXPECT_EQ(Encode(), "Writing an H.264 packet failed: text of -28");
  EXPECT_EQ(fakes.Count("av_packet_unref"), 1);
  EXPECT_EQ(fakes.state.live["packet content"], 0);
}

TEST_F(Mp4WriterTest, APacketThatCannotBeWrittenAtTheEndStillGetsATrailer) {
  fakes.state.encoderDelay = 1;
  Open();
  ASSERT_EQ(Encode(), "");
  Script("av_interleaved_write_frame", {-28});
  EXPECT_EQ(backend->Finalize(), "Writing an H.264 packet failed: text of -28");
  EXPECT_EQ(fakes.Count("av_write_trailer"), 1);
}

TEST_F(Mp4WriterTest, AFailedTrailerStillClosesTheFile) {
  Open();
  Script("av_write_trailer", {-5});
  EXPECT_EQ(backend->Finalize(), "Finalizing the MP4 file failed: text of -5");
  EXPECT_EQ(fakes.Count("avio_closep"), 1);
  EXPECT_FALSE(Fields().headerWritten);
}

TEST_F(Mp4WriterTest, AFailedCloseIsTold) {
  Open();
  Script("avio_closep", {-5});
  EXPECT_EQ(backend->Finalize(), "Closing the MP4 file failed: text of -5");
  EXPECT_EQ(fakes.Calls({"avformat_free_context"}), Names{"avformat_free_context"});
}

}  // namespace
}  // namespace ostrel_native
