#include "addon/common.h"

#include <bit>
#include <cstddef>

#include "addon/mutex.h"
#include "addon/static_order.h"

namespace ostrel_native {

namespace {

OSTREL_INIT_COMMON Mutex g_lastErrorMutex;

}  // namespace

OSTREL_INIT_COMMON std::string g_lastError OSTREL_GUARDED_BY(g_lastErrorMutex);

namespace {

// Vendor strings may lack their terminator; nothing beyond this many units is read.
constexpr std::size_t kMaxWideUnits = 4096;
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;
constexpr std::uint32_t kMaxCodePoint = 0x10FFFF;

constexpr bool IsHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool IsLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::uint32_t codePoint, std::string& out) {
  const auto append = [&out](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
  const auto continuation = [codePoint](int shift) { return 0x80 | ((codePoint >> shift) & 0x3F); };
  if (codePoint <= 0x7F) {
    append(codePoint);
  } else if (codePoint <= 0x7FF) {
    append(0xC0 | (codePoint >> 6));
    append(continuation(0));
  } else if (codePoint <= 0xFFFF) {
    append(0xE0 | (codePoint >> 12));
    append(continuation(6));
    append(continuation(0));
  } else {
    append(0xF0 | (codePoint >> 18));
    append(continuation(12));
    append(continuation(6));
    append(continuation(0));
  }
}

}  // namespace

void SetLastError(const std::string& text) {
  const MutexLock lock(g_lastErrorMutex);
  g_lastError = text;
}

std::string GetLastErrorString() {
  const MutexLock lock(g_lastErrorMutex);
  return g_lastError;
}

std::string SafeCString(const char* text) {
  return text == nullptr ? std::string() : text;
}

std::string Utf16PtrToUtf8(const std::uint16_t* text) {
  std::string out;
  if (text == nullptr) {
    return out;
  }
  std::size_t count = 0;
  while (count < kMaxWideUnits && text[count] != 0) {
    ++count;
  }
  out.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t unit = text[i];
    // A pair must lie within the counted units: the one behind them may not be ours to read.
    if (IsHighSurrogate(unit) && i + 1 < count && IsLowSurrogate(text[i + 1])) {
      const std::uint32_t low = text[++i];
      AppendUtf8(((unit - 0xD800) << 10) + (low - 0xDC00) + 0x10000, out);
    } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
      AppendUtf8(kReplacementCharacter, out);
    } else {
      AppendUtf8(unit, out);
    }
  }
  return out;
}

std::string WCharPtrToUtf8(const wchar_t* text) {
  std::string out;
  if (text == nullptr) {
    return out;
  }
  for (std::size_t i = 0; i < kMaxWideUnits && text[i] != L'\0'; ++i) {
    // wchar_t is signed here: as it is, a value from 0x80000000 up would pass as valid.
    const auto value = std::bit_cast<std::uint32_t>(text[i]);
    const bool invalid = IsHighSurrogate(value) || IsLowSurrogate(value) || value > kMaxCodePoint;
    AppendUtf8(invalid ? kReplacementCharacter : value, out);
  }
  return out;
}

}  // namespace ostrel_native
