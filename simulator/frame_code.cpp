#include "simulator/frame_code.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace ostrel_simulator {

namespace {

constexpr int kUnitsPerHeight = 45;
constexpr int kMargin = 2;  // units
constexpr int kColumns = 14;
constexpr int kRows = 6;
constexpr int kBitColumns = kColumns - 2;
constexpr int kNumberBits = 32;
constexpr int kChecksumBits = 16;
static_assert(kBitColumns * (kRows - 2) == kNumberBits + kChecksumBits);

// Far below what compression leaves of black against white, far above its noise.
constexpr int kSmallestContrast = 96;

// Digits, 3 dots wide and 5 high, a row of 3 bits each from the top, the left dot highest.
constexpr std::array<std::array<std::uint8_t, 5>, 10> kDigits = {{
    {7, 5, 5, 5, 7},
    {2, 6, 2, 2, 7},
    {7, 1, 7, 4, 7},
    {7, 1, 7, 1, 7},
    {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7},
    {7, 4, 7, 5, 7},
    {7, 1, 1, 1, 1},
    {7, 5, 7, 5, 7},
    {7, 5, 7, 1, 7},
}};
constexpr int kDigitCount = 7;
constexpr int kDigitDots = 4;  // with the gap behind

// The first pixel at or behind `units` from the frame's edge.
int Edge(double units, int height) {
  return static_cast<int>(units * height / kUnitsPerHeight);
}

struct Canvas {
  std::uint8_t* pixels;
  int width;
  int height;
  int bytesPerRow;

  // Corners in units.
  void Fill(double left, double top, double right, double bottom, std::uint8_t grey) const {
    const int x0 = std::clamp(Edge(left, height), 0, width);
    const int x1 = std::clamp(Edge(right, height), x0, width);
    const int y1 = std::clamp(Edge(bottom, height), 0, height);
    for (int y = Edge(top, height); y < y1; ++y) {
      std::uint8_t* const row = pixels + std::ptrdiff_t{y} * bytesPerRow;
      std::memset(row + std::ptrdiff_t{x0} * 3, grey, static_cast<std::size_t>(x1 - x0) * 3);
    }
  }
};

std::uint64_t CodeWord(std::uint32_t number) {
  return (std::uint64_t{number} << kChecksumBits) | FrameCodeChecksum(number);
}

bool BitOf(std::uint64_t word, int index) {
  return ((word >> (kNumberBits + kChecksumBits - 1 - index)) & 1) != 0;
}

bool CellIsWhite(std::uint64_t word, int column, int row) {
  if (row == 0 || column == 0) {
    return true;
  }
  if (row == kRows - 1 || column == kColumns - 1) {
    return false;
  }
  return BitOf(word, (row - 1) * kBitColumns + column - 1);
}

void PaintDigits(const Canvas& canvas, std::uint32_t number) {
  constexpr double kDot = 0.8;  // units
  constexpr double kTop = kMargin + 1.0;
  double left = kMargin + kColumns + 1.0;
  canvas.Fill(kMargin + kColumns, kMargin, left + kDot * kDigitCount * kDigitDots, kMargin + kRows,
              0);
  std::uint32_t divisor = 1000000;
  for (int i = 0; i < kDigitCount; ++i, divisor /= 10, left += kDot * kDigitDots) {
    const auto& digit = kDigits[number / divisor % 10];
    for (int dotY = 0; dotY < 5; ++dotY) {
      for (int dotX = 0; dotX < 3; ++dotX) {
        if (((digit[static_cast<std::size_t>(dotY)] >> (2 - dotX)) & 1) != 0) {
          const double x = left + dotX * kDot;
          const double y = kTop + dotY * kDot;
          canvas.Fill(x, y, x + kDot, y + kDot, 255);
        }
      }
    }
  }
}

// Mean brightness of the inner half of a cell, away from the blur of its edges.
int ReadCell(const std::uint8_t* pixels, int height, int bytesPerRow, int bytesPerPixel, int column,
             int row) {
  const int x0 = Edge(kMargin + column + 0.25, height);
  const int x1 = std::max(Edge(kMargin + column + 0.75, height), x0 + 1);
  const int y0 = Edge(kMargin + row + 0.25, height);
  const int y1 = std::max(Edge(kMargin + row + 0.75, height), y0 + 1);
  // Green stands for brightness; of one or two bytes the first is grey.
  const int channel = bytesPerPixel >= 3 ? 1 : 0;
  std::int64_t sum = 0;
  for (int y = y0; y < y1; ++y) {
    for (int x = x0; x < x1; ++x) {
      sum += pixels[std::ptrdiff_t{y} * bytesPerRow + std::ptrdiff_t{x} * bytesPerPixel + channel];
    }
  }
  return static_cast<int>(sum / (std::int64_t{x1 - x0} * (y1 - y0)));
}

}  // namespace

std::uint16_t FrameCodeChecksum(std::uint32_t number) {
  unsigned crc = 0xFFFF;
  for (int bit = kNumberBits - 1; bit >= 0; --bit) {
    const bool carry = (((crc >> 15) ^ (number >> bit)) & 1) != 0;
    crc = ((crc << 1) ^ (carry ? 0x1021U : 0U)) & 0xFFFF;
  }
  return static_cast<std::uint16_t>(crc);
}

void PaintFrameCode(std::uint8_t* pixels, int width, int height, int bytesPerRow,
                    std::uint32_t number) {
  if (height < kSmallestCodedHeight) {
    return;
  }
  const Canvas canvas{pixels, width, height, bytesPerRow};
  const std::uint64_t word = CodeWord(number);
  for (int row = 0; row < kRows; ++row) {
    for (int column = 0; column < kColumns; ++column) {
      const double left = kMargin + column;
      const double top = kMargin + row;
      canvas.Fill(left, top, left + 1, top + 1, CellIsWhite(word, column, row) ? 255 : 0);
    }
  }
  PaintDigits(canvas, number);
}

std::optional<std::uint32_t> ReadFrameCode(const std::uint8_t* pixels, int width, int height,
                                           int bytesPerRow, int bytesPerPixel) {
  if (height < 1 || width < Edge(kMargin + kColumns, height) + 1) {
    return std::nullopt;
  }
  const auto read = [&](int column, int row) {
    return ReadCell(pixels, height, bytesPerRow, bytesPerPixel, column, row);
  };
  int darkestWhite = 255;
  int brightestBlack = 0;
  for (int column = 0; column < kColumns; ++column) {
    darkestWhite = std::min(darkestWhite, read(column, 0));
    brightestBlack = std::max(brightestBlack, column == 0 ? 0 : read(column, kRows - 1));
  }
  for (int row = 1; row < kRows - 1; ++row) {
    darkestWhite = std::min(darkestWhite, read(0, row));
    brightestBlack = std::max(brightestBlack, read(kColumns - 1, row));
  }
  if (darkestWhite - brightestBlack < kSmallestContrast) {
    return std::nullopt;
  }
  const int threshold = (darkestWhite + brightestBlack) / 2;
  std::uint64_t word = 0;
  for (int bit = 0; bit < kNumberBits + kChecksumBits; ++bit) {
    const int value = read(1 + bit % kBitColumns, 1 + bit / kBitColumns);
    word = (word << 1) | (value > threshold ? 1U : 0U);
  }
  const auto number = static_cast<std::uint32_t>(word >> kChecksumBits);
  return CodeWord(number) == word ? std::optional(number) : std::nullopt;
}

}  // namespace ostrel_simulator
