// Vrf::VrfIdMap::VrfId: the number the VRF id map gives a VRF name. The
// default VRF is 0; invalidVrfId stands for no VRF.
#pragma once

#include <cstdint>

#include "Kel/Strep.h"

namespace Vrf::VrfIdMap {

using VrfId = uint32_t;
inline constexpr VrfId defaultVrfId = 0;
inline constexpr VrfId invalidVrfId = 0xffffff;

// A VRF id's canonical form is its decimal number.
inline VrfId vrfIdFromStrep(Kel::StrepIt& it, Kel::StrepIt end) {
  return VrfId(Kel::strepToUnsigned(it, end, UINT32_MAX, "Vrf::VrfIdMap::VrfId"));
}

}  // namespace Vrf::VrfIdMap
