// The tests' side of the fake FFmpeg libraries: sets of three, and the state behind them.
#pragma once

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "fakes/ffmpeg/fake_ffmpeg_state.h"
#include "unit/support/temporary_directory.h"

namespace ostrel_native {

inline constexpr char kFakeUtilName[] = "libavutil.so.56";
inline constexpr char kFakeCodecName[] = "libavcodec.so.58";
inline constexpr char kFakeFormatName[] = "libavformat.so.58";

/// A file among the fakes of FFmpeg.
inline std::string FakeFfmpegPath(const std::string& name) {
  return std::string(OSTREL_TEST_FAKES_DIR) + "/ffmpeg/" + name;
}

/// A directory with the three fake libraries. The state is that of the process.
struct FakeFfmpegSet {
  FakeFfmpegSet() : state(OpenState()) {
    for (const char* const name : {kFakeUtilName, kFakeCodecName, kFakeFormatName}) {
      Use(name, FakeFfmpegPath(name));
    }
  }

  /// Puts `target`, any library, in the place of `name`.
  void Use(const std::string& name, const std::string& target) {
    Remove(name);
    std::filesystem::create_symlink(target, directory.File(name));
  }

  void Remove(const std::string& name) { std::filesystem::remove(directory.File(name)); }

  /// The logged calls since the last clearing, "name" or "name(detail)"; of all functions, or of
  /// those in `names`.
  std::vector<std::string> Calls(const std::vector<std::string>& names = {}) const {
    std::vector<std::string> calls;
    for (const FakeFfmpegCall& call : state.calls) {
      if (names.empty() || std::find(names.begin(), names.end(), call.name) != names.end()) {
        calls.push_back(call.detail.empty() ? call.name : call.name + "(" + call.detail + ")");
      }
    }
    return calls;
  }

  /// The names of the logged calls, without those in `ignored`.
  std::vector<std::string> Names(const std::vector<std::string>& ignored = {}) const {
    std::vector<std::string> names;
    for (const FakeFfmpegCall& call : state.calls) {
      if (std::find(ignored.begin(), ignored.end(), call.name) == ignored.end()) {
        names.push_back(call.name);
      }
    }
    return names;
  }

  int Count(const std::string& name) const { return static_cast<int>(Calls({name}).size()); }

  /// The log level in force at each logged call of `name`.
  std::vector<int> LogLevels(const std::string& name) const {
    std::vector<int> levels;
    for (const FakeFfmpegCall& call : state.calls) {
      if (call.name == name) {
        levels.push_back(call.logLevel);
      }
    }
    return levels;
  }

  /// Objects that were made and not yet freed.
  int LiveObjects() const {
    int count = 0;
    for (const auto& [type, number] : state.live) {
      count += number;
    }
    return count;
  }

  TemporaryDirectory directory;
  FakeFfmpegState& state;

 private:
  static FakeFfmpegState& OpenState() {
    void* const library = dlopen(FakeFfmpegPath("libfake_ffmpeg_state.so").c_str(), RTLD_NOW);
    void* const symbol = library == nullptr ? nullptr : dlsym(library, "FakeFfmpeg");
    if (symbol == nullptr) {
      throw std::runtime_error(dlerror());
    }
    return *reinterpret_cast<FakeFfmpegState* (*)()>(symbol)();
  }
};

}  // namespace ostrel_native
