#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

#include "Kel/Enum.h"
#include "Kel/Error.h"
#include "Kel/Strep.h"

namespace {

// A composite value written and read the way the library's values are.
struct Sample {
  uint8_t small = 0;
  bool flag = false;
  std::string name;
  double ratio = 0;

  Sample(uint8_t s, bool f, std::string n, double r)
      : small(s), flag(f), name(std::move(n)), ratio(r) {}
  Sample(Kel::StrepIt& it, Kel::StrepIt end) {
    Kel::ValueStrepReader r(it, end, "Test::Sample");
    small = r.field("small", [](auto& i, auto e) {
      return uint8_t(Kel::strepToUnsigned(i, e, UINT8_MAX, "Test::Small"));
    });
    flag = r.field("flag", Kel::strepToBool);
    name = r.field("name", Kel::strepToQuoted);
    ratio = r.field("ratio", Kel::strepToDouble);
    r.done();
  }
  bool operator==(const Sample&) const = default;
};

std::string valueToStrep(const Sample& s) {
  return Kel::ValueStrepWriter("Test::Sample")
      .field("small", Kel::valueToStrep(s.small))
      .field("flag", Kel::valueToStrep(s.flag))
      .field("name", Kel::quoteStrep(s.name))
      .field("ratio", Kel::valueToStrep(s.ratio))
      .done();
}

template <class E>
std::string errorOf(std::string_view text) {
  try {
    Kel::strepToValue<Sample>(text);
  } catch (const E& e) {
    return e.what();
  }
  return "no error";
}

TEST(StrepTest, CompositeValuesRoundTrip) {
  const Sample s(7, true, R"(it's a \ 'path')", 0.1);
  const std::string text = valueToStrep(s);
  EXPECT_EQ(text, R"(Value('Test::Sample', ** {'small': 7, 'flag': True, )"
                  R"('name': 'it\'s a \\ \'path\'', 'ratio': 0.1}))");
  EXPECT_EQ(Kel::strepToValue<Sample>(text), s);

  const unsigned seed = 1234;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  const std::string alphabet = "a'\\ \",}";
  const double ratios[] = {0, -2.5, 1e300, 5e-324, 123456.789, 1.0 / 3};
  for (int i = 0; i < 200; ++i) {
    std::string name;
    for (unsigned n = rng() % 9; n > 0; --n) name += alphabet[rng() % alphabet.size()];
    const Sample v(uint8_t(rng()), rng() % 2 == 0, name, ratios[rng() % 6]);
    ASSERT_EQ(Kel::strepToValue<Sample>(valueToStrep(v)), v) << valueToStrep(v);
  }
}

TEST(StrepTest, ErrorsAreTypedAndNameWhatFailed) {
  const std::string good =
      "Value('Test::Sample', ** {'small': 7, 'flag': True, 'name': 'n', 'ratio': 1})";
  auto with = [&](std::string_view from, std::string_view to) {
    std::string s = good;
    return s.replace(s.find(from), from.size(), to);
  };
  EXPECT_EQ(errorOf<Kel::DeserializationError>(with("7", "300")),
            "Failed to deserialize attribute 'small': Test::Small value 300 out of range");
  try {
    Kel::strepToValue<Sample>(with("7", "256"));
    ADD_FAILURE() << "no error";
  } catch (const Kel::DeserializationError& e) {
    EXPECT_EQ(e.attribute(), "small");
  }
  // Malformed text stays a ParseError, inside a field too.
  EXPECT_EQ(errorOf<Kel::ParseError>(with("True", "Maybe")),
            "expected True or False, got \"Maybe\"");
  EXPECT_EQ(errorOf<Kel::ParseError>(with("Sample", "Sampel")),
            "expected \"Test::Sample\" at \"Test::Sampel', ** {'small': 7, 'flag': T\"");
  EXPECT_EQ(errorOf<Kel::ParseError>(with("'flag'", "'flags'")),
            "expected \"': \" at \"s': True, 'name': 'n', 'ratio': 1})\"");
  EXPECT_EQ(errorOf<Kel::ParseError>(good + " x"), "trailing text after value: ' x'");
  EXPECT_EQ(errorOf<Kel::ParseError>(good.substr(0, good.find("'n'") + 2) + "\\"),
            "expected \"'\" at \"\"");
  EXPECT_EQ(errorOf<Kel::Exception>(good.substr(0, 30)), "expected \"small\" at \"sma\"");
}

TEST(StrepTest, UnsignedFieldsCheckTheirRange) {
  auto read = [](std::string_view s, uint64_t max, size_t* used) {
    Kel::StrepIt it = s.begin();
    try {
      uint64_t v = Kel::strepToUnsigned(it, s.end(), max, "Test::Number");
      *used = size_t(it - s.begin());
      return std::to_string(v);
    } catch (const Kel::RangeError& e) {
      *used = size_t(it - s.begin());
      return std::string("RangeError: ") + e.what();
    } catch (const Kel::ParseError& e) {
      *used = size_t(it - s.begin());
      return std::string("ParseError: ") + e.what();
    }
  };
  size_t used = 99;
  EXPECT_EQ(read("255,", 255, &used), "255");
  EXPECT_EQ(used, 3u);
  EXPECT_EQ(read("256", 255, &used), "RangeError: Test::Number value 256 out of range");
  EXPECT_EQ(used, 0u);
  EXPECT_EQ(read("18446744073709551615", UINT64_MAX, &used), "18446744073709551615");
  EXPECT_EQ(read("18446744073709551616", UINT64_MAX, &used),
            "RangeError: Test::Number value 18446744073709551616 out of range");
  EXPECT_EQ(read("x1", 255, &used), "ParseError: expected a number at \"x1\"");
  EXPECT_EQ(used, 0u);
}

TEST(EnumInfoTest, ValuesNamesAndNumbers) {
  const Kel::EnumInfo info("Test::Color", {{0, "red"}, {1, "green"}, {7, "blue"}});
  EXPECT_EQ(info.stringValue(7), "blue");
  EXPECT_EQ(info.instance("green").value, 1);
  auto parse = [&](std::string_view s) {
    Kel::StrepIt it = s.begin();
    try {
      const int64_t v = info.sequenceToValue(it, s.end());
      return std::to_string(v) + " rest '" + std::string(it, s.end()) + "'";
    } catch (const Kel::RangeError& e) {
      return std::string("RangeError: ") + e.what();
    } catch (const Kel::ParseError& e) {
      return std::string("ParseError: ") + e.what();
    }
  };
  EXPECT_EQ(parse("blue})"), "7 rest '})'");
  EXPECT_EQ(parse("7, x"), "7 rest ', x'");
  EXPECT_EQ(parse("pink"), "RangeError: Test::Color: no enumerator named 'pink'");
  EXPECT_EQ(parse("3"), "RangeError: Test::Color: no enumerator with value 3");
  EXPECT_EQ(parse("99999999999"), "RangeError: Test::Color value 99999999999 out of range");
  EXPECT_EQ(parse("7x"), "ParseError: malformed enumerator number \"7x\"");
  EXPECT_EQ(parse("-1"), "ParseError: expected a Test::Color enumerator at \"-1\"");
  EXPECT_THROW(info.instance(-1), Kel::RangeError);
  EXPECT_THROW(info.stringValue(2), Kel::RangeError);
}

}  // namespace
