#include "camera/backend/avf_format.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>
#include <vector>

namespace ostrel_native {

namespace {

constexpr std::string_view kDigits = "0123456789";
// Not those of <cctype>: the host application sets the process's locale, and the functions there
// are undefined for a negative char.
constexpr std::string_view kSpaces = " \t\n\v\f\r";
constexpr std::string_view kBareRate = "0123456789. \t\n\v\f\r";

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lower;
}

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kSpaces);
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

// An empty part keeps its place: the position tells the meaning.
std::vector<std::string_view> SplitParts(std::string_view descriptor) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = descriptor.find(';');
    parts.push_back(Trim(descriptor.substr(0, end)));
    if (end == std::string_view::npos) {
      return parts;
    }
    descriptor.remove_prefix(end + 1);
  }
}

bool Contains(std::string_view text, std::string_view word) {
  return text.find(word) != std::string_view::npos;
}

void ReadSize(std::string_view part, AvfFormat& format) {
  const std::size_t cross = part.find_first_of("xX");
  if (cross == std::string_view::npos) {
    return;
  }
  const std::int32_t width = ExtractFirstPositiveInt(part.substr(0, cross));
  const std::int32_t height = ExtractFirstPositiveInt(part.substr(cross + 1));
  if (width > 0 && height > 0) {
    format.width = width;
    format.height = height;
  }
}

// A bare number is a rate too; a number with other words, such as "30 frames", is not.
bool ReadsAsRate(std::string_view part) {
  const std::string lower = LowerCase(part);
  return Contains(lower, "fps") || Contains(lower, "hz") ||
         part.find_first_not_of(kBareRate) == std::string_view::npos;
}

// The rate of the parts behind the first, or 0.
std::int32_t LaterRate(const std::vector<std::string_view>& parts) {
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const std::int32_t rate = ExtractFirstPositiveInt(parts[i]);
    if (rate > 0 && ReadsAsRate(parts[i])) {
      return rate;
    }
  }
  return 0;
}

}  // namespace

std::int32_t ExtractFirstPositiveInt(std::string_view text) {
  const std::size_t first = text.find_first_of(kDigits);
  if (first == std::string_view::npos) {
    return 0;
  }
  std::int32_t value = 0;
  const auto result = std::from_chars(text.data() + first, text.data() + text.size(), value);
  return result.ec == std::errc() ? value : 0;
}

AvfFormat ParseAvfDescriptor(const std::string& descriptor) {
  AvfFormat format;
  const std::vector<std::string_view> parts = SplitParts(descriptor);
  ReadSize(parts[0], format);
  const bool hasType = parts.size() > 1 && !parts[1].empty();
  format.type = hasType ? std::string(parts[1]) : descriptor;

  std::int32_t rate = LaterRate(parts);
  if (rate == 0 && Contains(LowerCase(parts[0]), "fps")) {
    // The first number of the part, which is the width where a size stands before the rate.
    rate = ExtractFirstPositiveInt(parts[0]);
  }
  if (rate > 0) {
    format.frameRate = rate;
  }
  return format;
}

}  // namespace ostrel_native
