#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Duallog.h"
#include "Kel/Error.h"
#include "Kel/Ringlog.h"
#include "Kel/Trace.h"

using ::testing::ElementsAre;

namespace {

// A 20-byte value such as a route prefix: recorded by value, printed at dump.
struct Prefix {
  std::array<uint8_t, 16> bytes;
  uint32_t length;
};
static_assert(sizeof(Prefix) == 20);

std::ostream& operator<<(std::ostream& os, const Prefix& p) {
  return os << int(p.bytes[0]) << '.' << int(p.bytes[1]) << '.' << int(p.bytes[2]) << '.'
            << int(p.bytes[3]) << '/' << p.length;
}

// The largest value a record keeps: 24 bytes.
struct ViaKey {
  uint64_t intf;
  uint32_t nexthop;
  uint32_t weight;
  uint64_t id;
};
static_assert(sizeof(ViaKey) == 24);

std::ostream& operator<<(std::ostream& os, const ViaKey& v) {
  return os << "via(intf " << v.intf << " nh " << (v.nexthop >> 24) << '.'
            << (v.nexthop >> 16 & 255) << '.' << (v.nexthop >> 8 & 255) << '.' << (v.nexthop & 255)
            << " weight " << v.weight << ')';
}

// Counts how often it is formatted.
struct Counted {
  int* calls;
};

std::ostream& operator<<(std::ostream& os, const Counted& c) {
  ++*c.calls;
  return os << "counted";
}

enum class Color { red, green };
std::ostream& operator<<(std::ostream& os, Color c) {
  return os << (c == Color::red ? "red" : "green");
}
enum class Raw : uint16_t { seven = 7 };

int bump(int* evaluated) { return ++*evaluated; }

const Prefix prefix{{10, 1, 2, 0}, 24};

// Splits "<seconds>.<microseconds> <rest>" into the time in microseconds and
// the rest; -1 when the time is not of that form.
std::pair<int64_t, std::string> splitTime(const std::string& line) {
  size_t space = line.find(' ');
  std::string time = line.substr(0, space);
  size_t dot = time.find('.');
  if (space == std::string::npos || dot == std::string::npos || dot == 0 ||
      dot + 7 != time.size() ||
      time.find_first_not_of("0123456789", dot + 1) != std::string::npos ||
      time.find_first_not_of("0123456789") != dot) {
    return {-1, line};
  }
  int64_t us = std::stoll(time.substr(0, dot)) * 1000000 + std::stoll(time.substr(dot + 1));
  return {us, line.substr(space + 1)};
}

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace

// Three facilities; rules by name and by prefix, text and ring, later rules win.
TEST(TraceTest, LevelsFromRuleTextAndApi) {
  Kel::TraceRegistry& registry = Kel::TraceRegistry::instance();
  Kel::TraceFacility route("Test::Rules::RouteStatusSm");
  Kel::TraceFacility intf("Test::Rules::IntfSm");
  Kel::TraceFacility other("Test::Other");

  registry.levelsIs(
      "Test::Rules::*/0-2,7,Test::Rules::IntfSm/8,Test::Rules::*/ring:9,Test::Other/");
  EXPECT_EQ(route.textLevels(), 0b0010000111u);
  EXPECT_EQ(intf.textLevels(), 0b0100000000u);
  EXPECT_EQ(route.ringLevels(), 0b1000000000u);
  EXPECT_EQ(intf.ringLevels(), 0b1000000000u);
  EXPECT_EQ(other.textLevels(), 0u);
  EXPECT_EQ(other.ringLevels(), Kel::TraceFacility::defaultRingLevels);
  EXPECT_TRUE(route.textOn(7));
  EXPECT_FALSE(route.textOn(8));

  // The whole text is read before anything changes.
  EXPECT_THROW(registry.levelsIs("Test::Rules::IntfSm/1,Test::Rules::IntfSm/x"), Kel::ParseError);
  EXPECT_EQ(intf.textLevels(), 0b0100000000u);

  Kel::TraceFacility* found = registry.facility("Test::Other");
  ASSERT_EQ(found, &other);
  found->textLevelIs(3, true);
  found->ringLevelIs(0, false);
  EXPECT_EQ(other.textLevels(), 0b1000u);
  EXPECT_EQ(other.ringLevels(), 0b0111111110u);
  other.allLevelsIs(true);
  EXPECT_EQ(other.textLevels(), 0x3ffu);
  EXPECT_EQ(other.ringLevels(), 0x3ffu);
  other.allLevelsIs(false);
  EXPECT_EQ(other.textLevels() | other.ringLevels(), 0u);
  try {
    other.ringLevelIs(10, true);
    FAIL() << "level 10 accepted";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), "trace level 10 out of range 0-9");
  }
}

