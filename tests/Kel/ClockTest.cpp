#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kel/Clock.h"
#include "Kel/System.h"

namespace {

using Strings = std::vector<std::string>;

// A clock with a reactor that logs "<name>@<time>" when woken, then runs the
// test's action.
struct Timer {
  class Reactor final : public Kel::Clock::Notifiee {
   public:
    explicit Reactor(Timer* t) : t_(t) {}
    void onTimeMin() override {
      t_->log->push_back(t_->name + "@" + std::to_string(int(Kel::System::currentTime())));
      if (auto act = t_->onWake) act();
    }

   private:
    Timer* t_;
  };

  Timer(std::string n, Strings* l) : name(std::move(n)), log(l) { reactor->notifierIs(clock); }
  std::string name;
  Strings* log;
  std::function<void()> onWake;
  Kel::Ptr<Kel::Clock> clock = Kel::ActivityManager::instance().newClock();
  Kel::Ptr<Reactor> reactor = Kel::makePtr<Reactor>(this);
};

class ClockTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(am_.armedClocks(), 0u) << "a test left a clock armed"; }

  Kel::VirtualTimeScope scope_{1000.0};
  Kel::VirtualTime& vt_ = scope_.time();
  Kel::ActivityManager& am_ = Kel::ActivityManager::instance();
  Strings log_;
};

TEST_F(ClockTest, DueClocksRunInTimeOrderFirstArmedFirstOnTies) {
  Timer a("a", &log_), b("b", &log_), c("c", &log_), d("d", &log_), e("e", &log_);
  c.clock->timeMinIs(1002);
  b.clock->timeMinIs(1001);
  a.clock->timeMinIs(1001);
  d.clock->timeMinIs(1000);
  e.clock->timeMinIs(1001);
  // Re-arming puts a clock behind the others armed for the same time.
  b.clock->timeMinIs(1003);
  b.clock->timeMinIs(1001);
  EXPECT_EQ(am_.nextDeadline(), 1000);
  vt_.timeIs(1001);
  EXPECT_EQ(am_.runOnce(), 4u);
  EXPECT_EQ(log_, (Strings{"d@1001", "a@1001", "e@1001", "b@1001"}));
  EXPECT_EQ(a.clock->timeMin(), Kel::Clock::never);
  EXPECT_EQ(c.clock->timeMin(), 1002);
  c.clock->timeMinIs(Kel::Clock::never);
}

TEST_F(ClockTest, AClockReArmedForNowRunsInTheNextTurn) {
  Timer a("a", &log_), b("b", &log_);
  int wakes = 0;
  a.onWake = [&] {
    if (++wakes < 4) a.clock->timeMinIs(Kel::System::currentTime());
  };
  a.clock->timeMinIs(1000);
  b.clock->timeMinIs(1050);
  EXPECT_EQ(am_.runOnce(), 1u);
  EXPECT_EQ(wakes, 1);
  EXPECT_EQ(am_.runOnce(), 1u);
  EXPECT_EQ(wakes, 2);
  EXPECT_EQ(am_.runUntilQuiet(), 2u);
  EXPECT_EQ(wakes, 4);
  EXPECT_EQ(b.clock->timeMin(), 1050) << "a future clock stays armed";
  EXPECT_EQ(am_.runUntilIdle(), 1u);
  EXPECT_EQ(vt_.time(), 1050);
  EXPECT_EQ(log_, (Strings{"a@1000", "a@1000", "a@1000", "a@1000", "b@1050"}));
}

TEST_F(ClockTest, RunUntilIdleJumpsToEachDeadline) {
  Timer a("a", &log_), b("b", &log_);
  a.onWake = [&] {
    if (a.log->size() < 3) a.clock->timeMinIs(Kel::System::currentTime() + 7);
  };
  a.clock->timeMinIs(1010);
  b.clock->timeMinIs(1020);
  EXPECT_EQ(am_.runUntilIdle(), 4u);
  EXPECT_EQ(log_, (Strings{"a@1010", "a@1017", "b@1020", "a@1024"}));
}

TEST_F(ClockTest, AnEarlierHandlerMayDisarmReArmOrDropAClockDueInTheSameTurn) {
  Timer a("a", &log_), b("b", &log_), c("c", &log_), d("d", &log_);
  auto dropped = std::make_unique<Timer>("x", &log_);
  a.onWake = [&] {
    b.clock->timeMinIs(Kel::Clock::never);
    c.clock->timeMinIs(1005);
    dropped.reset();
  };
  for (Timer* t : {&a, &b, &c, dropped.get(), &d}) t->clock->timeMinIs(1000);
  am_.runOnce();
  EXPECT_EQ(log_, (Strings{"a@1000", "d@1000"}));
  EXPECT_EQ(b.clock->timeMin(), Kel::Clock::never);
  EXPECT_EQ(am_.armedClocks(), 1u);
  am_.runUntilIdle();
  EXPECT_EQ(log_, (Strings{"a@1000", "d@1000", "c@1005"}));
}

TEST_F(ClockTest, ADestroyedClockIsDisarmed) {
  {
    Timer a("a", &log_);
    a.clock->timeMinIs(1001);
    EXPECT_EQ(am_.armedClocks(), 1u);
  }
  EXPECT_EQ(am_.armedClocks(), 0u);
  vt_.advance(5);
  EXPECT_EQ(am_.runOnce(), 0u);
}

TEST_F(ClockTest, VirtualTimeStepsOnEveryRead) {
  vt_.stepIs(0.5);
  EXPECT_EQ(Kel::System::currentTime(), 1000.0);
  EXPECT_EQ(Kel::System::currentTime(), 1000.5);
  vt_.advance(10);
  EXPECT_EQ(Kel::System::currentTime(), 1011.0);
  EXPECT_EQ(vt_.time(), 1011.5);
}

}  // namespace
