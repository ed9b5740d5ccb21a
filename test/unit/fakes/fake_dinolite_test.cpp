// What the fake Dino-Lite library answers, and its texts.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <string>

#include "fakes/fake_library.h"

namespace ostrel_native {
namespace {

struct FakeDinoLite : testing::Test {
  FakeLibrary fake{FakePath("libdinolite.so")};

  FakeDinoLite() { fake.Send("reset"); }

  bool Ask(const char* symbol) const { return fake.Symbol<bool (*)()>(symbol)(); }
  int Count(const char* symbol) const { return fake.Symbol<int (*)()>(symbol)(); }
};

TEST_F(FakeDinoLite, HasTwoPlainDevicesAndRefusesNothingUnlessItIsTold) {
  EXPECT_EQ(Count("dl_devices_count"), 2);
  EXPECT_EQ(Count("dl_get_selected_device"), -1);
  EXPECT_EQ(Count("dl_led_mode_count"), 0);
  EXPECT_TRUE(fake.Symbol<bool (*)(int)>("dl_select_device")(7));
  EXPECT_TRUE(fake.Symbol<bool (*)(int)>("dl_set_led_state")(16));
  EXPECT_TRUE(Ask("dl_initialize_selected_device"));
  EXPECT_FALSE(Ask("dl_device_supports_amr"));
  EXPECT_FALSE(Ask("dl_device_supports_microtouch"));
  EXPECT_FALSE(Ask("dl_microtouch_pressed"));
  EXPECT_EQ(fake.Symbol<const char* (*)()>("dl_get_last_error")(), nullptr);
}

TEST_F(FakeDinoLite, TakesAndLogsFloatingPointByItsBits) {
  fake.Send("default dl_get_amr " + std::to_string(std::bit_cast<std::int32_t>(219.7F)));
  EXPECT_EQ(fake.Symbol<float (*)()>("dl_get_amr")(), 219.7F);
  const std::string amr = std::to_string(std::bit_cast<std::int64_t>(0.1));
  fake.Send("default dl_get_fovx@3," + amr + " " +
            std::to_string(std::bit_cast<std::int64_t>(-6.5)));
  const auto fov = fake.Symbol<double (*)(int, double)>("dl_get_fovx");
  EXPECT_EQ(fov(3, 0.1), -6.5);
  EXPECT_EQ(fov(3, 0.2), 0.0);
  EXPECT_EQ(fake.Calls("dl_get_fovx").at(0).arguments, (std::vector<std::string>{"3", amr}));
}

TEST_F(FakeDinoLite, CountsUpdatesIn64Bits) {
  fake.Send("default dl_get_amr_update_count -1");
  EXPECT_EQ(fake.Symbol<std::uint64_t (*)()>("dl_get_amr_update_count")(), ~std::uint64_t{0});
}

TEST_F(FakeDinoLite, WritesATextOfADeviceWithinTheCapacity) {
  const auto read =
      fake.Symbol<void (*)(unsigned int, void*, unsigned int)>("dl_get_device_unique_id");
  std::array<char, 5> buffer{};
  buffer.fill('?');
  read(4'294'967'295U, buffer.data(), 4);
  EXPECT_EQ(std::string(buffer.data(), 5), "?????");
  fake.Send("text dl_get_device_unique_id@4294967295 abcdef");
  read(4'294'967'295U, buffer.data(), 4);
  EXPECT_EQ(std::string(buffer.data(), 5), std::string("abc\0?", 5));
  fake.Send("unterminated dl_get_device_unique_id 120");
  read(0, buffer.data(), 4);
  EXPECT_EQ(std::string(buffer.data(), 5), "xxxx?");
}

}  // namespace
}  // namespace ostrel_native
