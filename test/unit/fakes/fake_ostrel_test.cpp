// What the fake microscope library answers, and its texts.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "fakes/fake_library.h"

namespace ostrel_native {
namespace {

struct FakeOstrel : testing::Test {
  FakeLibrary fake{FakePath("libostrel.so")};
  const wchar_t* (*id)(int) = fake.Symbol<const wchar_t* (*)(int)>("GetDeviceUniqueId");
  const wchar_t* (*name)(int) = fake.Symbol<const wchar_t* (*)(int)>("GetDeviceFriendlyName");
  const char* (*error)() = fake.Symbol<const char* (*)()>("GetLastErrorString");

  FakeOstrel() { fake.Send("reset"); }
};

TEST_F(FakeOstrel, StartsAndHasTwoDevicesWithoutTextsUnlessItIsTold) {
  EXPECT_EQ(fake.Symbol<int (*)()>("Init")(), 1);
  EXPECT_EQ(fake.Symbol<int (*)()>("GetDevicesCount")(), 2);
  EXPECT_EQ(fake.Symbol<int (*)()>("IsCapturePressed")(), 0);
  EXPECT_EQ(id(0), nullptr);
  EXPECT_EQ(error(), nullptr);
}

TEST_F(FakeOstrel, GivesFloatsByTheirBitsAndLeavesUnscriptedParametersAlone) {
  fake.Send("default GetPixelSizeMicrons " + std::to_string(std::bit_cast<std::int32_t>(-2.5F)));
  EXPECT_EQ(fake.Symbol<float (*)()>("GetPixelSizeMicrons")(), -2.5F);
  fake.Send("default GetPixelSizeInfo.width 640");
  float size = 1.5F;
  std::uint16_t width = 1;
  std::uint16_t height = 2;
  using Read = int (*)(float*, std::uint16_t*, std::uint16_t*);
  EXPECT_EQ(fake.Symbol<Read>("GetPixelSizeInfo")(&size, &width, &height), 1);
  EXPECT_EQ(size, 1.5F);
  EXPECT_EQ(width, 640);
  EXPECT_EQ(height, 2);
}

TEST_F(FakeOstrel, ReusesItsMemoryForTheNextText) {
  fake.Send(
      "wide GetDeviceUniqueId 105 100\nwide GetDeviceFriendlyName 110\ntext GetLastErrorString a "
      "b");
  const wchar_t* const first = id(0);
  EXPECT_STREQ(first, L"id");
  EXPECT_STREQ(name(0), L"n");
  EXPECT_STRNE(first, L"id");
  EXPECT_STREQ(error(), "a b");
}

TEST_F(FakeOstrel, EndsAnUnterminatedTextWhereItsMemoryEnds) {
  fake.Send("wide_unterminated GetDeviceUniqueId 120 3");
  const wchar_t* const text = id(0);
  EXPECT_EQ(text[0], L'x');
  EXPECT_EQ(text[2], L'x');
  EXPECT_DEATH(static_cast<void>(*static_cast<const volatile wchar_t*>(text + 3)), "");
}

TEST_F(FakeOstrel, RefusesTextsThatAreTooLong) {
  EXPECT_THROW(fake.Send("wide_unterminated GetDeviceUniqueId 120 8193"), std::runtime_error);
  EXPECT_THROW(fake.Send("wide_unterminated GetDeviceUniqueId 120 0"), std::runtime_error);
  EXPECT_THROW(fake.Send("wide GetDeviceUniqueId x"), std::runtime_error);
}

}  // namespace
}  // namespace ostrel_native
