// The hand at the instrument behind the built libraries, and the camera library as far as tests of
// the others need it.
#pragma once

#include <dlfcn.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace ostrel_simulator {

/// Runs a command and gives its answer.
inline std::string Control(const std::string& command) {
  void* const library = dlopen(OSTREL_TEST_MICROSCOPE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  const auto control =
      reinterpret_cast<char* (*)(const char*)>(dlsym(library, "virtual_microscope_control"));
  const std::unique_ptr<char, decltype(&std::free)> answer(control(command.c_str()), &std::free);
  return answer.get();
}

struct OpenedCamera {
  OpenedCamera() : library(dlopen(OSTREL_TEST_SIMULATOR_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {}

  template <typename... Arguments>
  int Call(const char* name, Arguments... arguments) const {
    return reinterpret_cast<int (*)(Arguments...)>(dlsym(library, name))(arguments...);
  }

  /// A frame of format 0 that was begun after the call.
  std::vector<std::uint8_t> Grab() const {
    std::vector<std::uint8_t> frame(640 * 480 * 3);
    // The third frame from now on has been begun since.
    for (int i = 0; i < 3; ++i) {
      while (Call("cnokhwa_grab_frame", 0, static_cast<void*>(frame.data()),
                  static_cast<int>(frame.size())) == -256) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    }
    return frame;
  }

  void* library;
};

}  // namespace ostrel_simulator
