#include "platform/Vigil/CorruptionMonitor.h"

#include "platform/Vigil/CorruptionDetectedException.h"

namespace Vigil {

void CorruptionMonitor::raise(const char* table) const {
  --pending_;
  throw CorruptionDetectedException(table);
}

}  // namespace Vigil
