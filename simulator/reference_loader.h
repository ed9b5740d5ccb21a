// The loader that the addon lacks for backends of the two other kinds, as one would write it.
#pragma once

#include <string>

#include "camera/backend/camera_binding.h"

namespace ostrel_native {

/// Opens a library of the DirectShow or the AVFoundation kind, told by which of the two
/// `..._initialize` functions it has, and makes it the backend. True if a backend is loaded, also
/// by an earlier call, which is then left as it is. False without a last error of its own for any
/// other file.
/// Thread: any.
bool LoadReferenceBackend(CameraBinding& binding, const std::string& path);

}  // namespace ostrel_native
