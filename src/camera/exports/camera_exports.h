// The native forms of the camera functions, in the order in which they are exported. What each
// takes and returns stands with its definition, in the file that the group names.
// Thread: any environment, all of them: any number of environments may call them at once. No lock
// is held where they call Node-API or where script code may run.
#pragma once

#include <napi.h>

namespace ostrel_native {

// discovery_exports.cpp
Napi::Value LoadCameraBackend(const Napi::CallbackInfo& info);
Napi::Value LoadTurboJpeg(const Napi::CallbackInfo& info);
Napi::Value TurboJpegAvailable(const Napi::CallbackInfo& info);
Napi::Value TurboJpegLoadPath(const Napi::CallbackInfo& info);
Napi::Value CameraLoadPath(const Napi::CallbackInfo& info);
Napi::Value CameraBackend(const Napi::CallbackInfo& info);
Napi::Value CameraInitialize(const Napi::CallbackInfo& info);
Napi::Value CameraHasVideoCaptureAuth(const Napi::CallbackInfo& info);
Napi::Value CameraAskVideoCaptureAuth(const Napi::CallbackInfo& info);
Napi::Value CameraDevicesCount(const Napi::CallbackInfo& info);
Napi::Value CameraDeviceUniqueId(const Napi::CallbackInfo& info);
Napi::Value CameraDeviceModelId(const Napi::CallbackInfo& info);
Napi::Value CameraDeviceName(const Napi::CallbackInfo& info);
Napi::Value CameraDeviceType(const Napi::CallbackInfo& info);
Napi::Value CameraDeviceFormats(const Napi::CallbackInfo& info);

// capture_exports.cpp
Napi::Value CameraStartCapture(const Napi::CallbackInfo& info);
Napi::Value CameraStopCapture(const Napi::CallbackInfo& info);
Napi::Value CameraHasFirstFrame(const Napi::CallbackInfo& info);
Napi::Value CameraFrameInfo(const Napi::CallbackInfo& info);
Napi::Value CameraButtonPressed(const Napi::CallbackInfo& info);
Napi::Value CameraButtonTimestamp(const Napi::CallbackInfo& info);
Napi::Value CameraGrabFrame(const Napi::CallbackInfo& info);
Napi::Value CameraGrabFrameRgba(const Napi::CallbackInfo& info);

// direct_exports.cpp
Napi::Value CameraGrabEncodedFrame(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewIsDirect(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewReleaseDirectSlot(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewReleaseAllDirectSlots(const Napi::CallbackInfo& info);

// preview_exports.cpp
Napi::Value CameraPreviewStart(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewStop(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewIsRunning(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewGetLatest(const Napi::CallbackInfo& info);
Napi::Value CameraPreviewGetLatestQualityFrame(const Napi::CallbackInfo& info);

// recording_exports.cpp
Napi::Value CameraRecordingAvailable(const Napi::CallbackInfo& info);
Napi::Value CameraRecordingStart(const Napi::CallbackInfo& info);
Napi::Value CameraRecordingStop(const Napi::CallbackInfo& info);
Napi::Value CameraRecordingStatus(const Napi::CallbackInfo& info);

// control_exports.cpp
Napi::Value CameraHasVideoProcAmp(const Napi::CallbackInfo& info);
Napi::Value CameraVideoProcAmpRange(const Napi::CallbackInfo& info);
Napi::Value CameraVideoProcAmpGet(const Napi::CallbackInfo& info);
Napi::Value CameraVideoProcAmpSet(const Napi::CallbackInfo& info);

}  // namespace ostrel_native
