#include "platform/Vigil/CorruptionDetectedException.h"

#include <string>

namespace Vigil {

CorruptionDetectedException::CorruptionDetectedException(std::string_view table)
    : Kel::Exception("corruption detected in " + std::string(table)) {}

}  // namespace Vigil
