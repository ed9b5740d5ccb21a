#include "simulator/blur_layers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "unit/simulator/edge_profile.h"
#include "unit/simulator/synthetic_specimen.h"

namespace ostrel_simulator {
namespace {

// The variance that an edge between two texels shows in the pixels of a layer: without the
// sampling between them, and with the difference of two neighbours in place of a slope.
double ShownVariance(const LayerShape& shape) {
  const double pixel = 1 << shape.shift;
  return shape.variance256 / 256.0 - pixel * pixel / 6 + (pixel * pixel - 1) / 12;
}

int PixelAt(const BlurLayer& layer, int x, int y) {
  return layer.Row(y)[(x + layer.width) % layer.width * 4 + 1];
}

TEST(BlurLayers, HaveTheSizesOfTheirReductions) {
  const LayeredSpecimen layered = MakeLayeredSpecimen(MakeBar(100, 2048));
  ASSERT_EQ(layered.layers.size(), kLayers.size());
  for (std::size_t i = 0; i < kLayers.size(); ++i) {
    EXPECT_EQ(layered.layers[i].width, kSpecimenWidth >> kLayers[i].shift);
    EXPECT_EQ(layered.layers[i].height, kSpecimenHeight >> kLayers[i].shift);
  }
  EXPECT_EQ(layered.heights.sixteenths.size(), std::size_t{512 * 288});
}

TEST(BlurLayers, BegunWithTheSpecimenItself) {
  const Specimen specimen =
      MakeFlatSpecimen(100, [](int x, int y) { return (x * 7 + y * 13) & 255; });
  const LayeredSpecimen layered = MakeLayeredSpecimen(specimen);
  for (const int y : {0, 1, 2303}) {
    for (const int x : {0, 1, 4095}) {
      EXPECT_EQ(PixelAt(layered.layers[0], x, y), (x * 7 + y * 13) & 255);
    }
  }
}

// The slope of a blurred edge has the variance of the blur.
TEST(BlurLayers, SpreadAnEdgeAcrossByTheirVariance) {
  const LayeredSpecimen layered = MakeLayeredSpecimen(MakeBar(100, 2048));
  for (std::size_t i = 1; i < kLayers.size(); ++i) {
    const int middle = 2048 >> kLayers[i].shift;
    const int reach = 480 >> kLayers[i].shift;
    std::vector<double> row;
    for (int x = middle - reach; x < middle + reach; ++x) {
      row.push_back(PixelAt(layered.layers[i], x, 5));
    }
    const double pixel = 1 << kLayers[i].shift;
    EXPECT_NEAR(ProfileOf(row).variance * pixel * pixel / ShownVariance(kLayers[i]), 1, 0.03)
        << "layer " << i;
    EXPECT_NEAR(ProfileOf(row).position, reach - 0.5, 0.05) << "layer " << i;
  }
}

TEST(BlurLayers, SpreadAnEdgeDownwardsByTheirVariance) {
  const LayeredSpecimen layered =
      MakeLayeredSpecimen(MakeFlatSpecimen(100, [](int, int y) { return y < 1024 ? 0 : 255; }));
  for (std::size_t i = 1; i < kLayers.size(); ++i) {
    const int middle = 1024 >> kLayers[i].shift;
    const int reach = 480 >> kLayers[i].shift;
    std::vector<double> column;
    for (int y = middle - reach; y < middle + reach; ++y) {
      column.push_back(PixelAt(layered.layers[i], 7, y));
    }
    const double pixel = 1 << kLayers[i].shift;
    EXPECT_NEAR(ProfileOf(column).variance * pixel * pixel / ShownVariance(kLayers[i]), 1, 0.03)
        << "layer " << i;
  }
}

// White in the first texel column alone leaks to both of its neighbours around the torus.
TEST(BlurLayers, BlurAcrossTheSeam) {
  const LayeredSpecimen layered =
      MakeLayeredSpecimen(MakeFlatSpecimen(100, [](int x, int) { return x == 0 ? 240 : 0; }));
  EXPECT_EQ(PixelAt(layered.layers[1], 0, 0), 120);
  EXPECT_EQ(PixelAt(layered.layers[1], 1, 0), 60);
  EXPECT_EQ(PixelAt(layered.layers[1], -1, 0), 60);
  EXPECT_EQ(PixelAt(layered.layers[1], -2, 0), 0);
}

}  // namespace
}  // namespace ostrel_simulator
