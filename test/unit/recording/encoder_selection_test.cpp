#include "recording/encoder_selection.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fakes/ffmpeg/fake_ffmpeg_set.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {
namespace {

using Candidates = std::vector<EncoderCandidate>;

const Candidates kWithoutHardware = {
    {"h264_v4l2m2m", false}, {"libx264", false}, {"libopenh264", false}, {"h264", false}};

void MakeFile(const std::string& path) {
  std::ofstream(path) << "x";
}

TEST(CandidateList, OnAFullyEquippedMachineGoesFromHardwareToSoftware) {
  EXPECT_EQ(CandidateList("", true, true), (Candidates{{"h264_vaapi", true},
                                                       {"h264_qsv", false},
                                                       {"h264_nvenc", false},
                                                       {"h264_v4l2m2m", false},
                                                       {"libx264", false},
                                                       {"libopenh264", false},
                                                       {"h264", false}}));
}

TEST(CandidateList, WithoutARenderNodeBeginsWithNvenc) {
  const Candidates candidates = CandidateList("", false, true);
  ASSERT_EQ(candidates.size(), 5u);
  EXPECT_EQ(candidates.front(), (EncoderCandidate{"h264_nvenc", false}));
  EXPECT_EQ(Candidates(candidates.begin() + 1, candidates.end()), kWithoutHardware);
}

TEST(CandidateList, WithoutAnyNodeBeginsWithV4l2) {
  EXPECT_EQ(CandidateList("", false, false), kWithoutHardware);
}

TEST(CandidateList, WithoutNvidiaNodesHasNoNvenc) {
  const Candidates candidates = CandidateList("", true, false);
  ASSERT_EQ(candidates.size(), 6u);
  EXPECT_EQ(candidates[0], (EncoderCandidate{"h264_vaapi", true}));
  EXPECT_EQ(candidates[1], (EncoderCandidate{"h264_qsv", false}));
  EXPECT_EQ(Candidates(candidates.begin() + 2, candidates.end()), kWithoutHardware);
}

TEST(CandidateList, AForcedEncoderIsTheOnlyOne) {
  EXPECT_EQ(CandidateList("libx264", true, true), (Candidates{{"libx264", false}}));
  EXPECT_EQ(CandidateList("no such encoder", false, false),
            (Candidates{{"no such encoder", false}}));
}

TEST(CandidateList, OnlyTheForcedVaapiEncoderTakesSurfaces) {
  EXPECT_EQ(CandidateList("h264_vaapi", false, false), (Candidates{{"h264_vaapi", true}}));
  EXPECT_EQ(CandidateList("h264_qsv", true, true), (Candidates{{"h264_qsv", false}}));
  EXPECT_EQ(CandidateList("hevc_vaapi", true, true), (Candidates{{"hevc_vaapi", false}}));
}

TEST(ForcedEncoder, IsWhatTheEnvironmentNames) {
  setenv("OSTREL_FFMPEG_ENCODER", "libx264", 1);
  EXPECT_EQ(ForcedEncoder(), "libx264");
  EXPECT_EQ(MachineCandidates(ForcedEncoder()), (Candidates{{"libx264", false}}));
}

TEST(ForcedEncoder, UnsetEmptyAndAutoAreNone) {
  unsetenv("OSTREL_FFMPEG_ENCODER");
  EXPECT_EQ(ForcedEncoder(), "");
  setenv("OSTREL_FFMPEG_ENCODER", "", 1);
  EXPECT_EQ(ForcedEncoder(), "");
  setenv("OSTREL_FFMPEG_ENCODER", "auto", 1);
  EXPECT_EQ(ForcedEncoder(), "");
}

TEST(ForcedEncoder, IsComparedToTheLetter) {
  setenv("OSTREL_FFMPEG_ENCODER", "AUTO", 1);
  EXPECT_EQ(ForcedEncoder(), "AUTO");
}

TEST(RenderNode, IsFoundByItsPrefix) {
  const TemporaryDirectory nodes;
  MakeFile(nodes.File("card0"));
  MakeFile(nodes.File("xrenderD128"));
  MakeFile(nodes.File("renderd128"));
  EXPECT_FALSE(HasUsableRenderNode(nodes.path));
  MakeFile(nodes.File("renderD128"));
  EXPECT_TRUE(HasUsableRenderNode(nodes.path));
  EXPECT_TRUE(HasUsableRenderNode(nodes.path + "/"));
}

TEST(RenderNode, OneThatLeadsNowhereIsNotUsable) {
  const TemporaryDirectory nodes;
  std::filesystem::create_symlink("/nowhere", nodes.File("renderD128"));
  EXPECT_FALSE(HasUsableRenderNode(nodes.path));
}

TEST(RenderNode, ALaterUsableOneCounts) {
  const TemporaryDirectory nodes;
  std::filesystem::create_symlink("/nowhere", nodes.File("renderD128"));
  MakeFile(nodes.File("renderD129"));
  EXPECT_TRUE(HasUsableRenderNode(nodes.path));
}

TEST(RenderNode, AMissingDirectoryHasNone) {
  EXPECT_FALSE(HasUsableRenderNode("/nowhere/dri"));
  EXPECT_FALSE(HasUsableRenderNode(""));
}

// Root may read and write everything: asked by an ordinary user, in a process of its own.
int AnswerOfAnOrdinaryUser(const std::string& directory) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
    return 2;
  }
  return HasUsableRenderNode(directory) ? 1 : 0;
}

