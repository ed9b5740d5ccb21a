#include "camera/lent_references.h"

#include <list>
#include <mutex>
#include <utility>

namespace ostrel_native {

namespace {

struct HandedOver {
  HandedOver(std::thread::id lenderThread, Napi::Reference<Napi::Object>&& handed)
      : lender(lenderThread), reference(std::move(handed)) {}

  std::thread::id lender;
  Napi::Reference<Napi::Object> reference;
};

struct HandedOverList {
  std::mutex mutex;
  std::list<HandedOver> references;  // guarded by mutex
};

// Never destroyed: at process exit the environments are gone, and their references with them.
HandedOverList& Waiting() {
  static auto* const list = new HandedOverList;
  return *list;
}

}  // namespace

void ReleaseOnLender(Napi::Reference<Napi::Object>&& reference, std::thread::id lender) noexcept {
  Napi::Reference<Napi::Object> dropped(std::move(reference));
  if (dropped.IsEmpty() || lender == std::thread::id() || lender == std::this_thread::get_id()) {
    return;
  }
  try {
    HandedOverList& waiting = Waiting();
    const std::lock_guard lock(waiting.mutex);
    waiting.references.emplace_back(lender, std::move(dropped));
  } catch (...) {
    // Without memory the array lives as long as its environment.
    dropped.SuppressDestruct();
  }
}

void ReleaseHandedOver() {
  HandedOverList& waiting = Waiting();
  const std::lock_guard lock(waiting.mutex);
  std::erase_if(waiting.references, [](const HandedOver& handed) {
    return handed.lender == std::this_thread::get_id();
  });
}

}  // namespace ostrel_native
