#include "simulator/faults.h"

#include <chrono>
#include <thread>

namespace ostrel_simulator {

void Faults::Hang(DevicePart part) {
  {
    const std::lock_guard lock(mutex);
    hanging = part;
  }
  changed.notify_all();
}

void Faults::Delay(DevicePart part) {
  const int ms = slowMs;
  if (ms > 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
  std::unique_lock lock(mutex);
  changed.wait(lock, [&] { return hanging != part; });
}

}  // namespace ostrel_simulator
