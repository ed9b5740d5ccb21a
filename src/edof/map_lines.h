// Coarse maps as the output grid sees them: where its rows and columns lie in a map, and map
// rows interpolated at every output column.
#pragma once

#include <cstdint>

#include "edof/float_buffer.h"

namespace ostrel_native {

/// Where one row or column of the output lies among the rows or columns of a map.
struct MapPosition {
  std::int32_t low;   ///< the cell at or before it, clamped to the map
  std::int32_t high;  ///< the next cell, clamped to the map
  double fraction;    ///< from `low` to `high`, 0 to below 1
  bool inside;        ///< whether it lies between the first and the last cell's centre
};

/// The place of output row or column `index` of `size` in a map of `mapSize`. The centres of
/// pixels correspond, not their corners, so the outermost half cell of a map lies outside.
/// Thread: any.
MapPosition LocateInMap(int index, int size, int mapSize);

/// `LocateInMap` of every output column. Inside columns lie side by side, since positions rise.
struct MapColumns {
  explicit MapColumns(int outputWidth);

  /// Fills the tables for maps of `newMapWidth`; nothing to do if they are filled for it.
  void Lay(int newMapWidth);

  int width;                       ///< output columns
  int mapWidth = 0;                ///< what the tables are filled for; 0 for nothing yet
  UnsetVector<std::int32_t> low;   ///< one a column
  UnsetVector<std::int32_t> high;  ///< one a column
  UnsetVector<double> fraction;    ///< one a column
  int insideBegin = 0;             ///< first column inside the map
  int insideEnd = 0;               ///< one past the last column inside the map
};

/// The two rows of a map between which an output row lies, interpolated at every output column.
/// Neighbouring output rows share them, so the interpolation along the row is done once for all
/// output rows between two map rows.
struct MapLines {
  explicit MapLines(int outputWidth);

  /// Forgets the lines held; to be called before another map is asked for.
  void Forget();

  /// (b - a) * fraction + a at every output column, for map row `row`. Subtracting is done in
  /// 32-bit float, the rest in 64-bit. The line stays until the next but one row is asked for.
  const double* Line(const float* map, const MapColumns& columns, int row);

  int width;                  ///< output columns
  int held[2];                ///< the map rows in `lines`, by parity; -1 for none
  UnsetVector<double> lines;  ///< two lines; neighbouring rows differ in parity
};

}  // namespace ostrel_native
