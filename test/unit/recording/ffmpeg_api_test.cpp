#include "recording/ffmpeg_api.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <latch>
#include <map>
#include <thread>

#include "fakes/ffmpeg/fake_ffmpeg_set.h"
#include "unit/support/child_process.h"
#include "unit/support/cut_off_file.h"
#include "unit/support/loader_spy.h"

namespace ostrel_native {
namespace {

constexpr char kThreeNames[] = "libavutil.so.56, libavcodec.so.58, libavformat.so.58";
constexpr char kNoSuchFile[] = ": cannot open shared object file: No such file or directory";

struct Symbol {
  std::string library;
  std::string name;
};

const std::vector<Symbol> kSymbols = {
#define SYMBOL(library, name) {#library, #name},
#include "recording/ffmpeg_symbols.h"
};

std::string FileOf(const std::string& library) {
  return "lib" + library + (library == "avutil" ? ".so.56" : ".so.58");
}

// The file name behind the last slash.
std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

struct FfmpegApiTest : testing::Test {
  FfmpegApiTest() { setenv("OSTREL_FFMPEG_LIBRARY_DIR", fakes.directory.path.c_str(), 1); }

  // Of the libraries themselves, by file name.
  std::vector<OpenedLibrary> OpensOfFfmpeg() const {
    std::vector<OpenedLibrary> opens;
    for (const OpenedLibrary& open : spy.opened) {
      if (FfmpegApi::IsFfmpegFamilyLibrary(BaseName(open.path))) {
        opens.push_back(open);
      }
    }
    return opens;
  }