TEST(TraceTest, RuleTextErrors) {
  struct Case {
    const char* text;
    const char* message;
  };
  const Case parseErrors[] = {
      {"Test::Rules::IntfSm", "bad trace levels \"Test::Rules::IntfSm\" at \"\""},
      {"Test::*::X/1", "bad trace levels \"Test::*::X/1\" at \"::X/1\""},
      {"A/1,,B/2", "bad trace levels \"A/1,,B/2\" at \",B/2\""},
      {"A/1,", "bad trace levels \"A/1,\" at \"\""},
      {"A/2,3-1", "bad trace levels \"A/2,3-1\" at \"3-1\""},
      {"A/1-", "bad trace levels \"A/1-\" at \"\""},
      {"/1", "bad trace levels \"/1\" at \"/1\""},
  };
  for (const Case& c : parseErrors) {
    try {
      Kel::TraceRegistry::instance().levelsIs(c.text);
      ADD_FAILURE() << "accepted " << c.text;
    } catch (const Kel::ParseError& e) {
      EXPECT_STREQ(e.what(), c.message);
    }
  }
  try {
    Kel::TraceRegistry::instance().levelsIs("A/0-12");
    ADD_FAILURE() << "level 12 accepted";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), "trace level 12 out of range 0-9");
  }
}

// KELTRACE is read once, when the registry is first used: check it in a fresh
// process that inherits the variable.
TEST(TraceDeathTest, EnvironmentRulesApplyAsFacilitiesRegister) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Kel::TraceRegistry::instance();
  setenv("KELTRACE", "Test::Env::*/0-9,Test::Env::B/ring:9", 1);
  EXPECT_EXIT(
      {
        Kel::TraceFacility a("Test::Env::A");
        Kel::TraceFacility b("Test::Env::B");
        std::fprintf(stderr, "levels %x %x %x %x\n", a.textLevels(), a.ringLevels(), b.textLevels(),
                     b.ringLevels());
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "levels 3ff 1ff 3ff 200");
  setenv("KELTRACE", "Test::Env::A/ten", 1);
  EXPECT_EXIT(
      {
        Kel::TraceFacility a("Test::Env::A");
        std::fprintf(stderr, "levels %x\n", a.textLevels());
        std::exit(0);
      },
      ::testing::ExitedWithCode(0),
      "KELTRACE ignored: bad trace levels \"Test::Env::A/ten\" at \"ten\"\nlevels 1\n");
  unsetenv("KELTRACE");
}

