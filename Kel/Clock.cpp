#include "Kel/Clock.h"

#include <utility>
#include <vector>

#include "Kel/System.h"

namespace Kel {

Clock::~Clock() { manager_->disarm(this); }

void Clock::timeMinIs(double t) const {
  if (t == timeMin_) return;
  manager_->disarm(this);
  timeMin_ = t;
  if (t != never) manager_->arm(this, t);
}

void Clock::wake() {
  timeMin_ = never;
  notify<Notifiee>([](Notifiee* n) { n->onTimeMin(); });
}

ActivityManager& ActivityManager::instance() {
  static ActivityManager manager;
  return manager;
}

Ptr<Clock> ActivityManager::newClock() { return Ptr<Clock>(new Clock(this)); }

void ActivityManager::arm(const Clock* c, double t) {
  c->seq_ = nextSeq_++;
  schedule_.insert(Armed{t, c->seq_, const_cast<Clock*>(c)});
}

void ActivityManager::disarm(const Clock* c) {
  if (c->timeMin_ != Clock::never) schedule_.erase(Armed{c->timeMin_, c->seq_, nullptr});
}

double ActivityManager::nextDeadline() const {
  return schedule_.empty() ? Clock::never : schedule_.begin()->time;
}

size_t ActivityManager::runOnce() {
  const double now = System::currentTime();
  // Take the due clocks first: what they re-arm belongs to the next turn. A
  // taken clock keeps its time and sequence until woken, so that an earlier
  // handler of this turn can still disarm it.
  std::vector<std::pair<Ptr<Clock>, uint64_t>> due;
  while (!schedule_.empty() && schedule_.begin()->time <= now) {
    Clock* c = schedule_.begin()->clock;
    schedule_.erase(schedule_.begin());
    due.emplace_back(c, c->seq_);
  }
  size_t ran = 0;
  for (const auto& [c, seq] : due) {
    // Skip one disarmed or re-armed by an earlier handler of this turn.
    if (c->seq_ == seq && c->timeMin_ != Clock::never) {
      c->wake();
      ++ran;
    }
  }
  return ran;
}

size_t ActivityManager::runUntilQuiet(size_t maxTurns) {
  size_t turns = 0;
  while (turns < maxTurns && nextDeadline() <= System::currentTime() && runOnce() != 0) ++turns;
  return turns;
}

size_t ActivityManager::runUntilIdle(size_t maxTurns) {
  size_t turns = 0;
  while (turns < maxTurns && !schedule_.empty()) {
    System::timeSource().waitUntil(nextDeadline());
    if (runOnce() != 0) ++turns;
  }
  return turns;
}

void ActivityManager::run(const std::function<bool(double deadline)>& input) {
  for (;;) {
    runOnce();
    double deadline = nextDeadline();
    if (!input(deadline)) return;
  }
}

}  // namespace Kel