  FakeFfmpegSet fakes;
  LoaderSpy& spy = LoaderSpy::Instance();
  FfmpegApi api;
};

// A set that the bare names find, since libraries of these names are loaded already.
void PutOnSystemSearch() {
  for (const char* const name : {kFakeUtilName, kFakeCodecName, kFakeFormatName}) {
    ASSERT_NE(dlopen(FakeFfmpegPath(name).c_str(), RTLD_NOW), nullptr) << dlerror();
  }
}

TEST(FfmpegPaths, JoinPathPutsOneSeparatorBetween) {
  EXPECT_EQ(JoinPath("/opt/media", "libavutil.so.56"), "/opt/media/libavutil.so.56");
  EXPECT_EQ(JoinPath("/opt/media/", "libavutil.so.56"), "/opt/media/libavutil.so.56");
  EXPECT_EQ(JoinPath("", "libavutil.so.56"), "libavutil.so.56");
  EXPECT_EQ(JoinPath("/", "libavutil.so.56"), "/libavutil.so.56");
}

TEST(FfmpegPaths, BundledLibrariesLieBehindTheAddonsDirectory) {
  EXPECT_EQ(BundledLibraryDirectory("/app/build/Release/ostrel_native.node"),
            "/app/build/Release/../../natives/x64");
  EXPECT_EQ(BundledLibraryDirectory("./ostrel_native.node"), "./../../natives/x64");
  EXPECT_EQ(BundledLibraryDirectory("/ostrel_native.node"), "/../../natives/x64");
}

TEST(FfmpegPaths, AnAddonFileWithoutDirectoryHasNoBundledLibraries) {
  EXPECT_EQ(BundledLibraryDirectory("ostrel_native.node"), "");
  EXPECT_EQ(BundledLibraryDirectory(""), "");
}

TEST(FfmpegFamily, TakesEveryLibraryOfFfmpegInAnyVersion) {
  for (const char* const name :
       {"libavcodec.so.58", "libavformat.so", "libavutil.so.56.51.100", "libavfilter.so.7",
        "libavdevice.so.58", "libswresample.so.3", "libswscale.so.5", "libpostproc.so.55"}) {
    EXPECT_TRUE(FfmpegApi::IsFfmpegFamilyLibrary(name)) << name;
  }
}

TEST(FfmpegFamily, TakesNothingElse) {
  for (const char* const name : {"libx264.so.164", "libavresample.so.4", "libavcodec58.so",
                                 "xlibavcodec.so.58", "libavcodec", "/lib/libavcodec.so.58", ""}) {
    EXPECT_FALSE(FfmpegApi::IsFfmpegFamilyLibrary(name)) << name;
  }
}

TEST(FfmpegHeaders, HoldTheValuesThatRecordingReliesOn) {
  EXPECT_EQ(AV_CODEC_ID_H264, 27);
  EXPECT_EQ(AV_PIX_FMT_NV12, 23);
  EXPECT_EQ(AV_PIX_FMT_VAAPI, 46);
  EXPECT_EQ(AV_HWDEVICE_TYPE_VAAPI, 3);
  EXPECT_EQ(AVERROR(EAGAIN), -11);
  EXPECT_EQ(AV_LOG_QUIET, -8);
  EXPECT_EQ(AV_LOG_WARNING, 24);
}

TEST_F(FfmpegApiTest, LoadsASetFromTheNamedDirectory) {
  api.Load();
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(api.error, "");
#define SYMBOL(library, name) EXPECT_NE(api.name, nullptr) << #name;
#include "recording/ffmpeg_symbols.h"
}

TEST_F(FfmpegApiTest, TheListHasAllFunctionsOnce) {
  std::map<std::string, int> counts;
  for (const Symbol& symbol : kSymbols) {
    ++counts[symbol.library];
    ++counts[symbol.name];
  }
  EXPECT_EQ(counts["avcodec"], 13);
  EXPECT_EQ(counts["avformat"], 9);
  EXPECT_EQ(counts["avutil"], 19);
  EXPECT_EQ(counts.size(), 41u + 3u);
}

TEST_F(FfmpegApiTest, OpensUtilThenCodecThenFormatEachAfterAPlainPreload) {
  api.Load();
  const std::vector<OpenedLibrary> opens = OpensOfFfmpeg();
  ASSERT_EQ(opens.size(), 6u);
  for (std::size_t i = 0; i < 3; ++i) {
    const char* const names[] = {kFakeUtilName, kFakeCodecName, kFakeFormatName};
    EXPECT_EQ(opens[2 * i].path, fakes.directory.File(names[i]));
    EXPECT_EQ(opens[2 * i].flags, RTLD_NOW);
    EXPECT_EQ(opens[2 * i + 1].path, fakes.directory.File(names[i]));
    EXPECT_EQ(opens[2 * i + 1].flags, kFfmpegOpenFlags);
  }
  EXPECT_EQ(spy.closed, (std::vector<void*>{opens[0].handle, opens[2].handle, opens[4].handle}));
}

TEST_F(FfmpegApiTest, OpensTheLibrariesWithDeepBinding) {
#ifdef OSTREL_NO_DEEP_BINDING
  GTEST_SKIP() << "the sanitizer run-times refuse deep binding";
#endif
  api.Load();
  EXPECT_EQ(OpensOfFfmpeg().at(1).flags, 10);
  EXPECT_EQ(OpensOfFfmpeg().at(3).flags, 10);
  EXPECT_EQ(OpensOfFfmpeg().at(5).flags, 10);
}

// The library behind the fakes is not loaded before them here.
struct FfmpegDependencies : testing::Test {
  FfmpegDependencies() { setenv("OSTREL_FFMPEG_LIBRARY_DIR", FakeFfmpegPath("").c_str(), 1); }

