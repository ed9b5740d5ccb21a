// Letting go of the arrays that script code lends: Node-API allows it on the thread of their
// environment alone, and a preview may be stopped on another one.
#pragma once

#include <napi.h>

#include <thread>

namespace ostrel_native {

/// Lets go of the array if this is its lender's thread or nobody's is known; else leaves that to
/// the lender's next `ReleaseHandedOver`. Thread: script, of any environment.
void ReleaseOnLender(Napi::Reference<Napi::Object>&& reference, std::thread::id lender) noexcept;

/// Lets go of the arrays of this thread whose previews other threads have stopped.
/// Thread: script.
void ReleaseHandedOver();

}  // namespace ostrel_native
