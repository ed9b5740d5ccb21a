// OpenCV's multi-band blender doing what the fusion does, if the benchmarks were built with it.
#pragma once

#include <functional>

#include "focus_stack.h"

namespace ostrel_native::bench {

/// Blends the stack on `threads` threads, one frame after the other. What a call does: the two
/// alignment maps and the weight map of each frame are expanded to the size of the image, the frame
/// is warped with the one and fed to the blender, of 4 levels, with the other as its mask; at the
/// end the result is converted to bytes. What it does less: frames, masks and results are of 8 bits
/// a value, the levels of 16, and the confidences are not looked at.
/// The frames are converted to the blender's layout beforehand.
using Peer = std::function<void(int threads)>;

/// Whether the benchmarks were built with OpenCV.
bool HasPeer();

/// Empty without OpenCV. `stack` outlives the result.
Peer MakePeer(const FocusStack& stack);

}  // namespace ostrel_native::bench
