// The fake of the V4L2 camera library. Without a script every number is 0, so that the camera is
// ready but has no size: `frame W H` makes it a working one.
#include <iterator>

#include "fakes/fake_control.h"

extern "C" {
#define REQUIRED(name, result, parameters) \
  __attribute__((visibility("default"))) result name parameters;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "camera/backend/cnokhwa_symbols.h"
}

namespace ostrel_native {

const char* const kFakeSymbols[] = {
#define REQUIRED(name, result, parameters) #name,
#define OPTIONAL(name, result, parameters) #name,
#include "camera/backend/cnokhwa_symbols.h"
    nullptr};
static_assert(std::size(kFakeSymbols) == 20 + 1);

}  // namespace ostrel_native

using ostrel_native::CurrentFakeFrameSize;
using ostrel_native::FakeCall;

int cnokhwa_initialize() {
  return FakeCall(__func__, {}).Result();
}

int cnokhwa_has_videocapture_auth() {
  return FakeCall(__func__, {}).Result();
}

void cnokhwa_ask_videocapture_auth() {
  const FakeCall call(__func__, {});
}

int cnokhwa_devices_count() {
  return FakeCall(__func__, {}).Result();
}

int cnokhwa_device_unique_id(int device, void* buffer, int capacity) {
  const FakeCall call(__func__, {device, buffer, capacity});
  call.WriteText(buffer, capacity);
  return call.Result();
}

int cnokhwa_device_model_id(int device, void* buffer, int capacity) {
  const FakeCall call(__func__, {device, buffer, capacity});
  call.WriteText(buffer, capacity);
  return call.Result();
}

int cnokhwa_device_name(int device, void* buffer, int capacity) {
  const FakeCall call(__func__, {device, buffer, capacity});
  call.WriteText(buffer, capacity);
  return call.Result();
}

int cnokhwa_device_formats_count(int device) {
  return FakeCall(__func__, {device}).Result();
}

int cnokhwa_device_format_width(int device, int format) {
  return FakeCall(__func__, {device, format}).Result();
}

int cnokhwa_device_format_height(int device, int format) {
  return FakeCall(__func__, {device, format}).Result();
}

int cnokhwa_device_format_frame_rate(int device, int format) {
  return FakeCall(__func__, {device, format}).Result();
}

void cnokhwa_device_format_type(int device, int format, char* buffer, int capacity) {
  const FakeCall call(__func__, {device, format, buffer, capacity});
  call.WriteText(buffer, capacity);
}

int cnokhwa_start_capture(int device, int width, int height) {
  return FakeCall(__func__, {device, width, height}).Result();
}

int cnokhwa_stop_capture(int device) {
  return FakeCall(__func__, {device}).Result();
}

int cnokhwa_has_first_frame(int device) {
  return FakeCall(__func__, {device}).Result();
}

int cnokhwa_frame_width(int device) {
  return FakeCall(__func__, {device}, CurrentFakeFrameSize().width).Result();
}

int cnokhwa_frame_height(int device) {
  return FakeCall(__func__, {device}, CurrentFakeFrameSize().height).Result();
}

int cnokhwa_frame_bytes_per_row(int device) {
  return FakeCall(__func__, {device}, CurrentFakeFrameSize().bytesPerRow).Result();
}

// A frame is delivered with result 0 only; any other answer leaves the buffer alone.
int cnokhwa_grab_frame(int device, void* buffer, int capacity) {
  const FakeCall call(__func__, {device, buffer, capacity});
  if (call.Result() == 0) {
    call.WriteFrame(buffer, capacity);
  }
  return call.Result();
}

int cnokhwa_start_capture_with_format(int device, int format) {
  return FakeCall(__func__, {device, format}).Result();
}
