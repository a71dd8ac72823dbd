// Vigil::CorruptionDetectedException: a reader of a shared-memory table met
// a record that fails its checks. The reader reports the message back to the
// table (its doCorruptionDetected), which repairs and counts it, and then
// repeats the look-up.
// Decided here: the message is "corruption detected in <table type name>".
#pragma once

#include <string_view>

#include "Kel/Error.h"

namespace Vigil {

class CorruptionDetectedException : public Kel::Exception {
 public:
  explicit CorruptionDetectedException(std::string_view table);
};

}  // namespace Vigil
