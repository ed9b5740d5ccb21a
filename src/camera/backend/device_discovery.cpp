#include "camera/backend/device_discovery.h"

#include <cstddef>
#include <vector>

#include "camera/backend/camera_binding.h"

namespace ostrel_native {

namespace {

constexpr int kDeviceTextCapacity = 1024;
constexpr int kFormatTypeCapacity = 256;
constexpr int kAvfDescriptorCapacity = 512;

// Lets `fill` write a text into a zeroed buffer. The end is forced: a backend may fill the
// buffer to its last byte.
template <typename Fill>
std::string ReadText(int capacity, Fill fill) {
  std::vector<char> buffer(static_cast<std::size_t>(capacity));
  fill(buffer.data(), capacity);
  buffer.back() = '\0';
  return buffer.data();
}

template <typename Entry>
std::string ReadDeviceText(int device, Entry entry) {
  if (entry == nullptr) {
    return {};
  }
  return ReadText(kDeviceTextCapacity,
                  [&](char* buffer, int capacity) { entry(device, buffer, capacity); });
}

using LinuxText = int (*CameraBinding::*)(int device, void* buffer, int capacity);
using OtherText = void (*CameraBinding::*)(int device, void* buffer, int capacity);
using AvfText = void (*)(int device, void* buffer, int capacity);

// The Linux entries have another signature than those of the other kinds.
std::string DeviceText(int device, LinuxText linuxEntry, OtherText dshowEntry, OtherText avfEntry) {
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      return ReadDeviceText(device, g_camera.*linuxEntry);
    case BackendKind::DirectShow:
      return ReadDeviceText(device, g_camera.*dshowEntry);
    case BackendKind::AvFoundation:
      return ReadAvfDeviceString(device, g_camera.*avfEntry);
    case BackendKind::None:
      break;
  }
  return {};
}

using FormatNumber = int (*)(int device, int format);
using FormatType = void (*)(int device, int format, char* buffer, int capacity);

int ReadFormatNumber(int device, int index, FormatNumber entry) {
  return entry == nullptr ? 0 : entry(device, index);
}

std::string ReadFormatType(int device, int index, FormatType entry) {
  if (entry == nullptr) {
    return {};
  }
  return ReadText(kFormatTypeCapacity,
                  [&](char* buffer, int capacity) { entry(device, index, buffer, capacity); });
}

}  // namespace

int DevicesCount() {
  const auto entry =
      g_camera.Entry(&CameraBinding::cnokhwa_devices_count, &CameraBinding::cdshow_devices_count,
                     &CameraBinding::avf_devices_count);
  return entry == nullptr ? 0 : entry();
}

std::string DeviceUniqueId(int device) {
  return DeviceText(device, &CameraBinding::cnokhwa_device_unique_id,
                    &CameraBinding::cdshow_device_unique_id, &CameraBinding::avf_device_unique_id);
}

std::string DeviceModelId(int device) {
  return DeviceText(device, &CameraBinding::cnokhwa_device_model_id,
                    &CameraBinding::cdshow_device_model_id, &CameraBinding::avf_device_model_id);
}

std::string DeviceName(int device) {
  return DeviceText(device, &CameraBinding::cnokhwa_device_name, &CameraBinding::cdshow_device_name,
                    &CameraBinding::avf_device_name);
}

std::string DeviceType(int device) {
  return ReadAvfDeviceString(
      device, g_camera.Entry<AvfText>(nullptr, nullptr, &CameraBinding::avf_device_type));
}

std::string ReadAvfDeviceString(int device, void (*entry)(int device, void* buffer, int capacity)) {
  return ReadDeviceText(device, entry);
}

int DeviceFormatsCount(int device) {
  const auto entry =
      g_camera.Entry(&CameraBinding::cnokhwa_device_formats_count,
                     &CameraBinding::cdshow_formats_count, &CameraBinding::avf_formats_count);
  const int count = entry == nullptr ? 0 : entry(device);
  return count < 0 || count > kMaxListedFormats ? 0 : count;
}

DeviceFormat DeviceFormatAt(int device, int index) {
  DeviceFormat format;
  switch (g_camera.kind.load(std::memory_order_acquire)) {
    case BackendKind::Linux:
      format.width = ReadFormatNumber(device, index, g_camera.cnokhwa_device_format_width);
      format.height = ReadFormatNumber(device, index, g_camera.cnokhwa_device_format_height);
      format.frameRate = ReadFormatNumber(device, index, g_camera.cnokhwa_device_format_frame_rate);
      format.type = ReadFormatType(device, index, g_camera.cnokhwa_device_format_type);
      break;
    case BackendKind::DirectShow:
      format.width = ReadFormatNumber(device, index, g_camera.cdshow_format_width);
      format.height = ReadFormatNumber(device, index, g_camera.cdshow_format_height);
      format.frameRate = ReadFormatNumber(device, index, g_camera.cdshow_format_frame_rate);
      format.type = ReadFormatType(device, index, g_camera.cdshow_format_type);
      break;
    case BackendKind::AvFoundation:
      format.width = ParseAvfFormat(device, index).width;
      format.height = ParseAvfFormat(device, index).height;
      format.frameRate = ParseAvfFormat(device, index).frameRate;
      format.type = ParseAvfFormat(device, index).type;
      break;
    case BackendKind::None:
      break;
  }
  return format;
}

AvfFormat ParseAvfFormat(int device, int format) {
  const auto entry =
      g_camera.Entry<FormatType>(nullptr, nullptr, &CameraBinding::avf_format_descriptor);
  if (entry == nullptr) {
    return {};
  }
  return ParseAvfDescriptor(ReadText(kAvfDescriptorCapacity, [&](char* buffer, int capacity) {
    entry(device, format, buffer, capacity);
  }));
}

}  // namespace ostrel_native
