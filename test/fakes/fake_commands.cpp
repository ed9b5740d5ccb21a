// The text commands of fake_control.h.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "fakes/fake_control.h"
#include "fakes/fake_state.h"

namespace ostrel_native {

namespace {

// Longer than any wait that succeeds, shorter than a test's own time-out.
constexpr std::int64_t kDefaultWaitMs = 60000;

struct CommandError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The words of one command line, taken from the left.
struct Words {
  std::string_view rest;

  std::string_view Next() {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(word.size());
    return word;
  }

  bool AtEnd() const { return rest.find_first_not_of(' ') == std::string_view::npos; }

  std::string Required(const char* what) {
    const std::string_view word = Next();
    if (word.empty()) {
      throw CommandError(std::string("missing ") + what);
    }
    return std::string(word);
  }

  std::int64_t Number() {
    const std::string word = Required("number");
    std::int64_t value = 0;
    const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (problem != std::errc() || end != word.data() + word.size()) {
      throw CommandError("not a number: " + word);
    }
    return value;
  }

  int Int() {
    const std::int64_t value = Number();
    if (value != static_cast<int>(value)) {
      throw CommandError("number out of range: " + std::to_string(value));
    }
    return static_cast<int>(value);
  }

  std::uint8_t Byte() {
    const int value = Int();
    if (value < 0 || value > 255) {
      throw CommandError("not a byte: " + std::to_string(value));
    }
    return static_cast<std::uint8_t>(value);
  }

  // A misspelt symbol would script nothing, and the test would pass for the wrong reason.
  std::string Key() {
    std::string key = Required("key");
    const std::string symbol = key.substr(0, key.find_first_of("@."));
    for (const char* const* name = kFakeSymbols; *name != nullptr; ++name) {
      if (symbol == *name) {
        return key;
      }
    }
    throw CommandError("no such symbol: " + symbol);
  }

  std::size_t WideCount() {
    const std::int64_t count = Number();
    if (count < 1 || count > std::int64_t{kMostWideUnits}) {
      throw CommandError("not a length: " + std::to_string(count));
    }
    return static_cast<std::size_t>(count);
  }