  const std::string behindTheFakes = FakeFfmpegPath("libfake_ffmpeg_state.so");
  LoaderSpy& spy = LoaderSpy::Instance();
  FfmpegApi api;
};

TEST_F(FfmpegDependencies, ThoseOfOthersStayOpenWithoutDeepBinding) {
  api.Load();
  EXPECT_TRUE(api.loaded);
  std::vector<void*> foreign;
  bool sawTheOneBehind = false;
  for (const OpenedLibrary& open : spy.opened) {
    if (!FfmpegApi::IsFfmpegFamilyLibrary(BaseName(open.path))) {
      foreign.push_back(open.handle);
      EXPECT_EQ(open.flags, RTLD_NOW) << open.path;
      EXPECT_EQ(open.path.front(), '/') << open.path;
      sawTheOneBehind = sawTheOneBehind || open.path == behindTheFakes;
    }
  }
  EXPECT_TRUE(sawTheOneBehind);
  EXPECT_EQ(api.dependencies, foreign);
}

TEST_F(FfmpegDependencies, OneThatCannotBeOpenedIsPassedOver) {
  spy.silentlyMissing = {behindTheFakes};
  api.Load();
  EXPECT_TRUE(api.loaded);
  bool asked = false;
  for (const OpenedLibrary& open : spy.opened) {
    asked = asked || (open.path == behindTheFakes && open.handle == nullptr);
  }
  EXPECT_TRUE(asked);
  for (void* const dependency : api.dependencies) {
    EXPECT_NE(dependency, nullptr);
  }
}

TEST_F(FfmpegApiTest, ADirectoryWithATrailingSlashLoadsByTheSamePaths) {
  setenv("OSTREL_FFMPEG_LIBRARY_DIR", (fakes.directory.path + "/").c_str(), 1);
  api.Load();
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(OpensOfFfmpeg().at(0).path, fakes.directory.File(kFakeUtilName));
}

TEST_F(FfmpegApiTest, ANamedDirectoryWithoutLibrariesIsFinal) {
  PutOnSystemSearch();
  const TemporaryDirectory empty;
  setenv("OSTREL_FFMPEG_LIBRARY_DIR", empty.path.c_str(), 1);
  api.LoadOnce(fakes.directory.path);
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, "Could not load version-matched FFmpeg libraries from " + empty.path + ": " +
                           empty.path + "/libavutil.so.56" + kNoSuchFile);
}

TEST_F(FfmpegApiTest, TheNamedDirectoryComesBeforeTheBundledOne) {
  const FakeFfmpegSet bundled;
  api.LoadOnce(bundled.directory.path);
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(OpensOfFfmpeg().at(0).path, fakes.directory.File(kFakeUtilName));
}

TEST_F(FfmpegApiTest, AnEmptyNamedDirectoryCountsAsNone) {
  setenv("OSTREL_FFMPEG_LIBRARY_DIR", "", 1);
  api.LoadOnce(fakes.directory.path);
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(OpensOfFfmpeg().at(0).path, fakes.directory.File(kFakeUtilName));
}

TEST_F(FfmpegApiTest, AFailedBundledDirectoryIsSilentAndTheSystemIsSearched) {
  PutOnSystemSearch();
  unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
  api.LoadOnce("/nowhere");
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(api.error, "");
  EXPECT_EQ(OpensOfFfmpeg().back().path, kFakeFormatName);
}

TEST(FfmpegSystemSearch, FindsTheBareNamesOnTheLoadersPath) {
  RunWithLibraryPath(FakeFfmpegPath(""), [] {
    unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
    FfmpegApi api;
    api.LoadOnce("");
    EXPECT_TRUE(api.loaded) << api.error;
    EXPECT_EQ(LoaderSpy::Instance().opened.at(0).path, kFakeUtilName);
  });
}

TEST_F(FfmpegApiTest, LoadLooksBehindTheProgramsOwnFile) {
  PutOnSystemSearch();
  unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
  spy.opened.clear();
  api.Load();
  EXPECT_TRUE(api.loaded);
  const std::string tried = OpensOfFfmpeg().at(0).path;
  EXPECT_TRUE(tried.ends_with("/../../natives/x64/libavutil.so.56")) << tried;
}

TEST_F(FfmpegApiTest, AFailedSystemSearchNamesTheThreeLibraries) {
  if (dlopen(kFakeUtilName, RTLD_NOW) != nullptr) {
    GTEST_SKIP() << "this system has an FFmpeg of the generation";
  }
  unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
  api.LoadOnce("");
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, std::string("Could not load version-matched FFmpeg libraries (") +
                           kThreeNames + "): libavutil.so.56" + kNoSuchFile);
}

