// Vigil::CorruptionMonitor: the corruption bookkeeping a shared-memory table
// keeps, a member of the table: injected faults for tests, and the reports
// of its readers.
//
// check() raises CorruptionDetectedException while injected faults remain,
// using one per call; doCorruptionDetected counts a reader's report and keeps
// its message. A table calls check() at the entry points that read records
// (never on a hot path that does not), so that a reader that reports and
// retries succeeds once the injected faults are used up. O(1).
// Decided here: faults exist only when injected (corruptionIs); a table has
// no checksum of its own to fail.
#pragma once

#include <cstdint>
#include <string>

namespace Vigil {

class CorruptionMonitor {
 public:
  // Raises for `table` when a fault is pending, using it up.
  void check(const char* table) const {
    if (pending_ != 0) raise(table);
  }
  // A report, so a reader makes it through its read-only handle.
  void doCorruptionDetected(const std::string& message) const {
    ++detected_;
    lastMessage_ = message;
  }
  uint32_t corruptionsDetected() const { return detected_; }
  const std::string& lastMessage() const { return lastMessage_; }
  // Test hook: the next `lookups` checks raise.
  void corruptionIs(uint32_t lookups) { pending_ = lookups; }
  uint32_t corruptionPending() const { return pending_; }

 private:
  [[noreturn]] void raise(const char* table) const;

  mutable uint32_t pending_ = 0;
  mutable uint32_t detected_ = 0;
  mutable std::string lastMessage_;
};

}  // namespace Vigil
