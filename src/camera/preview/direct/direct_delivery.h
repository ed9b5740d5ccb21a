// The frame callbacks that a backend gets: each takes one frame into the preview, copying its bytes
// once. They throw nothing, wait for nothing but a mutex that is held for a moment, and report
// through the preview's counters alone.
#pragma once

#include <cstdint>

#include "camera/preview/camera_preview.h"

namespace ostrel_native {

/// For a DirectShow backend. `context`: the `CameraPreviewProducer`; nothing happens without one.
/// Thread: backend callback, one call at a time.
void DirectFrameCallback(std::int32_t device, const std::uint8_t* data, std::uint64_t size,
                         std::int32_t flipped, void* context) noexcept;

/// For an AVFoundation backend. The planes' rows are copied tight; JPEG comes in plane 0.
/// `context`: the `CameraPreviewProducer`; nothing happens without one.
/// Thread: backend callback, one call at a time.
void AvfDirectFrameCallback(std::int32_t device, std::int32_t format, std::int32_t width,
                            std::int32_t height, std::int32_t planeCount,
                            const std::uint8_t* plane0, std::uint64_t plane0Size,
                            std::int32_t plane0Stride, const std::uint8_t* plane1,
                            std::uint64_t plane1Size, std::int32_t plane1Stride,
                            std::int64_t timestamp, void* context) noexcept;

/// Hands the callback of the backend's kind to the backend, with `producer` as its context.
/// Returns the backend's code, negative on refusal; -6 without the entry.
/// Thread: that of the turn.
int SetFrameCallback(int device, CameraPreviewProducer& producer);

/// Takes the callback back. On return no callback runs, which the backend vouches for.
/// Thread: that of the turn.
void ClearFrameCallback(int device);

}  // namespace ostrel_native
