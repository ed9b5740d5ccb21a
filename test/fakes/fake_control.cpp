#include "fakes/fake_control.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <new>
#include <stdexcept>
#include <thread>
#include <utility>

#include "fakes/fake_state.h"
#include "fakes/frame_content.h"

namespace ostrel_native {

namespace {

// The first key, from specific to general, whose script passes the test.
template <typename Test>
FakeScript* FindScript(FakeData& data, const std::vector<std::string>& keys, Test test) {
  for (const std::string& key : keys) {
    const auto found = data.scripts.find(key);
    if (found != data.scripts.end() && test(found->second)) {
      return &found->second;
    }
  }
  return nullptr;
}

std::int64_t TakeAnswer(FakeData& data, const std::vector<std::string>& keys,
                        std::int64_t builtIn) {
  FakeScript* const script = FindScript(data, keys, [](const FakeScript& candidate) {
    return !candidate.queue.empty() || candidate.fixed.has_value();
  });
  if (script == nullptr) {
    return builtIn;
  }
  if (script->queue.empty()) {
    return *script->fixed;
  }
  const std::int64_t answer = script->queue.front();
  script->queue.erase(script->queue.begin());
  return answer;
}

std::vector<std::string> MakeKeys(const char* symbol,
                                  std::initializer_list<FakeArgument> arguments) {
  std::vector<std::string> keys = {symbol};
  for (const FakeArgument& argument : arguments) {
    if (!argument.pointer) {
      keys.push_back(keys.back() + (keys.size() == 1 ? "@" : ",") +
                     std::to_string(argument.number));
    }
  }
  std::reverse(keys.begin(), keys.end());
  return keys;
}

std::string ArgumentText(std::initializer_list<FakeArgument> arguments) {
  std::string text;
  for (const FakeArgument& argument : arguments) {
    text += text.empty() ? "" : ",";
    if (argument.pointer) {
      text += argument.number == 0 ? "null" : "ptr";
    } else {
      text += std::to_string(argument.number);
    }
  }
  return text;
}

void AppendLogFile(const FakeData& data, const std::string& line) {
  if (data.logPath.empty()) {
    return;
  }
  const int file = open(data.logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (file < 0) {
    return;
  }
  const std::string text = line + "\n";
  [[maybe_unused]] const ssize_t written = write(file, text.data(), text.size());
  close(file);
}

// Drops old calls many at a time, so that a long run stays fast; readers see the newest only.
void AppendLog(FakeData& data, FakeLogEntry entry) {
  data.log.push_back(std::move(entry));
  if (data.log.size() > 2 * data.logLimit) {
    data.log.erase(data.log.begin(), data.log.end() - static_cast<std::ptrdiff_t>(data.logLimit));
  }
}

void CountEntry(FakeData& data, const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    FakeStats& stats = data.stats[key];
    ++stats.entered;
    ++stats.active;
    stats.maxActive = std::max(stats.maxActive, stats.active);
    const auto script = data.scripts.find(key);
    if (script != data.scripts.end()) {
      for (const std::string& opened : script->second.opens) {
        data.scripts[opened].held = false;
      }
    }
  }
}

// Whether the call may go on now; uses up a pass.
bool PassGate(FakeData& data, const std::vector<std::string>& keys) {
  FakeScript* const gate =
      FindScript(data, keys, [](const FakeScript& candidate) { return candidate.held; });
  if (gate == nullptr) {
    return true;
  }
  if (gate->passes == 0) {
    return false;
  }
  --gate->passes;
  return true;
}

// The end of the memory for wide texts: a page behind it that nothing may touch shows who reads
// too far.
wchar_t* MapWideTexts() {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t bytes = kMostWideUnits * sizeof(wchar_t);
  void* const memory =
      mmap(nullptr, bytes + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    throw std::bad_alloc();
  }
  mprotect(static_cast<std::byte*>(memory) + bytes, page, PROT_NONE);
  return static_cast<wchar_t*>(memory) + kMostWideUnits;
}

}  // namespace

FakeState& TheFakeState() {
  // Placed in static storage and never destroyed: calls may come until the process has ended.
  alignas(FakeState) static std::byte storage[sizeof(FakeState)];
  static FakeState* const state = new (storage) FakeState;
  return *state;
}

FakeCall::FakeCall(const char* symbol, std::initializer_list<FakeArgument> arguments,
                   std::int64_t builtIn)
    : keys(MakeKeys(symbol, arguments)) {
  FakeState& state = TheFakeState();
  std::unique_lock lock(state.mutex);
  const std::string text = ArgumentText(arguments);
  AppendLogFile(state.data, std::string(symbol) + "(" + text + ")" +
                                (state.destroyed ? " after static_destructor" : ""));
  logIndex = state.data.nextIndex++;
  AppendLog(state.data, {logIndex, keys, text, gettid(), false, 0});
  CountEntry(state.data, keys);
  const std::uint64_t generation = state.generation;
  state.changed.notify_all();
  state.changed.wait(lock,
                     [&] { return state.generation != generation || PassGate(state.data, keys); });

  const FakeScript* const delayed = FindScript(
      state.data, keys, [](const FakeScript& candidate) { return candidate.delayMs.has_value(); });
  if (delayed != nullptr) {
    const std::chrono::milliseconds delay(*delayed->delayMs);
    lock.unlock();
    std::this_thread::sleep_for(delay);
    lock.lock();
  }
  result = state.destroyed ? -1 : TakeAnswer(state.data, keys, builtIn);

  const FakeScript* const throwing = FindScript(
      state.data, keys, [](const FakeScript& candidate) { return candidate.thrown.has_value(); });
  if (throwing != nullptr) {
    const std::string what = *throwing->thrown;
    lock.unlock();
    // There will be no destructor of this call.
    Finish();
    if (what.empty()) {
      throw 1;
    }
    throw std::runtime_error(what);
  }
}

FakeCall::~FakeCall() {
  Finish();
}

void FakeCall::Finish() const {
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  for (const std::string& key : keys) {
    // A reset in between has forgotten that the call entered.
    const auto stats = state.data.stats.find(key);
    if (stats != state.data.stats.end() && stats->second.active > 0) {
      --stats->second.active;
      ++stats->second.finished;
    }
  }
  const auto entry =
      std::find_if(state.data.log.rbegin(), state.data.log.rend(),
                   [this](const FakeLogEntry& candidate) { return candidate.index == logIndex; });
  if (entry != state.data.log.rend()) {
    entry->finished = true;
    entry->result = result;
  }
  state.changed.notify_all();
}

int FakeCall::Field(const char* field, std::int64_t builtIn) const {
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  return static_cast<int>(TakeAnswer(state.data, {keys.back() + "." + field}, builtIn));
}

void FakeCall::WriteText(void* buffer, int capacity) const {
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  const FakeScript* const script = FindScript(
      state.data, keys, [](const FakeScript& candidate) { return candidate.text.has_value(); });
  if (script == nullptr || buffer == nullptr || capacity < 1 || state.destroyed) {
    return;
  }
  const std::size_t room = static_cast<std::size_t>(capacity);
  if (!script->text->terminated) {
    std::memset(buffer, static_cast<unsigned char>(script->text->bytes[0]), room);
    return;
  }
  const std::size_t length = std::min(script->text->bytes.size(), room - 1);
  std::memcpy(buffer, script->text->bytes.data(), length);
  static_cast<char*>(buffer)[length] = '\0';
}

const char* FakeCall::LibraryText() const {
  static std::array<char, 4096> memory;
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  const FakeScript* const script = FindScript(
      state.data, keys, [](const FakeScript& candidate) { return candidate.text.has_value(); });
  if (script == nullptr || state.destroyed) {
    return nullptr;
  }
  memory.fill('?');
  memory.at(script->text->bytes.copy(memory.data(), memory.size() - 1)) = '\0';
  return memory.data();
}

const wchar_t* FakeCall::LibraryWideText() const {
  static wchar_t* const end = MapWideTexts();
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  const FakeScript* const script = FindScript(
      state.data, keys, [](const FakeScript& candidate) { return candidate.wideText.has_value(); });
  if (script == nullptr || state.destroyed) {
    return nullptr;
  }
  const std::vector<wchar_t>& units = *script->wideText;
  std::fill(end - kMostWideUnits, end, L'?');
  return std::copy(units.begin(), units.end(), end - units.size()) - units.size();
}

void FakeCall::WriteFrame(void* buffer, int capacity) const {
  FakeState& state = TheFakeState();
  std::unique_lock lock(state.mutex);
  FakeData& data = state.data;
  const FakeFrameSize size = data.frameSize;
  const FakeContent content = data.content;
  const std::uint8_t fillByte = data.fillByte;
  const std::uint32_t number = ++data.frames;
  if (!data.sizeChanges.empty() && --data.sizeChanges.front().frames <= 0) {
    data.frameSize = data.sizeChanges.front().size;
    data.sizeChanges.erase(data.sizeChanges.begin());
  }
  lock.unlock();

  if (buffer == nullptr || capacity < 1) {
    return;
  }
  const std::int64_t frameBytes = std::int64_t{size.bytesPerRow} * size.height;
  const std::size_t bytes =
      static_cast<std::size_t>(std::clamp<std::int64_t>(frameBytes, 0, capacity));
  std::uint8_t* const target = static_cast<std::uint8_t*>(buffer);
  switch (content) {
    case FakeContent::Uniform:
      FillUniform(target, bytes, size.width, size.bytesPerRow, number);
      break;
    case FakeContent::Ramp:
      FillRamp(target, bytes, number);
      break;
    case FakeContent::Fill:
      std::memset(target, fillByte, static_cast<std::size_t>(capacity));
      break;
    case FakeContent::None:
      break;
  }
}

FakeFrameSize CurrentFakeFrameSize() {
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  return state.data.frameSize;
}

void DestroyFakeLibrary() {
  FakeState& state = TheFakeState();
  const std::lock_guard lock(state.mutex);
  state.destroyed = true;
  AppendLogFile(state.data, "static_destructor");
}

}  // namespace ostrel_native
