// What all camera libraries say of the simulated cameras.
#pragma once

namespace ostrel_simulator {

/// The texts of a device into `buffer` of `capacity` bytes, terminated; empty for no such camera.
/// 0, or -1 for no such camera.
/// Thread: any.
int WriteCameraUniqueId(int device, void* buffer, int capacity);
int WriteCameraModelId(int device, void* buffer, int capacity);
int WriteCameraName(int device, void* buffer, int capacity);

/// A text of any kind.
/// Thread: any.
void WriteCameraText(const char* text, void* buffer, int capacity);

}  // namespace ostrel_simulator