  FakeFrameSize FrameSize() {
    FakeFrameSize size;
    size.width = Int();
    size.height = Int();
    // Wraps for sizes that no frame has; then the row is given.
    size.bytesPerRow = AtEnd() ? static_cast<int>(std::int64_t{size.width} * 3) : Int();
    return size;
  }
};

std::string Unescape(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned value = 0;
    if (text.substr(i, 2) == "\\x" && i + 4 <= text.size() &&
        std::from_chars(text.data() + i + 2, text.data() + i + 4, value, 16).ptr ==
            text.data() + i + 4) {
      result += static_cast<char>(value);
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

std::string Wait(FakeState& state, std::unique_lock<std::mutex>& lock, Words& words,
                 int FakeStats::*counter) {
  const std::string key = words.Key();
  const int count = words.Int();
  const std::int64_t timeoutMs = words.AtEnd() ? kDefaultWaitMs : words.Number();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  const auto counted = [&] {
    const auto stats = state.data.stats.find(key);
    return stats == state.data.stats.end() ? 0 : stats->second.*counter;
  };
  if (!state.changed.wait_until(lock, deadline, [&] { return counted() >= count; })) {
    throw CommandError("timed out with " + std::to_string(counted()) + " calls of " + key);
  }
  return "ok " + std::to_string(counted());
}

std::string StatsText(const FakeData& data, const std::string& key) {
  const auto found = data.stats.find(key);
  const FakeStats stats = found == data.stats.end() ? FakeStats{} : found->second;
  return "ok entered=" + std::to_string(stats.entered) +
         " finished=" + std::to_string(stats.finished) + " active=" + std::to_string(stats.active) +
         " max_active=" + std::to_string(stats.maxActive);
}

std::string LogText(const FakeData& data, const std::string& key) {
  std::string lines;
  int count = 0;
  const std::size_t dropped = data.log.size() - std::min(data.log.size(), data.logLimit);
  for (std::size_t i = dropped; i < data.log.size(); ++i) {
    const FakeLogEntry& entry = data.log[i];
    const auto& keys = entry.keys;
    if (!key.empty() && std::find(keys.begin(), keys.end(), key) == keys.end()) {
      continue;
    }
    ++count;
    lines += "\nindex=" + std::to_string(entry.index) + " symbol=" + keys.back() +
             " args=" + entry.arguments + " thread=" + std::to_string(entry.thread) +
             " result=" + (entry.finished ? std::to_string(entry.result) : "pending");
  }
  return "ok " + std::to_string(count) + lines;
}

void SetContent(FakeData& data, Words& words) {
  const std::string kind = words.Required("content");
  if (kind == "uniform") {
    data.content = FakeContent::Uniform;
  } else if (kind == "ramp") {
    data.content = FakeContent::Ramp;
  } else if (kind == "none") {
    data.content = FakeContent::None;
  } else if (kind == "fill") {
    data.fillByte = words.Byte();
    data.content = FakeContent::Fill;
  } else {
    throw CommandError("no such content: " + kind);
  }
}

void Block(FakeData& data, Words& words) {
  const std::string key = words.Key();
  data.scripts[key].held = true;
  data.scripts[key].passes = 0;
  if (words.AtEnd()) {
    return;
  }
  if (words.Next() != "until") {
    throw CommandError("expected: until");
  }
  data.scripts[words.Key()].opens.push_back(key);
}

void Release(FakeData& data, Words& words) {
  FakeScript& script = data.scripts[words.Key()];
  if (words.AtEnd()) {
    script.held = false;
  } else {
    script.passes += words.Int();
  }
}

std::vector<wchar_t> WideText(Words& words) {
  std::vector<wchar_t> units;
  while (!words.AtEnd()) {
    units.push_back(static_cast<wchar_t>(words.Number()));
  }
  units.push_back(L'\0');
  if (units.size() > kMostWideUnits) {
    throw CommandError("text too long");
  }
  return units;
}

// Commands about the answers; false for another name.
bool RunScriptCommand(FakeData& data, const std::string& name, Words& words) {
  if (name == "default") {
    FakeScript& script = data.scripts[words.Key()];
    script.fixed = words.Number();
  } else if (name == "answer") {
    FakeScript& script = data.scripts[words.Key()];
    do {
      script.queue.push_back(words.Number());
    } while (!words.AtEnd());
  } else if (name == "text") {
    FakeScript& script = data.scripts[words.Key()];
    script.text = {Unescape(words.rest.substr(std::min<std::size_t>(1, words.rest.size()))), true};
  } else if (name == "unterminated") {
    FakeScript& script = data.scripts[words.Key()];
    script.text = {std::string(1, static_cast<char>(words.Byte())), false};
  } else if (name == "wide") {
    FakeScript& script = data.scripts[words.Key()];
    script.wideText = WideText(words);
  } else if (name == "wide_unterminated") {
    FakeScript& script = data.scripts[words.Key()];
    const auto unit = static_cast<wchar_t>(words.Number());
    script.wideText = std::vector<wchar_t>(words.WideCount(), unit);
  } else if (name == "delay") {
    FakeScript& script = data.scripts[words.Key()];
    script.delayMs = words.Int();
  } else if (name == "throw") {
    FakeScript& script = data.scripts[words.Key()];
    script.thrown = std::string(words.rest.substr(std::min<std::size_t>(1, words.rest.size())));
  } else if (name == "throw_number") {
    data.scripts[words.Key()].thrown = "";
  } else if (name == "block") {
    Block(data, words);
  } else if (name == "release") {
    Release(data, words);
  } else {
    return false;
  }
  return true;
}

// Commands about frames and the log; false for another name.
bool RunFrameOrLogCommand(FakeData& data, const std::string& name, Words& words) {
  if (name == "frame") {
    data.frameSize = words.FrameSize();
    data.sizeChanges.clear();
  } else if (name == "frame_after") {
    const int frames = words.Int();
    data.sizeChanges.push_back({frames, words.FrameSize()});
  } else if (name == "content") {
    SetContent(data, words);
  } else if (name == "clear_log") {
    data.log.clear();
  } else if (name == "log_limit") {
    data.logLimit = static_cast<std::size_t>(std::max(words.Int(), 0));
  } else if (name == "log_file") {
    data.logPath = words.Required("path");
  } else {
    return false;
  }
  return true;
}

std::string RunCommand(FakeState& state, std::unique_lock<std::mutex>& lock,
                       std::string_view line) {
  Words words{line};
  const std::string name = words.Required("command");
  FakeData& data = state.data;
  if (name == "reset") {
    data = FakeData{};
    ++state.generation;
  } else if (name == "wait_entered") {
    return Wait(state, lock, words, &FakeStats::entered);
  } else if (name == "wait_finished") {
    return Wait(state, lock, words, &FakeStats::finished);
  } else if (name == "stats") {
    return StatsText(data, words.Key());
  } else if (name == "log") {
    return LogText(data, words.AtEnd() ? std::string() : words.Key());
  } else if (name == "frames") {
    return "ok " + std::to_string(data.frames);
  } else if (!RunScriptCommand(data, name, words) && !RunFrameOrLogCommand(data, name, words)) {
    throw CommandError("no such command: " + name);
  }
  return "ok";
}

}  // namespace

std::string RunFakeCommands(std::string_view commands) {
  FakeState& state = TheFakeState();
  std::string answers;
  std::unique_lock lock(state.mutex);
  while (!commands.empty()) {
    const std::string_view line = commands.substr(0, commands.find('\n'));
    commands.remove_prefix(std::min(line.size() + 1, commands.size()));
    if (line.find_first_not_of(' ') == std::string_view::npos) {
      continue;
    }
    answers += answers.empty() ? "" : "\n";
    try {
      answers += RunCommand(state, lock, line);
    } catch (const CommandError& error) {
      answers += "error: " + std::string(error.what()) + " in: " + std::string(line);
      break;
    }
  }
  lock.unlock();
  // Gates, answers and sizes may have changed.
  state.changed.notify_all();
  return answers;
}

}  // namespace ostrel_native

char* fake_control(const char* commands) {
  return strdup(ostrel_native::RunFakeCommands(commands == nullptr ? "" : commands).c_str());
}
