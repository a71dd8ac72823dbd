// L3::VrfName: length limit with its exact text, canonical form, default VRF.
#include <gtest/gtest.h>

#include <sstream>

#include "platform/L3/VrfName.h"

namespace {

constexpr const char* tooLong = "VrfName::value::bytes > VrfName::maxLength not allowed";

TEST(VrfName, CanonicalFormRoundTrips) {
  for (const char* name : {"", "red", "it's", "default"}) {
    const L3::VrfName v(name);
    EXPECT_EQ(Kel::strepToValue<L3::VrfName>(L3::valueToStrep(v)), v) << name;
  }
  EXPECT_EQ(L3::valueToStrep(L3::VrfName()), "''");
  EXPECT_EQ(L3::valueToStrep(L3::VrfName("red")), "'red'");
  std::ostringstream os;
  os << L3::VrfName("red");
  EXPECT_EQ(os.str(), "red");
}

TEST(VrfName, LongerThanMaxLengthIsARangeError) {
  const std::string longest(L3::VrfName::maxLength, 'v');
  EXPECT_EQ(L3::VrfName(longest).value(), longest);
  EXPECT_EQ(Kel::strepToValue<L3::VrfName>("'" + longest + "'").value(), longest);
  const std::string over = longest + "v";
  try {
    L3::VrfName v(over);
    FAIL() << "constructed";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), tooLong);
  }
  try {
    Kel::strepToValue<L3::VrfName>("'" + over + "'");
    FAIL() << "parsed";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), tooLong);
  }
}

TEST(VrfName, DefaultVrfAndOrder) {
  EXPECT_EQ(L3::VrfName::defaultVrf().value(), "default");
  EXPECT_EQ(L3::VrfName::defaultVrf(), L3::VrfName("default"));
  EXPECT_LT(L3::VrfName(), L3::VrfName("blue"));
  EXPECT_LT(L3::VrfName("blue"), L3::VrfName("red"));
  EXPECT_EQ(L3::VrfName("red").hash(3), Kel::hashString("red", 3));
}

}  // namespace
