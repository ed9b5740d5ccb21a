#include "addon/common.h"

#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "unit/support/guarded_buffer.h"

namespace ostrel_native {
namespace {

using test::GuardedBuffer;

constexpr char kReplacement[] = "\xEF\xBF\xBD";

std::string Utf16(std::vector<std::uint16_t> units) {
  units.push_back(0);
  return Utf16PtrToUtf8(units.data());
}

std::string Wide(const std::vector<std::uint32_t>& values) {
  std::vector<wchar_t> text;
  for (const std::uint32_t value : values) {
    text.push_back(static_cast<wchar_t>(value));
  }
  text.push_back(0);
  return WCharPtrToUtf8(text.data());
}

TEST(LastError, IsEmptyAtFirstAndKeepsItsTextWhenRead) {
  EXPECT_EQ(GetLastErrorString(), "");
  SetLastError("no camera");
  EXPECT_EQ(GetLastErrorString(), "no camera");
  EXPECT_EQ(GetLastErrorString(), "no camera");
}

TEST(LastError, IsReplacedByTheNextTextAndClearedByAnEmptyOne) {
  SetLastError("first");
  SetLastError("second");
  EXPECT_EQ(GetLastErrorString(), "second");
  SetLastError("");
  EXPECT_EQ(GetLastErrorString(), "");
}

TEST(LastError, IsAlwaysOneWholeTextUnderConcurrentWriters) {
  const std::string texts[] = {std::string(200, 'a'), std::string(3000, 'b')};
  SetLastError(texts[0]);
  std::latch start(3);
  const auto write = [&start](const std::string& text) {
    start.arrive_and_wait();
    for (int i = 0; i < 2000; ++i) {
      SetLastError(text);
    }
  };
  std::thread first(write, texts[0]);
  std::thread second(write, texts[1]);
  start.arrive_and_wait();
  for (int i = 0; i < 2000; ++i) {
    const std::string text = GetLastErrorString();
    ASSERT_TRUE(text == texts[0] || text == texts[1]);
  }
  first.join();
  second.join();
}

TEST(SafeCString, CopiesUpToTheFirstZeroAndTakesNull) {
  EXPECT_EQ(SafeCString(nullptr), "");
  EXPECT_EQ(SafeCString(""), "");
  EXPECT_EQ(SafeCString("ab\0cd"), "ab");
}

TEST(Utf16PtrToUtf8, EncodesEachLengthInItsShortestForm) {
  EXPECT_EQ(Utf16PtrToUtf8(nullptr), "");
  EXPECT_EQ(Utf16({}), "");
  EXPECT_EQ(Utf16({0x41, 0x7F}), "A\x7F");
  EXPECT_EQ(Utf16({0x80, 0x7FF}), "\xC2\x80\xDF\xBF");
  EXPECT_EQ(Utf16({0x800, 0xFFFF}), "\xE0\xA0\x80\xEF\xBF\xBF");
  EXPECT_EQ(Utf16({0xD7FF, 0xE000}), "\xED\x9F\xBF\xEE\x80\x80");
}

TEST(Utf16PtrToUtf8, CombinesASurrogatePair) {
  EXPECT_EQ(Utf16({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Utf16({0xD800, 0xDC00}), "\xF0\x90\x80\x80");
  EXPECT_EQ(Utf16({0xDBFF, 0xDFFF}), "\xF4\x8F\xBF\xBF");
}

TEST(Utf16PtrToUtf8, ReplacesEachUnpairedSurrogate) {
  EXPECT_EQ(Utf16({0xD83D, 0x41}), std::string(kReplacement) + "A");
  EXPECT_EQ(Utf16({0xD83D}), kReplacement);
  EXPECT_EQ(Utf16({0xDE00, 0x42}), std::string(kReplacement) + "B");
  EXPECT_EQ(Utf16({0xD83D, 0xD83D, 0xDE00}), std::string(kReplacement) + "\xF0\x9F\x98\x80");
}

TEST(Utf16PtrToUtf8, CutsALongStringAt4096Units) {
  EXPECT_EQ(Utf16(std::vector<std::uint16_t>(5000, 'x')), std::string(4096, 'x'));
}

TEST(Utf16PtrToUtf8, NeverLooksBehindUnit4095) {
  // The page behind the last unit that may be read is not readable.
  GuardedBuffer buffer(4096 * sizeof(std::uint16_t));
  auto* const units = reinterpret_cast<std::uint16_t*>(buffer.data());
  std::fill(units, units + 4095, std::uint16_t{'x'});
  units[4095] = 0xD83D;
  std::string expected(4095, 'x');
  expected += kReplacement;
  EXPECT_EQ(Utf16PtrToUtf8(units), expected);
}

TEST(WCharPtrToUtf8, EncodesEachLengthInItsShortestForm) {
  EXPECT_EQ(WCharPtrToUtf8(nullptr), "");
  EXPECT_EQ(WCharPtrToUtf8(L""), "");
  EXPECT_EQ(Wide({0x41, 0x7F, 0x80, 0x7FF}), "A\x7F\xC2\x80\xDF\xBF");
  EXPECT_EQ(Wide({0x800, 0xFFFF}), "\xE0\xA0\x80\xEF\xBF\xBF");
  EXPECT_EQ(Wide({0x10000, 0x10FFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(WCharPtrToUtf8, DoesNotPairSurrogates) {
  EXPECT_EQ(Wide({0xD83D, 0xDE00}), std::string(kReplacement) + kReplacement);
  EXPECT_EQ(Wide({0xD800}), kReplacement);
  EXPECT_EQ(Wide({0xDFFF, 0x41}), std::string(kReplacement) + "A");
}

TEST(WCharPtrToUtf8, ReplacesValuesBeyondUnicodeAlsoThoseThatAreNegativeAsWcharT) {
  EXPECT_EQ(Wide({0x110000}), kReplacement);
  EXPECT_EQ(Wide({0x80000000}), kReplacement);
  EXPECT_EQ(Wide({0xFFFFFFFF, 0x41}), std::string(kReplacement) + "A");
}

TEST(WCharPtrToUtf8, ReadsAtMost4096Characters) {
  EXPECT_EQ(Wide(std::vector<std::uint32_t>(5000, 'x')), std::string(4096, 'x'));
  GuardedBuffer buffer(4096 * sizeof(wchar_t));
  auto* const text = reinterpret_cast<wchar_t*>(buffer.data());
  std::fill(text, text + 4096, L'y');
  EXPECT_EQ(WCharPtrToUtf8(text), std::string(4096, 'y'));
}

}  // namespace
}  // namespace ostrel_native
