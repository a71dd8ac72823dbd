// Clocks and the activity loop: the only way to defer work.
//
// A Clock is an entity whose reactors are woken (Clock::Notifiee::onTimeMin)
// once Kel::System::currentTime() reaches its earliest notification time,
// `timeMin`. Waking disarms it (timeMin becomes never) before the reactors
// run, so a handler re-arms it to continue later.
//
// The ActivityManager owns the schedule. One turn of the loop runs the
// clocks that are due, in time order, first armed first on equal times; a
// clock re-armed during a turn runs in a later turn, so input is served
// between slices of paced work, and one disarmed by an earlier handler of the
// turn does not run. Between turns the loop waits for input or
// the next deadline. One thread; the manager is the framework's singleton.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <set>

#include "Kel/Entity.h"

namespace Kel {

class ActivityManager;

class Clock final : public Entity {
 public:
  static constexpr double never = std::numeric_limits<double>::infinity();

  class Notifiee : public NotifieeOf<Clock> {
   public:
    virtual void onTimeMin() {}
  };

  ~Clock() override;
  const char* typeName() const override { return "Kel::Clock"; }

  double timeMin() const { return timeMin_; }
  // Arms the clock for `t` (never disarms it). A request for a wake-up, so it
  // may be made through a const clock.
  void timeMinIs(double t) const;

 private:
  friend class ActivityManager;
  explicit Clock(ActivityManager* manager) : manager_(manager) {}
  void wake();

  ActivityManager* manager_;
  mutable double timeMin_ = never;
  mutable uint64_t seq_ = 0;
};

class ActivityManager {
 public:
  static ActivityManager& instance();

  Ptr<Clock> newClock();

  // Runs one turn: the clocks due now. Returns how many ran.
  size_t runOnce();
  // Turns until no clock is due now (clocks armed for later stay armed).
  // Returns the number of turns; stops after `maxTurns`.
  size_t runUntilQuiet(size_t maxTurns = std::numeric_limits<size_t>::max());
  // Like runUntilQuiet, but also waits for armed clocks (a virtual time
  // source jumps to each deadline) until none is armed.
  size_t runUntilIdle(size_t maxTurns = std::numeric_limits<size_t>::max());
  // The activity loop: turns, and between them `input(deadline)` which may
  // block until `deadline` and returns false to stop.
  void run(const std::function<bool(double deadline)>& input);

  double nextDeadline() const;
  size_t armedClocks() const { return schedule_.size(); }

 private:
  friend class Clock;
  struct Armed {
    double time;
    uint64_t seq;
    Clock* clock;
    bool operator<(const Armed& o) const { return time != o.time ? time < o.time : seq < o.seq; }
  };
  void arm(const Clock* c, double t);
  void disarm(const Clock* c);

  std::set<Armed> schedule_;
  uint64_t nextSeq_ = 1;
};

}  // namespace Kel
