// What a fake library remembers, shared by its calls and its commands.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fakes/fake_control.h"

namespace ostrel_native {

struct FakeText {
  std::string bytes;  ///< the text; if not terminated, one byte
  bool terminated = false;
};

inline constexpr int kMostWideUnits = 8192;

/// What a test scripted for one key.
struct FakeScript {
  std::vector<std::int64_t> queue;  ///< next answer first
  std::optional<std::int64_t> fixed;
  std::optional<FakeText> text;
  std::optional<std::vector<wchar_t>> wideText;  ///< with its terminator, if it has one
  std::optional<int> delayMs;
  std::optional<std::string> thrown;  ///< the text of what is thrown; empty for a number
  bool held = false;
  int passes = 0;                  ///< calls that may pass while held
  std::vector<std::string> opens;  ///< keys whose gate a call of this key opens
};

struct FakeStats {
  int entered = 0;
  int finished = 0;
  int active = 0;
  int maxActive = 0;
};

struct FakeLogEntry {
  std::int64_t index = 0;
  std::vector<std::string> keys;
  std::string arguments;  ///< comma-separated; pointers as "null" or "ptr"
  int thread = 0;
  bool finished = false;
  std::int64_t result = 0;
};

struct FakeSizeChange {
  int frames = 0;  ///< still to be delivered before
  FakeFrameSize size;
};

enum class FakeContent { Uniform, Ramp, Fill, None };

/// All that `reset` forgets.
struct FakeData {
  std::map<std::string, FakeScript> scripts;
  std::map<std::string, FakeStats> stats;
  std::vector<FakeLogEntry> log;  ///< up to twice the limit; the older half counts as dropped
  std::int64_t nextIndex = 1;
  std::size_t logLimit = 10000;
  std::string logPath;
  FakeFrameSize frameSize;
  std::vector<FakeSizeChange> sizeChanges;
  FakeContent content = FakeContent::Uniform;
  std::uint8_t fillByte = 0;
  std::uint32_t frames = 0;
};

struct FakeState {
  std::mutex mutex;  ///< guards the rest
  std::condition_variable changed;
  FakeData data;
  std::uint64_t generation = 0;  ///< counts resets, so that held calls see them
  bool destroyed = false;
};

/// The state of this library; never destroyed.
FakeState& TheFakeState();

/// Runs the commands of fake_control.h and returns their answers.
/// Thread: any; a waiting command leaves the lock free for calls.
std::string RunFakeCommands(std::string_view commands);

}  // namespace ostrel_native
