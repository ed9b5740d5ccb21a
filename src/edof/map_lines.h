// Coarse maps sampled on the output grid: positions of output rows and columns in a map, and map
// rows interpolated at every output column.
#pragma once

#include <cstdint>

#include "edof/float_buffer.h"

namespace ostrel_native {

/// Position of one output row or column among the rows or columns of a map.
struct MapPosition {
  std::int32_t low;   ///< the cell at or before it, clamped to the map
  std::int32_t high;  ///< the next cell, clamped to the map
  double fraction;    ///< from `low` to `high`, 0 to below 1
  bool inside;        ///< between the centres of the first and the last cell
};

/// Locates output row or column `index` of `size` in a map of `mapSize`. Pixel centres correspond,
/// not corners, so the outermost half cell of a map lies outside.
/// Thread: any.
MapPosition LocateInMap(int index, int size, int mapSize);

/// `LocateInMap` of every output column. Positions increase, so the inside columns are contiguous.
struct MapColumns {
  explicit MapColumns(int outputWidth);

  /// Fills the tables for maps of `newMapWidth`; does nothing if they already are.
  void Lay(int newMapWidth);

  int width;                       ///< output columns
  int mapWidth = 0;                ///< map width of the tables; 0: not filled
  UnsetVector<std::int32_t> low;   ///< one a column
  UnsetVector<std::int32_t> high;  ///< one a column
  UnsetVector<double> fraction;    ///< one a column
  int insideBegin = 0;             ///< first column inside the map
  int insideEnd = 0;               ///< one past the last column inside the map
};

/// The two map rows around an output row, interpolated at every output column.
/// All output rows between two map rows share them, so each map row is interpolated once.
struct MapLines {
  explicit MapLines(int outputWidth);

  /// Drops the cached lines; call before using another map.
  void Forget();

  /// (b - a) * fraction + a at every output column, for map row `row`. Subtracting is done in
  /// 32-bit float, the rest in 64-bit. The line stays valid until two further rows are requested.
  const double* Line(const float* map, const MapColumns& columns, int row);

  int width;                  ///< output columns
  int held[2];                ///< map rows in `lines`, by parity; -1: none
  UnsetVector<double> lines;  ///< two lines; neighbouring rows differ in parity
};

}  // namespace ostrel_native