TEST(TraceTest, TextIsFormattedOnlyWhenOn) {
  Kel::TraceFacility trace("Test::Text");
  Kel::TraceCapture capture;
  int calls = 0;
  std::string vrfName = "red";

  KEL_TRACE(trace, 9, "Vrf: " << vrfName << " validVia " << Counted{&calls});
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(capture.entries().empty());

  KEL_TRACE(trace, 0, "notice " << Counted{&calls});
  EXPECT_EQ(calls, 1);
  trace.textLevelIs(9, true);
  KEL_TRACE(trace, 9, "Vrf: " << vrfName << " validVia " << prefix);
  trace.textLevelIs(9, false);
  KEL_TRACE(trace, 9, "Vrf: " << vrfName << " validVia " << Counted{&calls});
  EXPECT_EQ(calls, 1);

  EXPECT_THAT(capture.messages(), ElementsAre("notice counted", "Vrf: red validVia 10.1.2.0/24"));
  std::vector<std::string> lines = capture.lines();
  ASSERT_EQ(lines.size(), 2u);
  auto [time, rest] = splitTime(lines[1]);
  EXPECT_GE(time, 0) << lines[1];
  EXPECT_EQ(rest, "Test::Text/9 Vrf: red validVia 10.1.2.0/24");
  EXPECT_EQ(capture.entries()[1].level, 9);
  EXPECT_EQ(capture.entries()[1].facility, "Test::Text");
}

TEST(TraceTest, CapturesNestAndRestore) {
  Kel::TraceFacility trace("Test::Capture");
  Kel::TraceCapture outer;
  {
    Kel::TraceCapture inner;
    KEL_TRACE(trace, 0, "inner");
    EXPECT_THAT(inner.messages(), ElementsAre("inner"));
  }
  KEL_TRACE(trace, 0, "outer");
  EXPECT_THAT(outer.messages(), ElementsAre("outer"));
}

TEST(TraceTest, RingKeepsNewestInOrder) {
  Kel::TraceFacility trace("Test::Ring", 5);
  Kel::Ringlog& ring = trace.ringlog();
  ASSERT_EQ(ring.capacity(), 8u);
  for (int n = 0; n <= 20; ++n) KEL_RINGLOG(trace, 3, "record %s", n);

  EXPECT_EQ(ring.written(), 21u);
  EXPECT_EQ(ring.size(), 8u);
  EXPECT_THAT(ring.messages(3), ElementsAre("record 18", "record 19", "record 20"));
  EXPECT_EQ(ring.messages(100).size(), 8u);

  std::ostringstream os;
  trace.dump(os);
  std::vector<std::string> lines = splitLines(os.str());
  ASSERT_EQ(lines.size(), 8u);
  int64_t previous = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    auto [time, rest] = splitTime(lines[i]);
    EXPECT_LE(previous, time) << lines[i];
    EXPECT_EQ(rest, "Test::Ring/3 record " + std::to_string(13 + i));
    previous = time;
  }

  ring.capacityIs(2);
  EXPECT_EQ(ring.size(), 0u);
  EXPECT_EQ(ring.capacity(), 2u);
}

// Random writes at random levels with levels switched on and off, checked
// against a deque holding the newest `capacity` messages recorded.
TEST(TraceTest, RingMatchesModel) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (size_t capacity : {1u, 4u, 64u}) {
    Kel::TraceFacility trace("Test::RingModel", capacity);
    std::deque<std::string> model;
    for (int step = 0; step < 500; ++step) {
      int level = int(random() % 10);
      if (random() % 8 == 0) trace.ringLevelIs(level, !trace.ringOn(level));
      uint64_t value = random();
      bool on = trace.ringOn(level);
      KEL_RINGLOG(trace, level, "step %s level %s value %s", step, level, value);
      if (!on) continue;
      model.push_back("step " + std::to_string(step) + " level " + std::to_string(level) +
                      " value " + std::to_string(value));
      if (model.size() > capacity) model.pop_front();
    }
    std::vector<std::string> expected(model.begin(), model.end());
    ASSERT_EQ(trace.ringlog().messages(capacity), expected) << "capacity " << capacity;
  }
}

