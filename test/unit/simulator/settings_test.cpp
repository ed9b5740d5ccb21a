#include "simulator/settings.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace ostrel_simulator {
namespace {

Settings Read(const std::map<std::string, std::string>& variables) {
  return ReadSettings([&](const char* name) {
    const auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
  });
}

TEST(Settings, AreOneSteadyCameraWithoutVariables) {
  const Settings settings = Read({});
  EXPECT_EQ(settings.seed, 1U);
  EXPECT_EQ(settings.devices, 1);
  EXPECT_EQ(settings.rowPadding, 0);
  EXPECT_EQ(settings.runsBottomUp, 0);
  EXPECT_EQ(settings.frameLimit, 0);
  EXPECT_EQ(settings.stutterEvery, 0);
  EXPECT_EQ(settings.stutterMs, 0);
  EXPECT_EQ(settings.focus, 128);
  EXPECT_EQ(settings.light, 100);
  EXPECT_EQ(settings.magnification, 50);
  EXPECT_EQ(settings.stage, Stage{});
  EXPECT_EQ(settings.showsNumbers, 1);
  EXPECT_EQ(settings.noiseTenths, 12);
  EXPECT_EQ(settings.readingNoise, 12);
  EXPECT_EQ(settings.dinoLiteFeatures, std::vector<DinoLiteFeatures>(1));
  EXPECT_EQ(settings.dinoLiteFeatures[0], (DinoLiteFeatures{true, true, LedControl::Groups}));
  EXPECT_EQ(settings.controlPath, "");
  EXPECT_TRUE(settings.valid);
}

TEST(Settings, ComeFromTheVariables) {
  const Settings settings = Read({{"OSTREL_SIMULATOR_SEED", "18446744073709551615"},
                                  {"OSTREL_SIMULATOR_DEVICES", "0"},
                                  {"OSTREL_SIMULATOR_ROW_PADDING", "4096"},
                                  {"OSTREL_SIMULATOR_BOTTOM_UP", "1"},
                                  {"OSTREL_SIMULATOR_FRAMES", "5"},
                                  {"OSTREL_SIMULATOR_STUTTER", "30:500"},
                                  {"OSTREL_SIMULATOR_FOCUS", "255"},
                                  {"OSTREL_SIMULATOR_LIGHT", "0"},
                                  {"OSTREL_SIMULATOR_MAGNIFICATION", "220"},
                                  {"OSTREL_SIMULATOR_STAGE", "-30:1000000"},
                                  {"OSTREL_SIMULATOR_NUMBERS", "0"},
                                  {"OSTREL_SIMULATOR_NOISE", "100"},
                                  {"OSTREL_SIMULATOR_READING_NOISE", "1000"},
                                  {"OSTREL_SIMULATOR_CONTROL", "/tmp/x"}});
  EXPECT_EQ(settings.seed, 18446744073709551615U);
  EXPECT_EQ(settings.devices, 0);
  EXPECT_EQ(settings.rowPadding, 4096);
  EXPECT_EQ(settings.runsBottomUp, 1);
  EXPECT_EQ(settings.frameLimit, 5);
  EXPECT_EQ(settings.stutterEvery, 30);
  EXPECT_EQ(settings.stutterMs, 500);
  EXPECT_EQ(settings.focus, 255);
  EXPECT_EQ(settings.light, 0);
  EXPECT_EQ(settings.magnification, 220);
  EXPECT_EQ(settings.stage, (Stage{false, -30, 1000000}));
  EXPECT_EQ(settings.showsNumbers, 0);
  EXPECT_EQ(settings.noiseTenths, 100);
  EXPECT_EQ(settings.readingNoise, 1000);
  EXPECT_EQ(settings.controlPath, "/tmp/x");
  EXPECT_TRUE(settings.valid);
}

TEST(Settings, GiveEachMicroscopeItsFeatures) {
  const Settings settings =
      Read({{"OSTREL_SIMULATOR_DINO_FEATURES", "leds,amr:none:microtouch,switch"}});
  EXPECT_TRUE(settings.valid);
  EXPECT_EQ(settings.DinoLiteFeaturesOf(0), (DinoLiteFeatures{true, false, LedControl::Groups}));
  EXPECT_EQ(settings.DinoLiteFeaturesOf(1), (DinoLiteFeatures{false, false, LedControl::None}));
  EXPECT_EQ(settings.DinoLiteFeaturesOf(2), (DinoLiteFeatures{false, true, LedControl::Switch}));
  EXPECT_EQ(settings.DinoLiteFeaturesOf(7), settings.DinoLiteFeaturesOf(2));
}

TEST(Settings, StayAtTheirDefaultsWhereAVariableCannotBeRead) {
  const std::multimap<std::string, std::string> refused = {
      {"OSTREL_SIMULATOR_SEED", "-1"},
      {"OSTREL_SIMULATOR_SEED", "x"},
      {"OSTREL_SIMULATOR_SEED", ""},
      {"OSTREL_SIMULATOR_DEVICES", "9"},
      {"OSTREL_SIMULATOR_DEVICES", "-1"},
      {"OSTREL_SIMULATOR_DEVICES", "1 "},
      {"OSTREL_SIMULATOR_ROW_PADDING", "4097"},
      {"OSTREL_SIMULATOR_FRAMES", "0"},
      {"OSTREL_SIMULATOR_FRAMES", "2147483648"},
      {"OSTREL_SIMULATOR_STUTTER", "30"},
      {"OSTREL_SIMULATOR_STUTTER", "30:"},
      {"OSTREL_SIMULATOR_STUTTER", ":5"},
      {"OSTREL_SIMULATOR_STUTTER", "0:5"},
      {"OSTREL_SIMULATOR_STUTTER", "30:60001"},
      {"OSTREL_SIMULATOR_FOCUS", "256"},
      {"OSTREL_SIMULATOR_LIGHT", "101"},
      {"OSTREL_SIMULATOR_MAGNIFICATION", "19"},
      {"OSTREL_SIMULATOR_MAGNIFICATION", "221"},
      {"OSTREL_SIMULATOR_STAGE", "still"},
      {"OSTREL_SIMULATOR_STAGE", "1"},
      {"OSTREL_SIMULATOR_STAGE", ":1"},
      {"OSTREL_SIMULATOR_STAGE", "1000001:0"},
      {"OSTREL_SIMULATOR_NUMBERS", "2"},
      {"OSTREL_SIMULATOR_NOISE", "101"},
      {"OSTREL_SIMULATOR_READING_NOISE", "1001"},
      {"OSTREL_SIMULATOR_READING_NOISE", "-1"},
      {"OSTREL_SIMULATOR_DINO_FEATURES", ""},
      {"OSTREL_SIMULATOR_DINO_FEATURES", "amr,"},
      {"OSTREL_SIMULATOR_DINO_FEATURES", "amr:"},
      {"OSTREL_SIMULATOR_DINO_FEATURES", "amr,none"},
      {"OSTREL_SIMULATOR_DINO_FEATURES", "AMR"},
  };
  for (const auto& [name, value] : refused) {
    const Settings settings = Read({{name, value}});
    EXPECT_FALSE(settings.valid) << name << "=" << value;
    EXPECT_EQ(settings.seed, 1U);
    EXPECT_EQ(settings.devices, 1);
    EXPECT_EQ(settings.rowPadding, 0);
    EXPECT_EQ(settings.frameLimit, 0);
    EXPECT_EQ(settings.stutterEvery, 0);
    EXPECT_EQ(settings.stutterMs, 0);
    EXPECT_EQ(settings.focus, 128);
    EXPECT_EQ(settings.light, 100);
    EXPECT_EQ(settings.magnification, 50);
    EXPECT_EQ(settings.stage, Stage{});
    EXPECT_EQ(settings.showsNumbers, 1);
    EXPECT_EQ(settings.noiseTenths, 12);
    EXPECT_EQ(settings.readingNoise, 12);
    EXPECT_EQ(settings.dinoLiteFeatures, std::vector<DinoLiteFeatures>(1));
  }
}

}  // namespace
}  // namespace ostrel_simulator
