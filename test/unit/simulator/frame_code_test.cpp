#include "simulator/frame_code.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ostrel_simulator {
namespace {

// A picture with rows of `padding` bytes more than their pixels need.
struct Picture {
  int width;
  int height;
  int bytesPerPixel;
  int bytesPerRow;
  std::vector<std::uint8_t> bytes;

  Picture(int pictureWidth, int pictureHeight, int pixelBytes, int padding = 0)
      : width(pictureWidth),
        height(pictureHeight),
        bytesPerPixel(pixelBytes),
        bytesPerRow(pictureWidth * pixelBytes + padding),
        bytes(static_cast<std::size_t>(bytesPerRow) * static_cast<std::size_t>(height), 150) {}

  std::uint8_t& At(int x, int y, int channel) {
    return bytes[static_cast<std::size_t>(y * bytesPerRow + x * bytesPerPixel + channel)];
  }

  void Paint(std::uint32_t number) {
    PaintFrameCode(bytes.data(), width, height, bytesPerRow, number);
  }

  std::optional<std::uint32_t> Read() const {
    return ReadFrameCode(bytes.data(), width, height, bytesPerRow, bytesPerPixel);
  }

  // Every `step`th pixel of every `step`th row, as RGBA.
  Picture Reduced(int step) {
    Picture small(width / step, height / step, 4);
    for (int y = 0; y < small.height; ++y) {
      for (int x = 0; x < small.width; ++x) {
        for (int channel = 0; channel < 3; ++channel) {
          small.At(x, y, channel) = At(x * step, y * step, channel);
        }
        small.At(x, y, 3) = 255;
      }
    }
    return small;
  }
};

// Cells of the layout in the header, in units of height / 45: the pixel at a cell's centre.
std::uint8_t CellCentre(Picture& picture, int column, int row) {
  const double unit = picture.height / 45.0;
  return picture.At(static_cast<int>((2 + column + 0.5) * unit),
                    static_cast<int>((2 + row + 0.5) * unit), 0);
}

TEST(FrameCode, ChecksumIsCrc16OfTheNumbersBytes) {
  EXPECT_EQ(FrameCodeChecksum(0x31323334), 0x5349);
  EXPECT_EQ(FrameCodeChecksum(0), 0x84C0);
}

TEST(FrameCode, StandsWhereTheHeaderSays) {
  Picture picture(640, 480, 3);
  picture.Paint(0x80000001);
  EXPECT_EQ(CellCentre(picture, 0, 0), 255);
  EXPECT_EQ(CellCentre(picture, 13, 0), 255);
  EXPECT_EQ(CellCentre(picture, 0, 5), 255);
  EXPECT_EQ(CellCentre(picture, 13, 5), 0);
  EXPECT_EQ(CellCentre(picture, 13, 1), 0);
  EXPECT_EQ(CellCentre(picture, 1, 5), 0);
  EXPECT_EQ(CellCentre(picture, 1, 1), 255);  // bit 31
  EXPECT_EQ(CellCentre(picture, 2, 1), 0);    // bit 30
  EXPECT_EQ(CellCentre(picture, 7, 3), 0);    // bit 1
  EXPECT_EQ(CellCentre(picture, 8, 3), 255);  // bit 0
}

TEST(FrameCode, IsReadBackFromEveryFrameSize) {
  const std::vector<std::vector<int>> sizes = {{640, 480},   {1280, 720},  {1920, 1080},
                                               {2592, 1944}, {3840, 2160}, {160, 90}};
  for (const std::vector<int>& size : sizes) {
    for (const std::uint32_t number : {0U, 1U, 299U, 0x12345678U, 0xFFFFFFFFU}) {
      Picture picture(size[0], size[1], 3, 5);
      picture.Paint(number);
      EXPECT_EQ(picture.Read(), number) << size[0] << "x" << size[1];
    }
  }
}

TEST(FrameCode, SurvivesReductionByNearestNeighbour) {
  const std::vector<std::vector<int>> sizes = {{640, 480}, {1280, 720}, {1920, 1080}, {1921, 1080}};
  for (const std::vector<int>& size : sizes) {
    for (const int step : {2, 3, 4}) {
      Picture picture(size[0], size[1], 3);
      picture.Paint(0xA5C3F00FU);
      EXPECT_EQ(picture.Reduced(step).Read(), 0xA5C3F00FU)
          << size[0] << "x" << size[1] << " by " << step;
    }
  }
}

TEST(FrameCode, IsReadFromWashedOutGrey) {
  Picture picture(640, 480, 3);
  picture.Paint(77);
  Picture grey(640, 480, 1);
  for (int y = 0; y < 480; ++y) {
    for (int x = 0; x < 640; ++x) {
      grey.At(x, y, 0) = static_cast<std::uint8_t>(60 + picture.At(x, y, 1) / 2);
    }
  }
  EXPECT_EQ(grey.Read(), 77U);
}

TEST(FrameCode, IsRefusedWithOneBitFlipped) {
  for (int bit = 0; bit < 48; ++bit) {
    Picture picture(640, 480, 3);
    picture.Paint(0x00F0AA55);
    const double unit = 480 / 45.0;
    const int left = static_cast<int>((3 + bit % 12) * unit);
    const int top = static_cast<int>((3 + bit / 12) * unit);
    for (int y = top; y < top + 11; ++y) {
      for (int x = left; x < left + 11; ++x) {
        picture.At(x, y, 1) = static_cast<std::uint8_t>(255 - picture.At(x, y, 1));
      }
    }
    EXPECT_EQ(picture.Read(), std::nullopt) << bit;
  }
}

TEST(FrameCode, IsNotFoundWhereNoneIs) {
  EXPECT_EQ(Picture(640, 480, 3).Read(), std::nullopt);
  EXPECT_EQ(Picture(1, 1, 3).Read(), std::nullopt);
  EXPECT_EQ(Picture(20, 480, 3).Read(), std::nullopt);
}

TEST(FrameCode, LeavesFramesAloneThatAreTooLow) {
  Picture picture(160, 89, 3);
  const std::vector<std::uint8_t> before = picture.bytes;
  picture.Paint(1);
  EXPECT_EQ(picture.bytes, before);
}

TEST(FrameCode, PaintsNothingOutsideANarrowFrame) {
  Picture picture(30, 480, 3, 4);
  picture.Paint(0xFFFFFFFF);
  for (int y = 0; y < picture.height; ++y) {
    for (int padding = 90; padding < 94; ++padding) {
      ASSERT_EQ(picture.bytes[static_cast<std::size_t>(y * 94 + padding)], 150);
    }
  }
}

}  // namespace
}  // namespace ostrel_simulator
