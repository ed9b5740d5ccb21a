#include "unit/support/scripted_backend.h"

#include "recording/video_recorder_linux.h"

namespace ostrel_native {

// The two functions that bind a session to its platform; this program links none of the real.
bool LinuxVideoRecordingAvailable() {
  return test::g_available;
}

std::unique_ptr<VideoRecorder::Backend> CreateLinuxBackend() {
  test::g_script->onCreate();
  if (test::g_script->missing) {
    return nullptr;
  }
  return std::make_unique<test::ScriptedBackend>(*test::g_script);
}

}  // namespace ostrel_native
