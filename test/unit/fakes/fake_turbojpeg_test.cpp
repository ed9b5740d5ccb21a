// The fake of libjpeg-turbo, called through the real library's own prototypes.
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <array>
#include <string>
#include <vector>

#include "fakes/fake_library.h"

namespace ostrel_native {
namespace {

struct FakeTurboJpeg : testing::Test {
  FakeLibrary fake{FakePath("libturbojpeg.so")};
#define SYMBOL(name) decltype(&::name) name = fake.Symbol<decltype(&::name)>(#name);
#include "camera/frames/turbojpeg_symbols.h"

  FakeTurboJpeg() {
    fake.Send("reset");
  }
};

TEST_F(FakeTurboJpeg, MakesADecompressorUntilItIsToldNotTo) {
  EXPECT_NE(tjInitDecompress(), nullptr);
  fake.Send("answer tjInitDecompress 0");
  EXPECT_EQ(tjInitDecompress(), nullptr);
}

TEST_F(FakeTurboJpeg, GivesTheScriptedHeader) {
  fake.Send(
      "default tjDecompressHeader3.width 64\ndefault tjDecompressHeader3.height 48\n"
      "default tjDecompressHeader3.subsampling -1\nanswer tjDecompressHeader3 -1");
  const unsigned char jpeg = 0;
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colorspace = 9;
  EXPECT_EQ(tjDecompressHeader3(nullptr, &jpeg, 77, &width, &height, &subsampling, &colorspace),
            -1);
  EXPECT_EQ(width, 64);
  EXPECT_EQ(height, 48);
  EXPECT_EQ(subsampling, -1);
  EXPECT_EQ(colorspace, 0);
  EXPECT_EQ(fake.Calls()[0].arguments, std::vector<std::string>({"null", "ptr", "77"}));
}

TEST_F(FakeTurboJpeg, FillsRowsAndPlanesOfTheScriptedSizeOnly) {
  fake.Send(
      "default tjDecompress2.byte 5\n"
      "default tjDecompressToYUVPlanes.y 1\ndefault tjDecompressToYUVPlanes.u 2\n"
      "default tjDecompressToYUVPlanes.chroma_width 1\n"
      "default tjDecompressToYUVPlanes.chroma_height 1");
  std::array<unsigned char, 8> rows = {};
  EXPECT_EQ(tjDecompress2(nullptr, nullptr, 0, rows.data(), 1, 4, 2, 0, 0), 0);
  EXPECT_EQ(rows, (std::array<unsigned char, 8>{5, 5, 5, 0, 5, 5, 5, 0}));

  std::array<unsigned char, 6> luma = {};
  std::array<unsigned char, 2> u = {};
  std::array<unsigned char, 2> v = {};
  std::array<unsigned char*, 3> planes = {luma.data(), u.data(), v.data()};
  std::array<int, 3> strides = {3, 2, 2};
  EXPECT_EQ(tjDecompressToYUVPlanes(nullptr, nullptr, 0, planes.data(), 2, strides.data(), 2, 0),
            0);
  EXPECT_EQ(luma, (std::array<unsigned char, 6>{1, 1, 0, 1, 1, 0}));
  EXPECT_EQ(u, (std::array<unsigned char, 2>{2, 0}));
  EXPECT_EQ(v, (std::array<unsigned char, 2>{0, 0}));
}

TEST_F(FakeTurboJpeg, AnswersPlaneSizesByTheirArguments) {
  fake.Send("default tjPlaneWidth@1,64,1 32\ndefault tjPlaneHeight -1");
  EXPECT_EQ(tjPlaneWidth(1, 64, 1), 32);
  EXPECT_EQ(tjPlaneWidth(1, 64, 0), 0);
  EXPECT_EQ(tjPlaneHeight(1, 48, 1), -1);
  EXPECT_EQ(tjDestroy(nullptr), 0);
  EXPECT_STREQ(tjGetErrorStr2(nullptr), "scripted failure");
}

}  // namespace
}  // namespace ostrel_native
