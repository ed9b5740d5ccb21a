// The NV12 conversion written down sample by sample, as the oracle of the fast one.
#pragma once

#include "recording/video_recorder.h"

namespace ostrel_native::test {

/// Same arguments, same results and same bytes as the conversion under test; shares no code
/// with it but the record of the frame.
bool ReferenceNv12(const VideoRecorder::Frame& frame, unsigned char* y, int yStride,
                   unsigned char* uv, int uvStride);

}  // namespace ostrel_native::test
