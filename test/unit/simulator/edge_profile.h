// Where an edge lies in a row of brightnesses, and how wide it has become.
#pragma once

#include <cstddef>
#include <vector>

namespace ostrel_simulator {

struct EdgeProfile {
  double position;  ///< mean of the slope
  double variance;  ///< of the slope, in squared steps between the values
};

/// The edge in a row that rises from one brightness to another and has no other edge.
inline EdgeProfile ProfileOf(const std::vector<double>& row) {
  double weight = 0;
  double sum = 0;
  for (std::size_t i = 1; i < row.size(); ++i) {
    weight += row[i] - row[i - 1];
    sum += (row[i] - row[i - 1]) * (static_cast<double>(i) - 0.5);
  }
  const double position = sum / weight;
  double squares = 0;
  for (std::size_t i = 1; i < row.size(); ++i) {
    const double distance = static_cast<double>(i) - 0.5 - position;
    squares += (row[i] - row[i - 1]) * distance * distance;
  }
  return {position, squares / weight};
}

}  // namespace ostrel_simulator
