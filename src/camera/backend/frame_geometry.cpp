// What the backend says of the current frame, with each kind's own rules for a missing or
// impossible answer. Every answer is a call of its own, so two of them may be of two frames.
#include <algorithm>
#include <cstdint>

#include "camera/backend/camera_binding.h"

namespace ostrel_native {

namespace {

constexpr std::int32_t kUnknown = -1;

// Linux passes its answer on, whatever its sign; the other kinds fall back on the size that
// capture was started with.
std::int32_t FrameSide(const CameraBinding& binding, int (*entry)(int), int device,
                       std::int32_t CaptureDimensions::*side) {
  const std::int32_t answer = entry == nullptr ? kUnknown : entry(device);
  const BackendKind kind = binding.kind.load(std::memory_order_acquire);
  if (answer > 0 || kind == BackendKind::Linux) {
    return answer;
  }
  if (kind == BackendKind::None) {
    return kUnknown;
  }
  const std::int32_t remembered = binding.RememberedDimensions(device).*side;
  return remembered > 0 ? remembered : kUnknown;
}

// Bytes of the smallest row of a DirectShow frame; not positive for an unknown width.
std::int64_t SmallestDshowRow(CameraPixelFormat format, std::int32_t width) {
  switch (format) {
    case CameraPixelFormat::Nv12:
      return width;
    case CameraPixelFormat::Yuy2:
    case CameraPixelFormat::Uyvy:
      return std::int64_t{2} * width;
    default:
      return std::int64_t{4} * width;
  }
}

std::int32_t DshowBytesPerRow(const CameraBinding& binding, int device) {
  const std::int32_t answer = binding.cdshow_frame_bytes_per_row == nullptr
                                  ? kUnknown
                                  : binding.cdshow_frame_bytes_per_row(device);
  const std::int32_t width = binding.FrameWidth(device);
  const CameraPixelFormat format = binding.FramePixelFormat(device, CameraPixelFormat::Bgra);
  if (format == CameraPixelFormat::Mjpeg) {
    return std::max(answer, 0);
  }
  const std::int64_t smallest = SmallestDshowRow(format, width);
  if (answer >= smallest) {
    return answer;
  }
  return smallest > 0 && smallest <= INT32_MAX ? static_cast<std::int32_t>(smallest) : kUnknown;
}

std::int32_t AvfBytesPerRow(const CameraBinding& binding, int device) {
  if (binding.avf_frame_bytes_per_row == nullptr) {
    return ByteProduct(binding.FrameWidth(device), 3).value_or(kUnknown);
  }
  const std::int32_t answer = binding.avf_frame_bytes_per_row(device);
  if (binding.FramePixelFormat(device, CameraPixelFormat::Rgb) == CameraPixelFormat::Mjpeg) {
    return std::max(answer, 0);
  }
  return answer > 0 ? answer : kUnknown;
}

}  // namespace

std::int32_t CameraBinding::FrameWidth(int device) const {
  const auto entry = Entry(&CameraBinding::cnokhwa_frame_width, &CameraBinding::cdshow_frame_width,
                           &CameraBinding::avf_frame_width);
  return FrameSide(*this, entry, device, &CaptureDimensions::width);
}

std::int32_t CameraBinding::FrameHeight(int device) const {
  const auto entry = Entry(&CameraBinding::cnokhwa_frame_height,
                           &CameraBinding::cdshow_frame_height, &CameraBinding::avf_frame_height);
  return FrameSide(*this, entry, device, &CaptureDimensions::height);
}

std::int32_t CameraBinding::PreviewFrameBytesPerRow(int device) const {
  switch (kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      return cnokhwa_frame_bytes_per_row == nullptr ? kUnknown
                                                    : cnokhwa_frame_bytes_per_row(device);
    case BackendKind::DirectShow:
      return DshowBytesPerRow(*this, device);
    case BackendKind::AvFoundation:
      return AvfBytesPerRow(*this, device);
    case BackendKind::None:
      break;
  }
  return kUnknown;
}

std::int32_t CameraBinding::PreviewFrameDataSize(int device) const {
  const BackendKind current = kind.load(std::memory_order_acquire);
  if (current == BackendKind::DirectShow && cdshow_frame_data_size != nullptr) {
    if (const int answer = cdshow_frame_data_size(device); answer > 0) {
      return answer;
    }
  }
  if (current == BackendKind::AvFoundation && avf_frame_data_size != nullptr) {
    const int answer = avf_frame_data_size(device);
    return answer > 0 ? answer : kUnknown;
  }
  const std::int32_t bytesPerRow = PreviewFrameBytesPerRow(device);
  return ByteProduct(bytesPerRow, FrameHeight(device)).value_or(kUnknown);
}

int CameraBinding::FirstFrameResult(int device) const {
  switch (kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      if (cnokhwa_has_first_frame != nullptr) {
        return cnokhwa_has_first_frame(device);
      }
      break;
    case BackendKind::DirectShow:
      if (cdshow_has_first_frame != nullptr) {
        const int answer = cdshow_has_first_frame(device);
        if (answer < 0) {
          return answer;
        }
        return answer == 0 ? kResultNotYet : kResultOk;
      }
      break;
    case BackendKind::AvFoundation:
      if (avf_has_first_frame != nullptr) {
        return avf_has_first_frame(device) ? kResultOk : kResultNotYet;
      }
      break;
    case BackendKind::None:
      break;
  }
  return kResultNoBackend;
}

CameraPixelFormat CameraBinding::FramePixelFormat(int device, CameraPixelFormat fallback) const {
  const auto entry = Entry(nullptr, &CameraBinding::cdshow_frame_pixel_format,
                           &CameraBinding::avf_frame_pixel_format);
  return entry == nullptr ? fallback : static_cast<CameraPixelFormat>(entry(device));
}

CameraPixelFormat CameraBinding::FramePixelFormat(int device) const {
  const bool isDirectShow = kind.load(std::memory_order_acquire) == BackendKind::DirectShow;
  return FramePixelFormat(device, isDirectShow ? CameraPixelFormat::Bgra : CameraPixelFormat::Rgb);
}

int CameraBinding::PlaneCount(int device) const {
  const auto entry = Entry(nullptr, &CameraBinding::cdshow_frame_plane_count,
                           &CameraBinding::avf_frame_plane_count);
  return entry == nullptr ? 1 : entry(device);
}

int CameraBinding::PlaneOffset(int device, int plane) const {
  const auto entry = Entry(nullptr, &CameraBinding::cdshow_frame_plane_offset,
                           &CameraBinding::avf_frame_plane_offset);
  return entry == nullptr ? -plane : entry(device, plane);
}

int CameraBinding::PlaneStride(int device, int plane, std::int32_t bytesPerRow) const {
  const auto entry = Entry(nullptr, &CameraBinding::cdshow_frame_plane_stride,
                           &CameraBinding::avf_frame_plane_stride);
  if (entry != nullptr) {
    return entry(device, plane);
  }
  return plane == 0 ? bytesPerRow : 0;
}

}  // namespace ostrel_native
