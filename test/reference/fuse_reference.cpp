#include "reference/fuse_reference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace ostrel_native::test {

namespace {

constexpr float kTiny = 1e-8f;

std::size_t At(int x, int y, int width) {
  return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
         static_cast<std::size_t>(x);
}

double MapCoordinate(int pixel, int mapSize, int size) {
  return (pixel + 0.5) * mapSize / size - 0.5;
}

// Bilinear in 64 bits between four corners; false if a corner or the result isn't finite.
bool InterpolateCell(const float* map, int width, int x0, int x1, int y0, int y1, double tx,
                     double ty, double& result) {
  const float a = map[At(x0, y0, width)];
  const float b = map[At(x1, y0, width)];
  const float c = map[At(x0, y1, width)];
  const float d = map[At(x1, y1, width)];
  if (!std::isfinite(a) || !std::isfinite(b) || !std::isfinite(c) || !std::isfinite(d)) {
    return false;
  }
  const float ab = b - a;
  const float cd = d - c;
  result = (ab * tx + a) * (1 - ty) + (cd * tx + c) * ty;
  return std::isfinite(result);
}

// Where frame i delivers output pixel (x, y), in frame pixels; false if it can't.
bool SourcePosition(const ReferenceStack& stack, std::size_t i, double mapX, double mapY,
                    double& srcX, double& srcY) {
  const FieldView& field = stack.fields[i];
  if (!(mapX >= 0 && mapY >= 0 && mapX <= field.mapWidth - 1 && mapY <= field.mapHeight - 1)) {
    return false;
  }
  const int x0 = static_cast<int>(std::floor(mapX));
  const int y0 = static_cast<int>(std::floor(mapY));
  const int x1 = std::min(x0 + 1, field.mapWidth - 1);
  const int y1 = std::min(y0 + 1, field.mapHeight - 1);
  const double tx = mapX - x0;
  const double ty = mapY - y0;
  double sx = 0;
  double sy = 0;
  double confidence = 0;
  if (!InterpolateCell(field.x, field.mapWidth, x0, x1, y0, y1, tx, ty, sx) ||
      !InterpolateCell(field.y, field.mapWidth, x0, x1, y0, y1, tx, ty, sy) ||
      !InterpolateCell(field.confidence, field.mapWidth, x0, x1, y0, y1, tx, ty, confidence)) {
    return false;
  }
  const double s = stack.frames[i].sourcePixelsPerOutputPixel;
  const double cx = (stack.width - 1) * 0.5;
  const double cy = (stack.height - 1) * 0.5;
  srcX = ((sx + 0.5) * stack.width / field.mapWidth - 0.5 - cx) * s + cx;
  srcY = ((sy + 0.5) * stack.height / field.mapHeight - 0.5 - cy) * s + cy;
  return confidence >= 0.019999999552965164 && srcX >= 0 && srcY >= 0 && srcX <= stack.width - 1 &&
         srcY <= stack.height - 1;
}

void SampleFrame(const ReferenceStack& stack, std::size_t i, double srcX, double srcY, float* rgb) {
  const int x0 = static_cast<int>(std::floor(srcX));
  const int y0 = static_cast<int>(std::floor(srcY));
  const int x1 = std::min(x0 + 1, stack.width - 1);
  const int y1 = std::min(y0 + 1, stack.height - 1);
  const double fx = srcX - x0;
  const double fy = srcY - y0;
  const double weights[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
  const std::size_t taps[4] = {At(x0, y0, stack.width), At(x1, y0, stack.width),
                               At(x0, y1, stack.width), At(x1, y1, stack.width)};
  for (std::size_t c = 0; c < 3; ++c) {
    float sum = 0;
    for (std::size_t tap = 0; tap < 4; ++tap) {
      const double product = stack.frames[i].rgba[4 * taps[tap] + c] * weights[tap];
      sum = static_cast<float>(sum + product);
    }
    rgb[c] = sum;
  }
}

// The clamped neighbours of an expanded row or column, and where it lies between them.
void ExpansionNeighbours(int target, int sourceSize, int targetSize, int& low, int& high,
                         double& fraction) {
  const double s = (target + 0.5) * sourceSize / targetSize - 0.5;
  low = std::min(static_cast<int>(std::floor(s)), sourceSize - 1);
  if (low > 0) {
    fraction = s - low;
    high = low + 1;
  } else {
    low = 0;
    high = 1;
    fraction = s;
  }
  fraction = std::min(std::max(fraction, 0.0), 1.0);
  high = std::min(high, sourceSize - 1);
}

}  // namespace

float ReferenceSampleMapClamped(const float* map, int width, int height, double x, double y) {
  int x0 = 0;
  int x1 = 1;
  double tx = 0;
  const double xc = std::min<double>(x, width - 1);
  if (xc > 0) {
    x0 = static_cast<int>(std::floor(xc));
    x1 = x0 + 1;
    tx = xc - x0;
  }
  int y0 = 0;
  int y1 = 1;
  double ty = 0;
  const double yc = std::min<double>(y, height - 1);
  if (yc > 0) {
    y0 = static_cast<int>(std::floor(yc));
    y1 = y0 + 1;
    ty = yc - y0;
  }
  x1 = std::min(x1, width - 1);
  y1 = std::min(y1, height - 1);
  const float a = map[At(x0, y0, width)];
  const float b = map[At(x1, y0, width)];
  const float c = map[At(x0, y1, width)];
  const float d = map[At(x1, y1, width)];
  const float ab = b - a;
  const float cd = d - c;
  return static_cast<float>((ab * tx + a) * (1 - ty) + (cd * tx + c) * ty);
}

std::vector<float> ReferenceTotalWeight(const ReferenceStack& stack) {
  std::vector<float> totalWeight(At(0, stack.height, stack.width));
  for (std::size_t i = 0; i < stack.frames.size(); ++i) {
    const FieldView& field = stack.fields[i];
    for (int y = 0; y < stack.height; ++y) {
      for (int x = 0; x < stack.width; ++x) {
        totalWeight[At(x, y, stack.width)] +=
            ReferenceSampleMapClamped(stack.weights[i], field.mapWidth, field.mapHeight,
                                      MapCoordinate(x, field.mapWidth, stack.width),
                                      MapCoordinate(y, field.mapHeight, stack.height));
      }
    }
  }
  return totalWeight;
}

ReferenceLevel ReferenceWarpFrame(const ReferenceStack& stack, std::size_t i,
                                  const std::vector<float>& totalWeight) {
  const std::size_t pixels = At(0, stack.height, stack.width);
  ReferenceLevel level{stack.width, stack.height, std::vector<float>(3 * pixels),
                       std::vector<float>(pixels)};
  const FieldView& field = stack.fields[i];
  const auto reference = static_cast<std::size_t>(stack.referenceIndex);
  for (int y = 0; y < stack.height; ++y) {
    for (int x = 0; x < stack.width; ++x) {
      const std::size_t p = At(x, y, stack.width);
      const double mapX = MapCoordinate(x, field.mapWidth, stack.width);
      const double mapY = MapCoordinate(y, field.mapHeight, stack.height);
      const float raw =
          ReferenceSampleMapClamped(stack.weights[i], field.mapWidth, field.mapHeight, mapX, mapY);
      float w = i == reference ? 1.0f : 0.0f;
      if (totalWeight[p] > kTiny) {
        w = raw / totalWeight[p];
      }
      double srcX = 0;
      double srcY = 0;
      if (SourcePosition(stack, i, mapX, mapY, srcX, srcY)) {
        SampleFrame(stack, i, srcX, srcY, &level.rgb[3 * p]);
        level.weight[p] = w;
      } else {
        for (std::size_t c = 0; c < 3; ++c) {
          level.rgb[3 * p + c] = stack.frames[reference].rgba[4 * p + c];
        }
      }
    }
  }
  return level;
}

ReferenceLevel ReferenceDownsample(const ReferenceLevel& source) {
  const int width = std::max(1, (source.width + 1) / 2);
  const int height = std::max(1, (source.height + 1) / 2);
  const std::size_t pixels = At(0, height, width);
  ReferenceLevel level{width, height, std::vector<float>(3 * pixels), std::vector<float>(pixels)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      int count = 0;
      double sum[4] = {0, 0, 0, 0};
      for (int dy = 0; dy < 2; ++dy) {
        for (int dx = 0; dx < 2; ++dx) {
          if (2 * x + dx < source.width && 2 * y + dy < source.height) {
            const std::size_t q = At(2 * x + dx, 2 * y + dy, source.width);
            sum[0] += source.rgb[3 * q];
            sum[1] += source.rgb[3 * q + 1];
            sum[2] += source.rgb[3 * q + 2];
            sum[3] += source.weight[q];
            ++count;
          }
        }
      }
      const std::size_t p = At(x, y, width);
      for (std::size_t c = 0; c < 4; ++c) {
        const float value = static_cast<float>(count >= 2 ? sum[c] / count : sum[c]);
        (c < 3 ? level.rgb[3 * p + c] : level.weight[p]) = value;
      }
    }
  }
  return level;
}

