#include "camera/camera_module.h"

#include <iterator>

#include "addon/script_exports.h"
#include "camera/camera_types.h"
#include "camera/exports/camera_exports.h"

namespace ostrel_native {

namespace {

constexpr ScriptFunction kFunctions[] = {
    {"loadCameraBackend", LoadCameraBackend},
    {"loadTurboJpeg", LoadTurboJpeg},
    {"turboJpegAvailable", TurboJpegAvailable},
    {"turboJpegLoadPath", TurboJpegLoadPath},
    {"cameraLoadPath", CameraLoadPath},
    {"cameraBackend", CameraBackend},
    {"cameraInitialize", CameraInitialize},
    {"cameraHasVideoCaptureAuth", CameraHasVideoCaptureAuth},
    {"cameraAskVideoCaptureAuth", CameraAskVideoCaptureAuth},
    {"cameraDevicesCount", CameraDevicesCount},
    {"cameraDeviceUniqueId", CameraDeviceUniqueId},
    {"cameraDeviceModelId", CameraDeviceModelId},
    {"cameraDeviceName", CameraDeviceName},
    {"cameraDeviceType", CameraDeviceType},
    {"cameraDeviceFormats", CameraDeviceFormats},
    {"cameraStartCapture", CameraStartCapture},
    {"cameraStopCapture", CameraStopCapture},
    {"cameraHasFirstFrame", CameraHasFirstFrame},
    {"cameraFrameInfo", CameraFrameInfo},
    {"cameraButtonPressed", CameraButtonPressed},
    {"cameraButtonTimestamp", CameraButtonTimestamp},
    {"cameraGrabFrame", CameraGrabFrame},
    {"cameraGrabFrameRgba", CameraGrabFrameRgba},
    {"cameraGrabEncodedFrame", CameraGrabEncodedFrame},
    {"cameraPreviewStart", CameraPreviewStart},
    {"cameraPreviewStop", CameraPreviewStop},
    {"cameraPreviewIsRunning", CameraPreviewIsRunning},
    {"cameraPreviewIsDirect", CameraPreviewIsDirect},
    {"cameraPreviewReleaseDirectSlot", CameraPreviewReleaseDirectSlot},
    {"cameraPreviewReleaseAllDirectSlots", CameraPreviewReleaseAllDirectSlots},
    {"cameraPreviewGetLatest", CameraPreviewGetLatest},
    {"cameraPreviewGetLatestQualityFrame", CameraPreviewGetLatestQualityFrame},
    {"cameraRecordingAvailable", CameraRecordingAvailable},
    {"cameraRecordingStart", CameraRecordingStart},
    {"cameraRecordingStop", CameraRecordingStop},
    {"cameraRecordingStatus", CameraRecordingStatus},
    {"cameraHasVideoProcAmp", CameraHasVideoProcAmp},
    {"cameraVideoProcAmpRange", CameraVideoProcAmpRange},
    {"cameraVideoProcAmpGet", CameraVideoProcAmpGet},
    {"cameraVideoProcAmpSet", CameraVideoProcAmpSet},
};
static_assert(std::size(kFunctions) == 40);

struct ScriptConstant {
  const char* name;
  int value;
};

// RESULT_YES is 0, as success is: a script must compare `cameraHasFirstFrame` with the names and
// never test its truthiness.
constexpr ScriptConstant kConstants[] = {
    {"VIDEOPROCAMP_BRIGHTNESS", 0},
    {"VIDEOPROCAMP_CONTRAST", 1},
    {"VIDEOPROCAMP_HUE", 2},
    {"VIDEOPROCAMP_SATURATION", 3},
    {"VIDEOPROCAMP_SHARPNESS", 4},
    {"VIDEOPROCAMP_GAMMA", 5},
    {"VIDEOPROCAMP_COLORENABLE", 6},
    {"VIDEOPROCAMP_WHITEBALANCE", 7},
    {"VIDEOPROCAMP_BACKLIGHTCOMPENSATION", 8},
    {"VIDEOPROCAMP_GAIN", 9},
    {"VIDEOPROCAMP_FLAG_AUTO", 1},
    {"VIDEOPROCAMP_FLAG_MANUAL", 2},
    {"RESULT_OK", kResultOk},
    {"RESULT_YES", kResultOk},
    {"RESULT_NO", kResultNotYet},
    {"STATUS_AUTHORIZED", kResultOk},
};
static_assert(std::size(kConstants) == 16);

}  // namespace

void RegisterCamera(Napi::Env env, Napi::Object exports) {
  SetScriptFunctions(env, exports, kFunctions);
  for (const ScriptConstant& constant : kConstants) {
    exports.Set(constant.name, Napi::Number::New(env, constant.value));
  }
}

}  // namespace ostrel_native