TEST(RenderNode, OneThatIsOnlyReadableOrOnlyWritableIsNotUsable) {
  const TemporaryDirectory nodes;
  chmod(nodes.path.c_str(), 0755);
  MakeFile(nodes.File("renderD128"));
  for (const auto& [mode, answer] :
       {std::pair<mode_t, int>{0444, 0}, {0222, 0}, {0000, 0}, {0666, 1}}) {
    chmod(nodes.File("renderD128").c_str(), mode);
    EXPECT_EXIT(_exit(AnswerOfAnOrdinaryUser(nodes.path)), testing::ExitedWithCode(answer), "")
        << std::oct << mode;
  }
}

TEST(NvidiaNodes, BothMustBeUsable) {
  const TemporaryDirectory nodes;
  const std::string device = nodes.File("nvidia0");
  const std::string control = nodes.File("nvidiactl");
  EXPECT_FALSE(HasUsableNvidiaNodes(device, control));
  MakeFile(device);
  EXPECT_FALSE(HasUsableNvidiaNodes(device, control));
  MakeFile(control);
  EXPECT_TRUE(HasUsableNvidiaNodes(device, control));
  std::filesystem::remove(device);
  EXPECT_FALSE(HasUsableNvidiaNodes(device, control));
}

struct PotentialEncoder : testing::Test {
  PotentialEncoder() {
    setenv("OSTREL_FFMPEG_LIBRARY_DIR", fakes.directory.path.c_str(), 1);
    api.Load();
    fakes.state.calls.clear();
  }

  FakeFfmpegSet fakes;
  FfmpegApi api;
};

TEST_F(PotentialEncoder, IsSoughtByNameAndThenByCodec) {
  EXPECT_FALSE(HasPotentialH264Encoder(api));
  EXPECT_EQ(
      fakes.Calls(),
      (std::vector<std::string>{
          "avcodec_find_encoder_by_name(h264_vaapi)", "avcodec_find_encoder_by_name(h264_nvenc)",
          "avcodec_find_encoder_by_name(h264_qsv)", "avcodec_find_encoder_by_name(h264_v4l2m2m)",
          "avcodec_find_encoder_by_name(libx264)", "avcodec_find_encoder_by_name(libopenh264)",
          "avcodec_find_encoder_by_name(h264)", "avcodec_find_encoder(27)"}));
}

TEST_F(PotentialEncoder, TheFirstNameThatIsFoundEndsTheSearch) {
  fakes.state.AddEncoder("libx264");
  fakes.state.AddEncoder("h264_nvenc");
  EXPECT_TRUE(HasPotentialH264Encoder(api));
  EXPECT_EQ(fakes.Calls(), (std::vector<std::string>{"avcodec_find_encoder_by_name(h264_vaapi)",
                                                     "avcodec_find_encoder_by_name(h264_nvenc)"}));
}

TEST_F(PotentialEncoder, AnyEncoderOfTheCodecWillDo) {
  fakes.state.defaultEncoder = fakes.state.AddEncoder("h264_other");
  EXPECT_TRUE(HasPotentialH264Encoder(api));
}

}  // namespace
}  // namespace ostrel_native
