// What a reading of a Dino-Lite device counts for. NaN takes the side of each test that it is
// written for, so the forms of the comparisons matter.
#pragma once

#include <cmath>
#include <optional>

namespace ostrel_native {

/// Whether a magnification is one that a microscope can have: 10 to 1000. NaN is neither below nor
/// above, so it passes.
/// Thread: any.
constexpr bool IsAcceptedAmr(double amr) {
  return !(amr < 10.0 || amr > 1000.0);
}

/// The field of view for script code from the library's value; -1 where that is not above 0.
/// Thread: any.
constexpr double FovFromLibrary(double value) {
  return value > 0.0 ? value / 1000.0 : -1.0;
}

/// Whether a field of view for the magnification `cached` is none for `wanted`. Where either is
/// NaN, it is one.
/// Thread: any.
inline bool IsForOtherAmr(double cached, double wanted) {
  return std::fabs(cached - wanted) > 0.001;
}

/// `value` unless it stands for nothing, as 0 and less do; NaN was accepted and is a reading.
/// Thread: any.
constexpr std::optional<double> ReadingOrNothing(double value) {
  return !(value <= 0.0) ? std::optional(value) : std::nullopt;
}

}  // namespace ostrel_native
