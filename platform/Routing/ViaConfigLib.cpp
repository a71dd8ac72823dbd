#include "platform/Routing/ViaConfigLib.h"

#include "platform/Routing/AnswerOverride.h"

namespace Routing::Rib {

const Kel::EnumInfo& routingProtocolEnumInfo() {
  static const Kel::EnumInfo info("Routing::Rib::RoutingProtocol", {{0, "unknown"},
                                                                    {1, "connected"},
                                                                    {2, "static"},
                                                                    {3, "bgp"},
                                                                    {4, "routeInput"},
                                                                    {5, "isis"},
                                                                    {6, "ospf"}});
  return info;
}

std::string_view stringValue(RoutingProtocol rp) {
  return routingProtocolEnumInfo().stringValue(int64_t(rp));
}

const Kel::EnumInfo& transportEnumInfo() {
  static const Kel::EnumInfo info("Routing::Rib::Transport", {{int64_t(Transport::none), "none"},
                                                              {int64_t(Transport::ipv4), "ipv4"},
                                                              {int64_t(Transport::ipv6), "ipv6"},
                                                              {int64_t(Transport::evpn), "evpn"}});
  return info;
}

std::string_view stringValue(Transport t) { return transportEnumInfo().stringValue(int64_t(t)); }

Kel::String toStrep(Transport t) { return Kel::String(stringValue(t)); }

}  // namespace Routing::Rib

namespace Routing::ViaConfigLib {

namespace {
AnswerOverride<TableKey>& allVrfOverride() {
  static AnswerOverride<TableKey> answers;
  return answers;
}
}  // namespace

bool isAllVrfViaConfig(std::string_view ribName, std::string_view transport,
                       std::string_view protocolName) {
  return allVrfOverride().answer(tableKey(ribName, transport, protocolName),
                                 isAllVrfViaConfigDefault(ribName, transport, protocolName));
}

void allVrfViaConfigIs(std::string_view ribName, std::string_view transport,
                       std::string_view protocolName, bool allVrf) {
  allVrfOverride().answerIs(tableKey(ribName, transport, protocolName), allVrf);
}

void allVrfViaConfigReset() { allVrfOverride().reset(); }

bool isAllVrfViaConfigDefault(std::string_view ribName, std::string_view transport,
                              std::string_view protocolName) {
  const bool knownRib = ribName == Rib::ribString || ribName == Rib::mribString;
  const bool knownTransport = transport == "ipv4" || transport == "ipv6" || transport == "evpn";
  const bool allVrfProtocol = protocolName == "bgp" || protocolName == "isis";
  return knownRib && knownTransport && allVrfProtocol;
}

std::string getRibStringFromIpViaConfig(const Rib::Ip::ViaConfig& config) {
  return std::string(config.ribString().view());
}

}  // namespace Routing::ViaConfigLib
