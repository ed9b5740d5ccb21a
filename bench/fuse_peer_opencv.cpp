#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/core/ocl.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/blenders.hpp>
#include <vector>

#include "fuse_peer.h"

namespace ostrel_native::bench {

namespace {

// Beside the finest one.
constexpr int kCoarserLevels = 3;
// Below it a pixel counts for nothing, as in the fusion.
constexpr double kMinConfidence = 0.02;

struct PeerFrame {
  cv::Mat rgba;
  // In frame pixels, a value for each cell of the map: cheaper than converting what is expanded.
  cv::Mat x;
  cv::Mat y;
  cv::Mat mask;
  cv::Mat confidence;
};

cv::Mat MapOf(const FieldView& field, const float* values) {
  return {field.mapHeight, field.mapWidth, CV_32F, const_cast<float*>(values)};
}

// Map coordinates to frame pixels, about the image centre.
cv::Mat InPixels(const cv::Mat& map, int size, int mapSize, double scale) {
  const double factor = static_cast<double>(size) / mapSize;
  const double centre = (size - 1) * 0.5;
  cv::Mat pixels;
  map.convertTo(pixels, CV_32F, factor * scale, (0.5 * factor - 0.5 - centre) * scale + centre);
  return pixels;
}

std::vector<PeerFrame> Convert(const FocusStack& stack) {
  std::vector<PeerFrame> frames;
  for (std::size_t i = 0; i < stack.frames.size(); ++i) {
    const FieldView& field = stack.fields[i];
    const double scale = stack.frames[i].sourcePixelsPerOutputPixel;
    PeerFrame& frame = frames.emplace_back();
    frame.rgba = cv::Mat(stack.height, stack.width, CV_8UC4,
                         const_cast<std::uint8_t*>(stack.frames[i].rgba));
    frame.x = InPixels(MapOf(field, field.x), stack.width, field.mapWidth, scale);
    frame.y = InPixels(MapOf(field, field.y), stack.height, field.mapHeight, scale);
    MapOf(field, stack.weights[i]).convertTo(frame.mask, CV_8U, 255.0);
    frame.confidence = MapOf(field, field.confidence);
  }
  return frames;
}

void Blend(const std::vector<PeerFrame>& frames, cv::Size size, int threads) {
  cv::setNumThreads(threads);
  cv::detail::MultiBandBlender blender(/*try_gpu=*/0, kCoarserLevels);
  blender.prepare(cv::Rect({0, 0}, size));
  cv::Mat x;
  cv::Mat y;
  cv::Mat mask;
  cv::Mat confidence;
  cv::Mat usable;
  cv::Mat bgr;
  cv::Mat warped;
  for (const PeerFrame& frame : frames) {
    cv::resize(frame.x, x, size);
    cv::resize(frame.y, y, size);
    cv::resize(frame.mask, mask, size);
    cv::resize(frame.confidence, confidence, size);
    cv::compare(confidence, kMinConfidence, usable, cv::CMP_GE);
    cv::bitwise_and(mask, usable, mask);
    // The blender takes three channels.
    cv::cvtColor(frame.rgba, bgr, cv::COLOR_RGBA2BGR);
    cv::remap(bgr, warped, x, y, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    blender.feed(warped, mask, {0, 0});
  }
  cv::Mat blended;
  cv::Mat blendedMask;
  cv::Mat bytes;
  cv::Mat rgba;
  blender.blend(blended, blendedMask);
  blended.convertTo(bytes, CV_8U);
  cv::cvtColor(bytes, rgba, cv::COLOR_BGR2RGBA);
}

}  // namespace

bool HasPeer() {
  return true;
}

Peer MakePeer(const FocusStack& stack) {
  // The comparison is with its code for processors.
  cv::ocl::setUseOpenCL(false);
  // No threads yet: the memory is measured in a process split off from this one.
  cv::setNumThreads(1);
  return [frames = Convert(stack), size = cv::Size(stack.width, stack.height)](int threads) {
    Blend(frames, size, threads);
  };
}

}  // namespace ostrel_native::bench
