#include "platform/Cairn/EntityTypes.h"

#include <string>

#include "Kel/Error.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/Routing/Rib/Brisk/ViaSetCollection.h"
#include "platform/Routing/Rib/Evpn/ViaConfig.h"
#include "platform/Routing/Rib/Ip/GlobalNextHopDependencyGraph.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Routing/Rib/LoopingRouteStatus.h"
#include "platform/Routing/Rib/RouteConfig.h"
#include "platform/Routing/Rib/ViaMetricStatus.h"
#include "platform/Vrf/NameToIdMap.h"
#include "platform/Vrf/VrfIdMapStatus.h"

namespace Cairn {

namespace {

struct EntityType {
  std::string_view name;
  Kel::Ptr<Kel::Entity> (*make)();
};

template <class T>
Kel::Ptr<Kel::Entity> makeEmpty() {
  return Kel::makePtr<T>();
}

Kel::Ptr<Kel::Entity> makeNameToIdMapWrapper() {
  return Kel::makePtr<Vrf::VrfIdMap::NameToIdMapWrapper>(
      Kel::makePtr<Vrf::VrfIdMap::NameToIdMap>());
}

constexpr EntityType entityTypes[] = {
    {"Vrf::VrfIdMap::NameToIdMapWrapper", makeNameToIdMapWrapper},
    {"Vrf::VrfIdMap::Status", makeEmpty<Vrf::VrfIdMap::Status>},
    {"Ip::Status", makeEmpty<Ip::Status>},
    {"Ip6::Status", makeEmpty<Ip6::Status>},
    {"Routing::Rib::ViaMetricStatusByVrf", makeEmpty<Routing::Rib::ViaMetricStatusByVrf>},
    {"Routing::Rib::LoopingRouteStatusByVrf", makeEmpty<Routing::Rib::LoopingRouteStatusByVrf>},
    {"Routing::Rib::RouteConfig", makeEmpty<Routing::Rib::RouteConfig>},
    {"Routing::Rib::Ip::ViaConfig", makeEmpty<Routing::Rib::Ip::ViaConfig>},
    {"Routing::Rib::Evpn::ViaConfig", makeEmpty<Routing::Rib::Evpn::ViaConfig>},
    {"Routing::Rib::Brisk::ViaSetCollection", makeEmpty<Routing::Rib::Brisk::ViaSetCollection>},
    {"Routing::Rib::Ip::GlobalNextHopDependencyGraph",
     makeEmpty<Routing::Rib::Ip::GlobalNextHopDependencyGraph>},
};

const EntityType& entityType(std::string_view typeName) {
  for (const EntityType& t : entityTypes) {
    if (t.name == typeName) return t;
  }
  throw Kel::RangeError("Cairn::makeEntity: unknown entity type '" + std::string(typeName) + "'");
}

}  // namespace

Kel::Ptr<Kel::Entity> makeEntity(std::string_view typeName) { return entityType(typeName).make(); }

void entityTypeCheck(std::string_view typeName) { entityType(typeName); }

}  // namespace Cairn
