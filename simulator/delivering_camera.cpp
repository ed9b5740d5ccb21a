#include "simulator/delivering_camera.h"

#include <cstddef>
#include <memory>
#include <utility>

#include "simulator/instrument.h"

namespace ostrel_simulator {

namespace {

// Never destroyed, as the instrument is not.
const std::vector<std::unique_ptr<DeliveringCamera>>& AllCameras() {
  static const auto& cameras = *[] {
    auto* const made = new std::vector<std::unique_ptr<DeliveringCamera>>;
    for (const std::unique_ptr<Device>& device : TheInstrument().devices) {
      made->push_back(std::make_unique<DeliveringCamera>(device->camera));
    }
    return made;
  }();
  return cameras;
}

}  // namespace

Offer OfferOf(const std::vector<OfferedLayout>& layouts) {
  Offer offer;
  for (const OfferedLayout& layout : layouts) {
    int sizeIndex = 0;
    for (const CaptureFormat& size : CaptureFormats()) {
      offer.formats.push_back({size, sizeIndex++, layout});
    }
  }
  return offer;
}

int Offer::Count() const {
  return static_cast<int>(formats.size());
}

const OfferedFormat* Offer::At(int index) const {
  return index < 0 || index >= Count() ? nullptr : &formats[static_cast<std::size_t>(index)];
}

int DeliveringCamera::Start(int sizeIndex, CameraPixelFormat format) {
  // Between two captures: each delivers all of its frames in one layout.
  camera.Stop();
  pixelFormat = format;
  return camera.Start(sizeIndex);
}

FrameLayout DeliveringCamera::Layout() {
  const int width = camera.FrameWidth();
  const int height = camera.FrameHeight();
  if (width < 1 || height < 1) {
    return {};
  }
  return LayOut(pixelFormat, width, height, camera.settings.rowPadding);
}

int DeliveringCamera::Grab(const FrameLayout& layout, void* buffer, int capacity) {
  const int rgbStride = camera.FrameBytesPerRow();
  if (layout.width < 1 || rgbStride < 1) {
    return kNotCapturing;
  }
  if (buffer == nullptr || capacity < layout.dataSize) {
    return kNoRoom;
  }
  thread_local std::vector<std::uint8_t> rgb;
  const int rgbBytes = rgbStride * layout.height;
  rgb.resize(static_cast<std::size_t>(rgbBytes));
  if (const int result = camera.Grab(rgb.data(), rgbBytes); result != kOk) {
    return result;
  }
  const std::size_t written =
      WriteFrame(layout, rgb.data(), rgbStride, false, static_cast<std::uint8_t*>(buffer));
  return written > 0 ? kOk : kNoRoom;
}

void DeliveringCamera::Deliver(bool runsBottomUp, Receiver receiver) {
  camera.listener.Set([this, runsBottomUp, receiver = std::move(receiver),
                       bytes = std::vector<std::uint8_t>()](const CameraFrame& frame) mutable {
    const FrameLayout layout =
        LayOut(pixelFormat, frame.width, frame.height, camera.settings.rowPadding);
    bytes.resize(static_cast<std::size_t>(layout.dataSize));
    const std::size_t size =
        WriteFrame(layout, frame.rgb, frame.bytesPerRow, runsBottomUp, bytes.data());
    if (size > 0) {
      receiver(layout, bytes.data(), size, frame.timestampNs);
    }
  });
}

DeliveringCamera* TheDeliveringCamera(int device) {
  return TheInstrument().Camera(device) == nullptr
             ? nullptr
             : AllCameras()[static_cast<std::size_t>(device)].get();
}

int StopDeliveringCamera(int device) {
  if (device >= 0) {
    SimulatedCamera* const camera = TheInstrument().Camera(device);
    return camera == nullptr ? kNoDevice : camera->Stop();
  }
  for (const std::unique_ptr<DeliveringCamera>& each : AllCameras()) {
    each->camera.Stop();
  }
  return kOk;
}

}  // namespace ostrel_simulator
