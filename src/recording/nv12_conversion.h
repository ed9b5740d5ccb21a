// Turns a queued camera frame of any convertible layout into the two planes of an NV12 picture.
#pragma once

#include "recording/video_recorder.h"

namespace ostrel_native {

/// Writes `frame` as NV12. `y`: `height` rows of `width` bytes, `yStride` bytes apart; `uv`:
/// `height / 2` rows of `width` bytes, U first, `uvStride` bytes apart. Both are the caller's
/// and overlap neither each other nor the frame; bytes between rows stay as they were.
/// True if both planes are completely written. False, with the target untouched, for a null
/// target, a size that is odd or below 1, a target stride below `width`, a layout that is not
/// convertible, or a plane that does not lie within the frame's bytes. Sets no last error.
/// Thread: any.
bool ConvertFrameToNv12Planar(const VideoRecorder::Frame& frame, unsigned char* y, int yStride,
                              unsigned char* uv, int uvStride);

}  // namespace ostrel_native
