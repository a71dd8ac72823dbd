#include "Kel/System.h"

#include <chrono>
#include <thread>

namespace Kel {

namespace {
class MonotonicTime final : public TimeSource {
 public:
  double now() override {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
  }
  unsigned checksPerRead() const override { return 8; }
  void waitUntil(double deadline) override {
    double wait = deadline - now();
    if (wait > 0) std::this_thread::sleep_for(std::chrono::duration<double>(wait));
  }
};
MonotonicTime monotonicTime;
}  // namespace

TimeSource* System::source_ = &monotonicTime;

TimeSource* System::timeSourceIs(TimeSource* s) {
  TimeSource* previous = source_;
  source_ = s ? s : &monotonicTime;
  return previous;
}

}  // namespace Kel