std::vector<float> ReferenceUpsampleRgb(const std::vector<float>& source, int sourceWidth,
                                        int sourceHeight, int targetWidth, int targetHeight) {
  std::vector<float> target(3 * At(0, targetHeight, targetWidth));
  for (int y = 0; y < targetHeight; ++y) {
    int y0 = 0;
    int y1 = 0;
    double fy = 0;
    ExpansionNeighbours(y, sourceHeight, targetHeight, y0, y1, fy);
    for (int x = 0; x < targetWidth; ++x) {
      int x0 = 0;
      int x1 = 0;
      double fx = 0;
      ExpansionNeighbours(x, sourceWidth, targetWidth, x0, x1, fx);
      const double weights[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
      const std::size_t taps[4] = {At(x0, y0, sourceWidth), At(x1, y0, sourceWidth),
                                   At(x0, y1, sourceWidth), At(x1, y1, sourceWidth)};
      for (std::size_t c = 0; c < 3; ++c) {
        float sum = 0;
        for (std::size_t tap = 0; tap < 4; ++tap) {
          sum = static_cast<float>(sum + source[3 * taps[tap] + c] * weights[tap]);
        }
        target[3 * At(x, y, targetWidth) + c] = sum;
      }
    }
  }
  return target;
}

std::uint8_t ReferenceByte(float value) {
  const long rounded = std::lroundf(value);
  if (rounded > 254) {
    return 255;
  }
  return rounded < 1 ? 0 : static_cast<std::uint8_t>(rounded);
}

std::vector<std::uint8_t> ReferenceFuse(const ReferenceStack& stack) {
  std::vector<std::pair<int, int>> sizes{{stack.width, stack.height}};
  while (true) {
    const auto [w, h] = sizes.back();
    if (h <= 36 || w <= 64) {
      break;
    }
    sizes.emplace_back((w + 1) / 2, (h + 1) / 2);
    if (sizes.size() == 4) {
      break;
    }
  }
  const std::size_t levels = sizes.size();
  std::vector<std::vector<float>> accumRgb(levels);
  std::vector<std::vector<float>> accumWeight(levels);
  for (std::size_t l = 0; l < levels; ++l) {
    accumWeight[l].resize(At(0, sizes[l].second, sizes[l].first));
    accumRgb[l].resize(3 * accumWeight[l].size());
  }

  const std::vector<float> totalWeight = ReferenceTotalWeight(stack);
  for (std::size_t i = 0; i < stack.frames.size(); ++i) {
    if (!stack.fields[i].accepted) {
      continue;
    }
    std::vector<ReferenceLevel> pyramid{ReferenceWarpFrame(stack, i, totalWeight)};
    while (pyramid.size() < levels) {
      pyramid.push_back(ReferenceDownsample(pyramid.back()));
    }
    for (std::size_t l = 0; l < levels; ++l) {
      std::vector<float> expansion;
      if (l + 1 < levels) {
        expansion =
            ReferenceUpsampleRgb(pyramid[l + 1].rgb, pyramid[l + 1].width, pyramid[l + 1].height,
                                 pyramid[l].width, pyramid[l].height);
      }
      for (std::size_t q = 0; q < pyramid[l].weight.size(); ++q) {
        const float w = pyramid[l].weight[q];
        for (std::size_t v = 3 * q; v < 3 * q + 3; ++v) {
          const float detail =
              l + 1 < levels ? pyramid[l].rgb[v] - expansion[v] : pyramid[l].rgb[v];
          const float weighted = detail * w;
          accumRgb[l][v] += weighted;
        }
        accumWeight[l][q] += w;
      }
    }
  }

  for (std::size_t l = 0; l < levels; ++l) {
    for (std::size_t q = 0; q < accumWeight[l].size(); ++q) {
      if (kTiny >= accumWeight[l][q]) {
        continue;
      }
      for (std::size_t v = 3 * q; v < 3 * q + 3; ++v) {
        accumRgb[l][v] /= accumWeight[l][q];
      }
    }
  }

  std::vector<float> result = std::move(accumRgb[levels - 1]);
  for (std::size_t l = levels - 1; l > 0; --l) {
    std::vector<float> expansion = ReferenceUpsampleRgb(result, sizes[l].first, sizes[l].second,
                                                        sizes[l - 1].first, sizes[l - 1].second);
    for (std::size_t v = 0; v < expansion.size(); ++v) {
      expansion[v] += accumRgb[l - 1][v];
    }
    result = std::move(expansion);
  }

  std::vector<std::uint8_t> rgba(4 * totalWeight.size());
  for (std::size_t p = 0; p < totalWeight.size(); ++p) {
    for (std::size_t c = 0; c < 3; ++c) {
      rgba[4 * p + c] = ReferenceByte(result[3 * p + c]);
    }
    rgba[4 * p + 3] = 255;
  }
  return rgba;
}

}  // namespace ostrel_native::test
