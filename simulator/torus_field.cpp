#include "simulator/torus_field.h"

namespace ostrel_simulator {

namespace {

// Twice the size, by the weights 3 and 1 of Chaikin's corner cutting: smooth after a few rounds.
TorusField Enlarge(TorusField& small) {
  TorusField large(small.width * 2, small.height * 2);
  std::vector<std::int16_t> mixed(static_cast<std::size_t>(small.width) + 2);
  for (int y = 0; y < large.height; ++y) {
    const std::int16_t* const near = small.Row(y / 2);
    const std::int16_t* const far = small.Row(y / 2 + (y % 2 == 0 ? -1 : 1));
    for (int x = 0; x < small.width; ++x) {
      mixed[static_cast<std::size_t>(x) + 1] =
          static_cast<std::int16_t>((3 * near[x] + far[x]) / 4);
    }
    mixed.front() = mixed[mixed.size() - 2];
    mixed.back() = mixed[1];
    std::int16_t* target = large.Row(y);
    const std::int16_t* const source = mixed.data() + 1;
    for (int x = 0; x < small.width; ++x) {
      *target++ = static_cast<std::int16_t>((3 * source[x] + source[x - 1]) / 4);
      *target++ = static_cast<std::int16_t>((3 * source[x] + source[x + 1]) / 4);
    }
  }
  return large;
}

void AddNoise(TorusField& field, int amplitude, Random& random) {
  std::uint64_t bits = 0;
  std::size_t left = 0;
  for (std::int16_t& value : field.values) {
    if (left == 0) {
      bits = random.Next();
      left = 8;
    }
    value =
        static_cast<std::int16_t>(value + (static_cast<int>(bits & 255) - 128) * amplitude / 128);
    bits >>= 8;
    --left;
  }
}

}  // namespace

TorusField::TorusField(int fieldWidth, int fieldHeight)
    : width(fieldWidth),
      height(fieldHeight),
      values(static_cast<std::size_t>(fieldWidth) * static_cast<std::size_t>(fieldHeight)) {}

TorusField MakeSmoothNoise(int width, int height, const std::vector<int>& amplitudes,
                           Random& random) {
  const std::size_t doublings = amplitudes.size() - 1;
  TorusField field(width >> doublings, height >> doublings);
  AddNoise(field, amplitudes[0], random);
  for (std::size_t level = 1; level <= doublings; ++level) {
    field = Enlarge(field);
    AddNoise(field, amplitudes[level], random);
  }
  return field;
}

}  // namespace ostrel_simulator
