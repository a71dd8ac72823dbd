#include "platform/Routing/Rib/Ip/ViaConfig.h"

#include <sstream>

namespace Routing::Rib::Ip {

void ViaConfig::dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx, uint32_t indent) const {
  const std::string rib(ribString_.view());
  Quay::objDumpPrintf(dumpCtx, "%*s%s %s transport %u rp %u vias %u\n", int(indent), "", typeName(),
                      rib.c_str(), unsigned(transport()), unsigned(rp()), viaSize());
  for (const Entry& e : via()) {
    std::ostringstream line;
    line << e.key << ' ' << e.via;
    Quay::objDumpPrintf(dumpCtx, "%*s%s\n", int(indent + 2), "", line.str().c_str());
  }
}

}  // namespace Routing::Rib::Ip
