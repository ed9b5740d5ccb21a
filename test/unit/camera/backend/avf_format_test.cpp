#include "camera/backend/avf_format.h"

#include <gtest/gtest.h>

#include <string>

namespace ostrel_native {
namespace {

void ExpectFormat(const std::string& descriptor, int width, int height, int frameRate,
                  const std::string& type) {
  const AvfFormat format = ParseAvfDescriptor(descriptor);
  EXPECT_EQ(format.width, width) << descriptor;
  EXPECT_EQ(format.height, height) << descriptor;
  EXPECT_EQ(format.frameRate, frameRate) << descriptor;
  EXPECT_EQ(format.type, type) << descriptor;
}

TEST(ExtractFirstPositiveInt, WithoutDigitsIsZero) {
  EXPECT_EQ(ExtractFirstPositiveInt(""), 0);
  EXPECT_EQ(ExtractFirstPositiveInt("abc"), 0);
  EXPECT_EQ(ExtractFirstPositiveInt("-+."), 0);
}

TEST(ExtractFirstPositiveInt, TakesTheFirstRunOfDigits) {
  EXPECT_EQ(ExtractFirstPositiveInt("12x"), 12);
  EXPECT_EQ(ExtractFirstPositiveInt("about 007 or 8"), 7);
  EXPECT_EQ(ExtractFirstPositiveInt("29.97"), 29);
}

TEST(ExtractFirstPositiveInt, LeavesTheSignOut) {
  EXPECT_EQ(ExtractFirstPositiveInt("-7"), 7);
}

TEST(ExtractFirstPositiveInt, BeyondInt32IsZero) {
  EXPECT_EQ(ExtractFirstPositiveInt("2147483647"), 2147483647);
  EXPECT_EQ(ExtractFirstPositiveInt("2147483648"), 0);
  EXPECT_EQ(ExtractFirstPositiveInt("99999999999"), 0);
  // The run that does not fit is the first: a later one does not stand in for it.
  EXPECT_EQ(ExtractFirstPositiveInt("99999999999 5"), 0);
}

TEST(ParseAvfDescriptor, ReadsSizeTypeAndRate) {
  ExpectFormat("640x480; yuy2; 29.97 fps", 640, 480, 29, "yuy2");
  ExpectFormat("640x480;yuy2;60Hz", 640, 480, 60, "yuy2");
  ExpectFormat("640x480; yuy2; FPS 15", 640, 480, 15, "yuy2");
}

TEST(ParseAvfDescriptor, TakesABareNumberForARate) {
  ExpectFormat("640x480; yuy2; 30", 640, 480, 30, "yuy2");
  ExpectFormat("640x480; yuy2; 24.0 1", 640, 480, 24, "yuy2");
}

TEST(ParseAvfDescriptor, DoesNotTakeANumberWithOtherWordsForARate) {
  ExpectFormat("640x480; yuy2; 30 frames", 640, 480, 30, "yuy2");
  ExpectFormat("640x480; yuy2; 15 frames", 640, 480, 30, "yuy2");
}

TEST(ParseAvfDescriptor, TakesTheFirstPartThatReadsAsARate) {
  ExpectFormat("640x480; yuy2; 15 frames; 25; 50 fps", 640, 480, 25, "yuy2");
  ExpectFormat("640x480; yuy2; ; 0 fps; fps; 12 hz", 640, 480, 12, "yuy2");
  ExpectFormat("640x480; yuy2; 99999999999 fps; 20", 640, 480, 20, "yuy2");
}

TEST(ParseAvfDescriptor, ASecondPartMayBeTypeAndRateAtOnce) {
  ExpectFormat("640x480; 25", 640, 480, 25, "25");
  ExpectFormat("640x480; 25 fps mjpg", 640, 480, 25, "25 fps mjpg");
}

TEST(ParseAvfDescriptor, WithoutASecondPartTheWholeDescriptorIsTheType) {
  ExpectFormat("640x480", 640, 480, 30, "640x480");
  ExpectFormat(" 640x480 ", 640, 480, 30, " 640x480 ");
  ExpectFormat(" 640x480 ;  ; 10 fps ", 640, 480, 10, " 640x480 ;  ; 10 fps ");
  ExpectFormat(" 640x480;", 640, 480, 30, " 640x480;");
}

TEST(ParseAvfDescriptor, SplitsTheSizeAtTheFirstCross) {
  ExpectFormat("1920x1080;a", 1920, 1080, 30, "a");
  ExpectFormat("1920 X 1080 pixels;a", 1920, 1080, 30, "a");
  ExpectFormat("12x34x56;a", 12, 34, 30, "a");
  // The cross of "max" comes first, so no width stands before it.
  ExpectFormat("max 640x480;a", 0, 0, 30, "a");
}

TEST(ParseAvfDescriptor, ASizeWithAnEmptySideIsNone) {
  ExpectFormat("0x480; yuy2", 0, 0, 30, "yuy2");
  ExpectFormat("640x0; yuy2", 0, 0, 30, "yuy2");
  ExpectFormat("640x; yuy2", 0, 0, 30, "yuy2");
  ExpectFormat("640 by 480; yuy2", 0, 0, 30, "yuy2");
}

TEST(ParseAvfDescriptor, ARateInTheFirstPartIsItsFirstNumber) {
  ExpectFormat("1280x720 30fps", 1280, 720, 1280, "1280x720 30fps");
  ExpectFormat("Fps 24", 0, 0, 24, "Fps 24");
  ExpectFormat("fps", 0, 0, 30, "fps");
  ExpectFormat("1280x720 60hz", 1280, 720, 30, "1280x720 60hz");
}

TEST(ParseAvfDescriptor, ALaterRateGoesBeforeThatOfTheFirstPart) {
  ExpectFormat("1280x720 30fps; a; 25 fps", 1280, 720, 25, "a");
}

TEST(ParseAvfDescriptor, AnEmptyDescriptorGivesTheDefaults) {
  ExpectFormat("", 0, 0, 30, "");
  ExpectFormat(";", 0, 0, 30, ";");
  ExpectFormat(" ; ; ", 0, 0, 30, " ; ; ");
}

TEST(ParseAvfDescriptor, AcceptsAnyByte) {
  ExpectFormat("640x480\x80\xFF;\xC4\xFF\x80; 30 \xE9 fps", 640, 480, 30, "\xC4\xFF\x80");
  ExpectFormat("640x480; \t\v\f\r\n yuy2\n; 20", 640, 480, 20, "yuy2");
}

}  // namespace
}  // namespace ostrel_native
