#include "fakes/direct_backend.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

namespace ostrel_native {

struct DirectBackend::Hammer {
  HammerPlan plan;
  std::atomic<bool> stopped{false};
  std::uint64_t fired = 0;  // the thread's until it is joined
  std::thread thread;
};

namespace {

void WriteNumber(FiredPlane& plane, std::uint32_t number) {
  if (plane.bytes == nullptr) {
    return;
  }
  std::uint8_t* const bytes = plane.bytes->data();
  const std::size_t size = plane.bytes->size();
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<std::uint8_t>(number >> (i % 4 * 8));
  }
}

}  // namespace

DirectBackend& DirectBackend::Instance() {
  static DirectBackend& instance = *new DirectBackend;
  return instance;
}

void DirectBackend::SetGrabBytes(std::optional<std::vector<std::uint8_t>> bytes) {
  const std::lock_guard lock(mutex);
  grabBytes = std::move(bytes);
}

std::optional<std::vector<std::uint8_t>> DirectBackend::GrabBytes() {
  const std::lock_guard lock(mutex);
  return grabBytes;
}

void DirectBackend::FireWhileRegistering(FiredFrame frame) {
  const std::lock_guard lock(mutex);
  atRegistration = std::move(frame);
}

void DirectBackend::Register(DirectFrameCallbackFn callback, void* callbackContext) {
  {
    const std::lock_guard lock(mutex);
    dshowCallback = callback;
    avfCallback = nullptr;
    context = callbackContext;
  }
  Registered();
}

void DirectBackend::Register(AvfDirectFrameCallbackFn callback, void* callbackContext) {
  {
    const std::lock_guard lock(mutex);
    dshowCallback = nullptr;
    avfCallback = callback;
    context = callbackContext;
  }
  Registered();
}

void DirectBackend::Registered() {
  std::unique_lock lock(mutex);
  registered = true;
  const std::optional<FiredFrame> first = std::exchange(atRegistration, std::nullopt);
  lock.unlock();
  if (first) {
    Fire(*first);
  }
}

void DirectBackend::Unregister() {
  std::unique_lock lock(mutex);
  registered = false;
  idle.wait(lock, [this] { return running == 0; });
}

bool DirectBackend::Fire(const FiredFrame& frame) {
  std::unique_lock lock(mutex);
  if (context == nullptr || (!registered && !frame.late)) {
    return false;
  }
  ++running;
  lock.unlock();
  Deliver(frame);
  lock.lock();
  --running;
  idle.notify_all();
  return true;
}

// The callback stays as it is while `running` counts this call.
void DirectBackend::Deliver(const FiredFrame& frame) const {
  const auto bytes = [](const FiredPlane& plane) {
    return plane.bytes == nullptr ? nullptr : plane.bytes->data();
  };
  const FiredPlane& first = frame.planes[0];
  const FiredPlane& second = frame.planes[1];
  void* const given = frame.nullContext ? nullptr : context;
  if (dshowCallback != nullptr) {
    dshowCallback(frame.device, bytes(first), first.size, frame.flipped, given);
  } else {
    avfCallback(frame.device, frame.format, frame.width, frame.height, frame.planeCount,
                bytes(first), first.size, first.stride, bytes(second), second.size, second.stride,
                frame.timestamp, given);
  }
}

void DirectBackend::StartHammer(HammerPlan plan) {
  if (hammer != nullptr) {
    throw std::logic_error("a hammer is at work");
  }
  hammer = new Hammer;
  hammer->plan = std::move(plan);
  hammer->thread = std::thread([this, own = hammer] {
    FiredFrame& frame = own->plan.frame;
    const auto& contents = own->plan.contents;
    const double rate = own->plan.framesPerSecond;
    const std::chrono::nanoseconds interval(rate > 0 ? static_cast<std::int64_t>(1e9 / rate) : 0);
    auto next = std::chrono::steady_clock::now();
    for (std::uint32_t number = 1; !own->stopped; ++number) {
      if (contents.empty()) {
        WriteNumber(frame.planes[0], number);
        WriteNumber(frame.planes[1], number);
      } else {
        frame.planes[0] = contents[(number - 1) % contents.size()];
      }
      own->fired += Fire(frame) ? 1 : 0;
      next += interval;
      std::this_thread::sleep_until(next);
    }
  });
}

std::uint64_t DirectBackend::StopHammer() {
  if (hammer == nullptr) {
    throw std::logic_error("no hammer is at work");
  }
  const std::unique_ptr<Hammer> ended(std::exchange(hammer, nullptr));
  ended->stopped = true;
  ended->thread.join();
  return ended->fired;
}

}  // namespace ostrel_native
