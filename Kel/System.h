// The framework's time: Kel::System::currentTime() in seconds, read from a
// replaceable source. Real runs read the monotonic clock; tests install a
// VirtualTime that only moves when told (set, advance, or a step on every read)
// so that paced passes slice deterministically.
#pragma once

namespace Kel {

class TimeSource {
 public:
  virtual ~TimeSource() = default;
  virtual double now() = 0;
  // Waits until `deadline` or less (a virtual source jumps there).
  virtual void waitUntil(double deadline) = 0;
  // How many checks of a Deadline one read serves.
  virtual unsigned checksPerRead() const { return 1; }
};

class System {
 public:
  static double currentTime() { return source_->now(); }
  static TimeSource& timeSource() { return *source_; }
  // Installs `s` (null restores the monotonic clock); returns the previous one.
  static TimeSource* timeSourceIs(TimeSource* s);

 private:
  static TimeSource* source_;
};

// The end of a slice of a paced pass, checked once per element. Reading the
// monotonic clock costs as much as a tenth of a route's evaluation, so under
// it one check in eight reads it (eight elements are microseconds of work: a
// slice overruns by that much at most); a virtual source is read at every
// check, so that tests slice exactly as time steps.
class Deadline {
 public:
  // Ends `quantum` seconds from now.
  explicit Deadline(double quantum)
      : lastRead_(System::currentTime()),
        at_(lastRead_ + quantum),
        checksPerRead_(System::timeSource().checksPerRead()) {}
  bool passed() {
    if (++checks_ < checksPerRead_) return false;
    checks_ = 0;
    lastRead_ = System::currentTime();
    return at_ <= lastRead_;
  }
  // The time of its last read of the clock (at the start, then by passed):
  // a time the pass may use without a read of its own, some microseconds old.
  double lastRead() const { return lastRead_; }

 private:
  double lastRead_;
  double at_;
  unsigned checksPerRead_;
  unsigned checks_ = 0;
};

class VirtualTime final : public TimeSource {
 public:
  explicit VirtualTime(double start = 1000.0) : now_(start) {}
  double now() override {
    double t = now_;
    now_ += step_;
    return t;
  }
  void waitUntil(double deadline) override {
    if (deadline > now_) now_ = deadline;
  }
  void timeIs(double t) { now_ = t; }
  void advance(double seconds) { now_ += seconds; }
  // Every read moves time on by `step`: each unit of work "takes" that long.
  void stepIs(double step) { step_ = step; }
  double time() const { return now_; }

 private:
  double now_;
  double step_ = 0;
};

// Installs a VirtualTime for a scope (tests).
class VirtualTimeScope {
 public:
  explicit VirtualTimeScope(double start = 1000.0) : time_(start) {
    previous_ = System::timeSourceIs(&time_);
  }
  ~VirtualTimeScope() { System::timeSourceIs(previous_); }
  VirtualTimeScope(const VirtualTimeScope&) = delete;
  VirtualTimeScope& operator=(const VirtualTimeScope&) = delete;
  VirtualTime& time() { return time_; }

 private:
  VirtualTime time_;
  TimeSource* previous_;
};

}  // namespace Kel
