#include "platform/Routing/RouteConfigLib.h"

#include <string>

#include "platform/Routing/AnswerOverride.h"
#include "platform/Routing/ViaConfigLib.h"

namespace Routing::RouteConfigLib {

namespace {
AnswerOverride<TableKey>& allVrfOverride() {
  static AnswerOverride<TableKey> answers;
  return answers;
}
}  // namespace

bool isAllVrfRouteConfig(std::string_view rib, std::string_view af, std::string_view protocolName) {
  return allVrfOverride().answer(tableKey(rib, af, protocolName),
                                 ViaConfigLib::isAllVrfViaConfigDefault(rib, af, protocolName));
}

void allVrfRouteConfigIs(std::string_view rib, std::string_view af, std::string_view protocolName,
                         bool allVrf) {
  allVrfOverride().answerIs(tableKey(rib, af, protocolName), allVrf);
}

void allVrfRouteConfigReset() { allVrfOverride().reset(); }

Kel::String allVrfRibMount(std::string_view rib, std::string_view af,
                           std::string_view protocolName) {
  return Kel::String("routing/" + std::string(rib) + "/routeConfig/" + std::string(af) + "/all/" +
                     std::string(protocolName));
}

}  // namespace Routing::RouteConfigLib
