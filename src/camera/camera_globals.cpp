// The camera unit's globals, in the order in which they are constructed. They are destroyed in
// reverse: the preview joins its worker first, then the recorder finishes its file, while the
// camera table and the JPEG library that their threads use still stand.
#include "addon/static_order.h"
#include "camera/backend/camera_binding.h"
#include "camera/frames/turbojpeg_runtime.h"
#include "camera/preview/camera_preview.h"
#include "recording/video_recorder.h"

namespace ostrel_native {

OSTREL_INIT_CAMERA TurboJpegRuntime g_turboJpeg;
OSTREL_INIT_CAMERA VideoRecorder g_videoRecorder;
OSTREL_INIT_CAMERA CameraBinding g_camera;
OSTREL_INIT_CAMERA CameraPreviewProducer g_cameraPreview;

}  // namespace ostrel_native
