// The memory that an operation takes at its peak.
#pragma once

#include <functional>

namespace ostrel_native::bench {

/// Bytes by which the peak of the resident memory rises while `operation` runs, in a process of its
/// own, split off from this one: `operation` may not use threads that were started before.
/// 0 if that can't be found out.
double PeakBytes(const std::function<void()>& operation);

}  // namespace ostrel_native::bench