TEST_F(FfmpegApiTest, AMissingCodecClosesUtil) {
  fakes.Remove(kFakeCodecName);
  EXPECT_FALSE(
      api.OpenLibrarySet(fakes.directory.path, kFakeUtilName, kFakeCodecName, kFakeFormatName));
  EXPECT_EQ(api.detail, fakes.directory.File(kFakeCodecName) + kNoSuchFile);
  EXPECT_EQ(api.avutilHandle, nullptr);
  EXPECT_EQ(api.avcodecHandle, nullptr);
  EXPECT_EQ(api.avformatHandle, nullptr);
  const std::vector<OpenedLibrary> opens = OpensOfFfmpeg();
  ASSERT_EQ(opens.size(), 3u);
  EXPECT_EQ(spy.closed, (std::vector<void*>{opens[0].handle, opens[1].handle}));
}

TEST_F(FfmpegApiTest, AMissingFormatClosesCodecThenUtil) {
  fakes.Remove(kFakeFormatName);
  EXPECT_FALSE(
      api.OpenLibrarySet(fakes.directory.path, kFakeUtilName, kFakeCodecName, kFakeFormatName));
  EXPECT_EQ(api.detail, fakes.directory.File(kFakeFormatName) + kNoSuchFile);
  const std::vector<OpenedLibrary> opens = OpensOfFfmpeg();
  ASSERT_EQ(opens.size(), 5u);
  EXPECT_EQ(spy.closed, (std::vector<void*>{opens[0].handle, opens[2].handle, opens[3].handle,
                                            opens[1].handle}));
  EXPECT_EQ(dlopen(FakeFfmpegPath(kFakeUtilName).c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(FfmpegApiTest, AFailedSetCanBeFollowedByAnother) {
  fakes.Remove(kFakeFormatName);
  EXPECT_FALSE(
      api.OpenLibrarySet(fakes.directory.path, kFakeUtilName, kFakeCodecName, kFakeFormatName));
  const FakeFfmpegSet whole;
  EXPECT_TRUE(
      api.OpenLibrarySet(whole.directory.path, kFakeUtilName, kFakeCodecName, kFakeFormatName));
  EXPECT_TRUE(api.ResolveTable());
}

// The loader would map it, and the process die of SIGBUS.
TEST_F(FfmpegApiTest, ALibraryThatIsCutOffIsRefusedUnopenedAndTheReasonTellsWhere) {
  for (const char* const name : {kFakeUtilName, kFakeCodecName, kFakeFormatName}) {
    const CutOffFile cut(FakeFfmpegPath(name), name);
    fakes.Use(name, cut.path);
    spy.opened.clear();
    spy.closed.clear();
    FfmpegApi fresh;
    fresh.LoadOnce("");
    EXPECT_EQ(fresh.error, "Could not load version-matched FFmpeg libraries from " +
                               fakes.directory.path + ": " +
                               cut.TextFor(fakes.directory.File(name)));
    EXPECT_EQ(fresh.avutilHandle, nullptr);
    EXPECT_EQ(fresh.avcodecHandle, nullptr);
    EXPECT_EQ(fresh.avformatHandle, nullptr);
    for (const OpenedLibrary& open : OpensOfFfmpeg()) {
      EXPECT_NE(open.path, fakes.directory.File(name));
    }
    EXPECT_EQ(spy.closed.size(), OpensOfFfmpeg().size());
    fakes.Use(name, FakeFfmpegPath(name));
  }
}

TEST_F(FfmpegApiTest, ABundledLibraryThatIsCutOffIsPassedOverForTheSystemsOwn) {
  PutOnSystemSearch();
  unsetenv("OSTREL_FFMPEG_LIBRARY_DIR");
  const CutOffFile cut(FakeFfmpegPath(kFakeUtilName), kFakeUtilName);
  fakes.Use(kFakeUtilName, cut.path);
  api.LoadOnce(fakes.directory.path);
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(api.error, "");
}

TEST_F(FfmpegApiTest, ALibraryWithoutALinkMapGivesTheFallbackText) {
  spy.refuseLinkMap = true;
  api.Load();
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, "Could not load version-matched FFmpeg libraries from " +
                           fakes.directory.path + ": could not initialize FFmpeg dependencies");
  EXPECT_EQ(spy.closed, std::vector<void*>{OpensOfFfmpeg().at(0).handle});
}

TEST_F(FfmpegApiTest, AnOpenThatFailsWithoutATextGivesTheFallbackText) {
  spy.silentlyMissing = {fakes.directory.File(kFakeUtilName)};
  spy.opensBeforeMissing = 1;  // the preload's
  api.Load();
  EXPECT_EQ(api.error, "Could not load version-matched FFmpeg libraries from " +
                           fakes.directory.path + ": library not found");
}

TEST_F(FfmpegApiTest, AStaleLoaderTextIsNotTaken) {
  spy.silentlyMissing = {fakes.directory.File(kFakeUtilName)};
  dlopen("/nowhere.so", RTLD_NOW);
  api.Load();
  EXPECT_EQ(api.error, "Could not load version-matched FFmpeg libraries from " +
                           fakes.directory.path + ": could not initialize FFmpeg dependencies");
}

TEST_F(FfmpegApiTest, ATableWithoutLibrariesIsRefused) {
  EXPECT_FALSE(api.ResolveTable());
  EXPECT_EQ(api.error,
            std::string("Could not load version-matched FFmpeg libraries (") + kThreeNames + ")");
}

TEST_F(FfmpegApiTest, SeeksEachFunctionUnderItsLibrarysVersionTagInTheOrderOfTheList) {
  api.Load();
  std::vector<std::pair<std::string, std::string>> expected;
  expected.reserve(kSymbols.size());
  std::map<std::string, std::string> tags = {
      {"avcodec", "LIBAVCODEC_58"}, {"avformat", "LIBAVFORMAT_58"}, {"avutil", "LIBAVUTIL_56"}};
  for (const Symbol& symbol : kSymbols) {
    expected.emplace_back(symbol.name, tags[symbol.library]);
  }
  EXPECT_EQ(spy.versionedLookups, expected);
}

TEST_F(FfmpegApiTest, LibrariesWithoutVersionTagsLoad) {
  for (const char* const name : {kFakeUtilName, kFakeCodecName, kFakeFormatName}) {
    fakes.Use(name, FakeFfmpegPath(std::string("untagged/") + name));
  }
  api.Load();
  EXPECT_TRUE(api.loaded);
  EXPECT_EQ(api.error, "");
}

TEST_F(FfmpegApiTest, AnotherVersionTagResolvesAndOnlyTheMajorVersionDecides) {
  fakes.Use(kFakeCodecName, FakeFfmpegPath("generation59/libavcodec.so.58"));
  api.Load();
  EXPECT_TRUE(api.loaded);
}

TEST_F(FfmpegApiTest, AnotherGenerationUnderTheRightNameFailsTheVersionGate) {
  fakes.Use(kFakeCodecName, FakeFfmpegPath("generation59/libavcodec.so.58"));
  fakes.state.avcodecVersion = AV_VERSION_INT(59, 37, 100);
  api.Load();
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, "FFmpeg runtime ABI does not match the build headers");
}

TEST_F(FfmpegApiTest, EachLibrarysMajorVersionMustMatchExactly) {
  const auto loads = [this] {
    FfmpegApi fresh;
    fresh.Load();
    EXPECT_EQ(fresh.error,
              fresh.loaded ? "" : "FFmpeg runtime ABI does not match the build headers");
    return fresh.loaded;
  };
  fakes.state.avcodecVersion = AV_VERSION_INT(57, 255, 255);
  EXPECT_FALSE(loads());
  fakes.state.avcodecVersion = AV_VERSION_INT(58, 0, 0);
  EXPECT_TRUE(loads());
  fakes.state.avformatVersion = AV_VERSION_INT(59, 0, 0);
  EXPECT_FALSE(loads());
  fakes.state.avformatVersion = AV_VERSION_INT(58, 255, 255);
  EXPECT_TRUE(loads());
  fakes.state.avutilVersion = AV_VERSION_INT(57, 0, 0);
  EXPECT_FALSE(loads());
  fakes.state.avutilVersion = AV_VERSION_INT(55, 0, 0);
  EXPECT_FALSE(loads());
}

TEST_F(FfmpegApiTest, AFailedLoadIsNeverTriedAgain) {
  fakes.Use(kFakeFormatName, FakeFfmpegPath("without_avio_open/libavformat.so.58"));
  api.Load();
  EXPECT_EQ(api.error, "FFmpeg runtime is missing symbol avio_open");
  fakes.Use(kFakeFormatName, FakeFfmpegPath(kFakeFormatName));
  const std::size_t opens = spy.opened.size();
  api.Load();
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, "FFmpeg runtime is missing symbol avio_open");
  EXPECT_EQ(spy.opened.size(), opens);
}

