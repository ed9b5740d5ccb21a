// How long a caller waits for the owner thread of a vendor library.
#pragma once

#include <chrono>

namespace ostrel_native {

inline constexpr std::chrono::milliseconds kOrdinaryCallTimeout{5'000};
inline constexpr std::chrono::milliseconds kDeviceSelectionTimeout{10'000};
/// Starting a library and listing its devices.
inline constexpr std::chrono::milliseconds kInitialisationTimeout{20'000};

}  // namespace ostrel_native
