// The number that each simulated frame carries: painted as black and white cells that survive
// reduction and video compression, and read back from the pixels.
//
// Layout, in units of u = frame height / 45: the code is a grid of 14 columns and 6 rows of
// square cells, each u wide, whose upper left corner lies at (2u, 2u). Row 0 and column 0 are
// white; row 5 and column 13 are black, but for the cells that row 0 and column 0 own. The 48
// cells in between are bits, white for 1, most significant first, row by row: 32 bits of frame
// number, then 16 bits of CRC-16 (polynomial 0x1021, start 0xFFFF, no reflection) over the
// number's four bytes, most significant first. To the right stand the same digits for people.
#pragma once

#include <cstdint>
#include <optional>

namespace ostrel_simulator {

/// Smallest frame height that a code can be painted in: below, a cell has less than 2 pixels.
inline constexpr int kSmallestCodedHeight = 90;

/// The checksum of a frame number.
/// Thread: any.
std::uint16_t FrameCodeChecksum(std::uint32_t number);

/// Paints code and digits over a frame of `height` rows of `width` pixels of 3 bytes, rows
/// `bytesPerRow` apart. What does not fit the frame is left out; nothing outside is written.
/// Thread: any.
void PaintFrameCode(std::uint8_t* pixels, int width, int height, int bytesPerRow,
                    std::uint32_t number);

/// Reads the code of a frame, whole or reduced, of 1 to 4 bytes a pixel: grey, RGB or RGBA.
/// Nothing without a code, or where a bit is damaged.
/// Thread: any.
std::optional<std::uint32_t> ReadFrameCode(const std::uint8_t* pixels, int width, int height,
                                           int bytesPerRow, int bytesPerPixel);

}  // namespace ostrel_simulator