TEST_F(FfmpegApiTest, AMissingSymbolLeavesTheLibrariesOpen) {
  fakes.Use(kFakeFormatName, FakeFfmpegPath("without_avio_open/libavformat.so.58"));
  api.Load();
  EXPECT_NE(api.avutilHandle, nullptr);
  EXPECT_NE(api.avcodecHandle, nullptr);
  EXPECT_NE(api.avformatHandle, nullptr);
  EXPECT_EQ(spy.closed.size(), 3u);  // those of the preloads
}

TEST_F(FfmpegApiTest, ConcurrentCallersLoadOnceAndAllSeeTheTable) {
  constexpr int kCallers = 8;
  std::latch together(kCallers);
  std::vector<std::thread> callers;
  callers.reserve(kCallers);
  for (int i = 0; i < kCallers; ++i) {
    callers.emplace_back([this, &together] {
      together.arrive_and_wait();
      api.Load();
      EXPECT_TRUE(api.loaded);
      EXPECT_NE(api.av_log_set_level, nullptr);
    });
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
  EXPECT_EQ(fakes.Count("avcodec_version"), 1);
}

TEST_F(FfmpegApiTest, TheInstanceIsOneObject) {
  EXPECT_EQ(&FfmpegApi::Instance(), &FfmpegApi::Instance());
  EXPECT_FALSE(FfmpegApi::Instance().loaded);
}

TEST_F(FfmpegApiTest, TheLogLevelIsRestoredAtTheEndOfItsScope) {
  api.Load();
  fakes.state.logLevel = AV_LOG_VERBOSE;
  {
    const FfmpegLogLevel quiet(api, AV_LOG_QUIET);
    EXPECT_EQ(fakes.state.logLevel, AV_LOG_QUIET);
  }
  EXPECT_EQ(fakes.state.logLevel, AV_LOG_VERBOSE);
}

struct MissingSymbol : FfmpegApiTest, testing::WithParamInterface<std::size_t> {};

TEST_P(MissingSymbol, FailsTheLoadAndIsNamed) {
  const Symbol& symbol = kSymbols[GetParam()];
  const std::string file = FileOf(symbol.library);
  fakes.Use(file, FakeFfmpegPath("without_" + symbol.name + "/" + file));
  api.Load();
  EXPECT_FALSE(api.loaded);
  EXPECT_EQ(api.error, "FFmpeg runtime is missing symbol " + symbol.name);
  const bool isNull[] = {
#define SYMBOL(library, name) api.name == nullptr,
#include "recording/ffmpeg_symbols.h"
  };
  for (std::size_t i = 0; i < kSymbols.size(); ++i) {
    EXPECT_EQ(isNull[i], i >= GetParam()) << kSymbols[i].name;
  }
}

INSTANTIATE_TEST_SUITE_P(Ffmpeg, MissingSymbol, testing::Range<std::size_t>(0, kSymbols.size()),
                         [](const testing::TestParamInfo<std::size_t>& test) {
                           return kSymbols[test.param].name;
                         });

}  // namespace
}  // namespace ostrel_native