TEST(TraceTest, RingFormatsEveryArgumentKind) {
  Kel::TraceFacility trace("Test::RingKinds");
  Kel::Ringlog& ring = trace.ringlog();
  std::string text = "abcdefghijklmnopqrstuvwxyz0123";
  std::string_view view = "short";
  const ViaKey via{7, 0x0a000001, 3, 99};
  int calls = 0;

  KEL_RINGLOG(trace, 1, "b %s %s i %s %s u %s %s", true, false, int8_t(-5),
              std::numeric_limits<int64_t>::min(), uint8_t(200),
              std::numeric_limits<uint64_t>::max());
  KEL_RINGLOG(trace, 1, "d %s c %s lit %s null %s e %s %s", 2.5, 'x', "literal",
              static_cast<const char*>(nullptr), Color::green, Raw::seven);
  KEL_RINGLOG(trace, 1, "s %s sv %s empty [%s] 100%%", text, view, std::string());
  KEL_RINGLOG(trace, 1, "prefix %s via %s n %s", prefix, via, 3u);
  KEL_RINGLOG(trace, 1, "late %s", Counted{&calls});
  KEL_RINGLOG(trace, 1, "no arguments");
  text.assign(text.size(), '-');  // the record holds a copy

  EXPECT_EQ(calls, 0);  // values are formatted when read, not when recorded
  EXPECT_THAT(ring.messages(6),
              ElementsAre("b true false i -5 -9223372036854775808 u 200 18446744073709551615",
                          "d 2.5 c x lit literal null (null) e green 7",
                          "s abcdefghijklmnopqrstuvw sv short empty [] 100%",
                          "prefix 10.1.2.0/24 via via(intf 7 nh 10.0.0.1 weight 3) n 3",
                          "late counted", "no arguments"));
  EXPECT_EQ(calls, 1);
}

TEST(TraceTest, RingLevelOffRecordsAndEvaluatesNothing) {
  Kel::TraceFacility trace("Test::RingOff");
  int evaluated = 0;
  KEL_RINGLOG(trace, 9, "per-via %s", bump(&evaluated));
  EXPECT_EQ(evaluated, 0);
  EXPECT_EQ(trace.ringlog().written(), 0u);
  trace.ringLevelIs(9, true);
  KEL_RINGLOG(trace, 9, "per-via %s", bump(&evaluated));
  EXPECT_THAT(trace.ringlog().messages(1), ElementsAre("per-via 1"));
}

// Two facilities written alternately come out of the registry's dump interleaved.
TEST(TraceTest, RegistryDumpMergesRingsOldestFirst) {
  Kel::TraceFacility a("Test::Merge::A");
  Kel::TraceFacility b("Test::Merge::B");
  for (int n = 1; n <= 3; ++n) {
    KEL_RINGLOG(a, 2, "a %s", n);
    KEL_RINGLOG(b, 4, "b %s", n);
  }
  std::ostringstream os;
  Kel::TraceRegistry::instance().dump(os);
  std::vector<std::string> merged;
  for (const std::string& line : splitLines(os.str())) {
    std::string rest = splitTime(line).second;
    if (rest.starts_with("Test::Merge::")) merged.push_back(rest);
  }
  EXPECT_THAT(merged,
              ElementsAre("Test::Merge::A/2 a 1", "Test::Merge::B/4 b 1", "Test::Merge::A/2 a 2",
                          "Test::Merge::B/4 b 2", "Test::Merge::A/2 a 3", "Test::Merge::B/4 b 3"));
}

TEST(TraceTest, DuallogWritesBothWays) {
  Kel::TraceFacility trace("Test::Dual");
  Kel::TraceCapture capture;
  int calls = 0;
  int evaluated = 0;

  trace.textLevelIs(8, true);
  KEL_DUALLOG(trace, 8, "add route " << prefix << " vias " << 2, "add route %s vias %s", prefix, 2);
  trace.textLevelIs(8, false);
  KEL_DUALLOG(trace, 8, "text " << Counted{&calls}, "ring %s", 1);
  KEL_DUALLOG(trace, 9, "text " << Counted{&calls}, "ring %s", bump(&evaluated));

  EXPECT_THAT(capture.messages(), ElementsAre("add route 10.1.2.0/24 vias 2"));
  EXPECT_THAT(trace.ringlog().messages(10), ElementsAre("add route 10.1.2.0/24 vias 2", "ring 1"));
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(evaluated, 0);
}
