// Feature toggles: the toggles file's parser, built-in defaults, where the
// file is found, and overrides. Each case starts and ends with an empty cache.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/Flipset/Flipset.h"

namespace {

class Flipset : public ::testing::Test {
 protected:
  void SetUp() override { ::Flipset::reloadToggles(); }
  void TearDown() override {
    unsetenv("IPRIB_TOGGLES");
    ::Flipset::reloadToggles();
    std::filesystem::remove(path_);
  }
  // Points IPRIB_TOGGLES at a fresh file holding `text`.
  void togglesFileIs(const std::string& text) {
    std::ofstream(path_) << text;
    setenv("IPRIB_TOGGLES", path_.c_str(), 1);
    ::Flipset::reloadToggles();
  }
  const std::string path_ = (std::filesystem::temp_directory_path() /
                             ("FlipsetTest." + std::to_string(::getpid()) + ".json"))
                                .string();
};

std::string parseError(std::string_view text) {
  std::string error;
  return ::Flipset::parseToggles(text, error) ? "parsed" : error;
}

TEST_F(Flipset, ParsesAFlatObjectOfBooleans) {
  std::string error;
  auto t = ::Flipset::parseToggles(
      " {\n\t\"A\" : true,\"B\\\"\\\\\\/\\n\":false , \"A\":false}\r\n", error);
  ASSERT_TRUE(t) << error;
  EXPECT_EQ(*t, (::Flipset::Toggles{{"A", false}, {"B\"\\/\n", false}}));
  EXPECT_TRUE(::Flipset::parseToggles("{}", error)->empty());

  EXPECT_EQ(parseError(""), "expected '{' at offset 0");
  EXPECT_EQ(parseError("[]"), "expected '{' at offset 0");
  EXPECT_EQ(parseError("{\"A\": 1}"), "expected true or false at offset 6");
  EXPECT_EQ(parseError("{\"A\": tru}"), "expected true or false at offset 6");
  EXPECT_EQ(parseError("{\"A\" true}"), "expected ':' at offset 5");
  EXPECT_EQ(parseError("{\"A\": true \"B\": true}"), "expected ',' or '}' at offset 11");
  EXPECT_EQ(parseError("{\"A\": true,}"), "expected a quoted toggle name at offset 11");
  EXPECT_EQ(parseError("{\"A\\u0041\": true}"), "unsupported escape in a string at offset 4");
  EXPECT_EQ(parseError("{\"A"), "unterminated string at offset 3");
  EXPECT_EQ(parseError("{\"A\": true} x"), "unexpected text after the object at offset 12");
  EXPECT_EQ(parseError("{\"A\": {\"B\": true}}"), "expected true or false at offset 6");
}

TEST_F(Flipset, DefaultsApplyToNamesTheFileDoesNotSetOrWithNoFile) {
  togglesFileIs("{\"Other\": true}");
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_FALSE(::Flipset::getToggleState("NoSuchToggle"));
  EXPECT_TRUE(::Flipset::getToggleState("Other"));

  setenv("IPRIB_TOGGLES", "", 1);
  ::Flipset::reloadToggles();
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_FALSE(::Flipset::getToggleState("Other"));
}

TEST_F(Flipset, FileIsReadOnceUntilReloaded) {
  togglesFileIs("{\"StaticRouteMetric\": false}");
  EXPECT_FALSE(::Flipset::getToggleState("StaticRouteMetric"));
  std::ofstream(path_) << "{\"StaticRouteMetric\": true}";
  EXPECT_FALSE(::Flipset::getToggleState("StaticRouteMetric"));
  ::Flipset::reloadToggles();
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
}

TEST_F(Flipset, ABadFileIsReportedOnceAndIgnored) {
  togglesFileIs("{\"StaticRouteMetric\": false, \"Other\": yes}");
  testing::internal::CaptureStderr();
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_FALSE(::Flipset::getToggleState("Other"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Flipset: " + path_ + ": expected true or false at offset 38; toggles file ignored\n");

  setenv("IPRIB_TOGGLES", (path_ + ".absent").c_str(), 1);
  ::Flipset::reloadToggles();
  testing::internal::CaptureStderr();
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Flipset: " + path_ + ".absent: cannot be read; toggles file ignored\n");
}

TEST_F(Flipset, OverridesLastUntilReload) {
  togglesFileIs("{\"StaticRouteMetric\": false}");
  ::Flipset::toggleStateIs("StaticRouteMetric", true);
  ::Flipset::toggleStateIs("NoSuchToggle", true);
  EXPECT_TRUE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_TRUE(::Flipset::getToggleState("NoSuchToggle"));
  ::Flipset::reloadToggles();
  EXPECT_FALSE(::Flipset::getToggleState("StaticRouteMetric"));
  EXPECT_FALSE(::Flipset::getToggleState("NoSuchToggle"));
}

}  // namespace
