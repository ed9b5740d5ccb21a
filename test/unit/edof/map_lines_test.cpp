#include "edof/map_lines.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace ostrel_native {

namespace {

TEST(LocateInMap, AMapOfTheImagesSizeHasItsPixels) {
  for (const int size : {1, 2, 3, 36, 1080, 16384}) {
    for (int i = 0; i < size; ++i) {
      const MapPosition place = LocateInMap(i, size, size);
      ASSERT_EQ(place.low, i);
      ASSERT_EQ(place.high, std::min(i + 1, size - 1));
      ASSERT_EQ(place.fraction, 0.0);
      ASSERT_TRUE(place.inside);
    }
  }
}

TEST(LocateInMap, TheOuterHalfCellOfACoarseMapLiesOutside) {
  // 12 pixels over 3 cells: the centres of the outer cells are at pixels 1.5 and 9.5.
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(LocateInMap(i, 12, 3).inside, i >= 2 && i <= 9) << i;
  }
  EXPECT_EQ(LocateInMap(0, 12, 3).low, 0);
  EXPECT_EQ(LocateInMap(0, 12, 3).fraction, 0.0);
  EXPECT_EQ(LocateInMap(11, 12, 3).low, 2);
  EXPECT_EQ(LocateInMap(11, 12, 3).high, 2);
  EXPECT_EQ(LocateInMap(11, 12, 3).fraction, 0.0);
}

TEST(LocateInMap, AMapOfOneCellHasItsCentreAlone) {
  for (int i = 0; i < 5; ++i) {
    const MapPosition place = LocateInMap(i, 5, 1);
    EXPECT_EQ(place.inside, i == 2);
    EXPECT_EQ(place.low, 0);
    EXPECT_EQ(place.high, 0);
  }
  EXPECT_FALSE(LocateInMap(1, 4, 1).inside);
  EXPECT_FALSE(LocateInMap(2, 4, 1).inside);
}

TEST(MapColumns, HoldThePlaceOfEveryColumn) {
  MapColumns columns(50);
  for (const int mapWidth : {7, 50, 120, 1}) {
    columns.Lay(mapWidth);
    for (int x = 0; x < 50; ++x) {
      const MapPosition place = LocateInMap(x, 50, mapWidth);
      const auto i = static_cast<std::size_t>(x);
      EXPECT_EQ(columns.low[i], place.low);
      EXPECT_EQ(columns.high[i], place.high);
      EXPECT_EQ(columns.fraction[i], place.fraction);
      EXPECT_EQ(x >= columns.insideBegin && x < columns.insideEnd, place.inside) << x;
    }
  }
}

TEST(MapColumns, NoColumnMayLieInside) {
  MapColumns columns(4);
  columns.Lay(1);
  EXPECT_EQ(columns.insideBegin, columns.insideEnd);
}

TEST(MapLines, InterpolateAlongAMapRow) {
  const std::vector<float> map = {0.0F, 8.0F, 4.0F, 100.0F, 200.0F, 400.0F};
  MapColumns columns(6);
  columns.Lay(3);
  MapLines lines(6);
  const double* const first = lines.Line(map.data(), columns, 0);
  const double* const second = lines.Line(map.data(), columns, 1);
  const std::vector<double> expected[] = {{0, 2, 6, 7, 5, 4}, {100, 125, 175, 250, 350, 400}};
  EXPECT_EQ(std::vector<double>(first, first + 6), expected[0]);
  EXPECT_EQ(std::vector<double>(second, second + 6), expected[1]);
}

TEST(MapLines, HoldTwoNeighbouringRowsUntilTheyAreForgotten) {
  std::vector<float> map = {1.0F, 2.0F, 3.0F};
  MapColumns columns(1);
  columns.Lay(1);
  MapLines lines(1);
  EXPECT_EQ(*lines.Line(map.data(), columns, 0), 1.0);
  EXPECT_EQ(*lines.Line(map.data(), columns, 1), 2.0);
  map = {-1.0F, -2.0F, -3.0F};
  EXPECT_EQ(*lines.Line(map.data(), columns, 1), 2.0);
  EXPECT_EQ(*lines.Line(map.data(), columns, 2), -3.0);
  EXPECT_EQ(*lines.Line(map.data(), columns, 1), 2.0);
  lines.Forget();
  EXPECT_EQ(*lines.Line(map.data(), columns, 1), -2.0);
}

TEST(MapLines, TheDifferenceOfTwoCellsOverflowsAsA32BitFloat) {
  const std::vector<float> map = {-3e38F, 3e38F};
  MapColumns columns(4);
  columns.Lay(2);
  MapLines lines(4);
  const double* const line = lines.Line(map.data(), columns, 0);
  EXPECT_TRUE(std::isnan(line[0])) << "infinity times a fraction of 0";
  EXPECT_TRUE(std::isinf(line[1]));
  EXPECT_EQ(line[3], static_cast<double>(3e38F));
}

}  // namespace

}  // namespace ostrel_native
