#include "IpRib/ProtocolContainerKey.h"

#include <sstream>

#include "Kel/Hash.h"

namespace Routing::Protocol {

namespace {
constexpr const char* containerKeyType = "Routing::Protocol::ContainerKey";
constexpr const char* routeStatusKeyType = "Routing::Protocol::RouteStatusKey";
}  // namespace

ContainerKey::ContainerKey(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, containerKeyType);
  vrfName_ = r.field("vrfName", [](auto& i, auto e) { return L3::VrfName(i, e); });
  af_ = r.field("af", Pando::addressFamilyFromStrep);
  r.done();
}

uint32_t ContainerKey::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(vrfName_.hash(seed)).add(uint32_t(af_)).result();
}

bool ContainerKey::operator<(const ContainerKey& o) const {
  if (!(vrfName_ == o.vrfName_)) return vrfName_ < o.vrfName_;
  return uint32_t(af_) < uint32_t(o.af_);
}

RouteStatusKey::RouteStatusKey(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, routeStatusKeyType);
  vrfId_ = r.field("vrfId", Vrf::VrfIdMap::vrfIdFromStrep);
  af_ = r.field("af", Pando::addressFamilyFromStrep);
  r.done();
}

uint32_t RouteStatusKey::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(vrfId_).add(uint32_t(af_)).result();
}

std::string RouteStatusKey::str() const {
  std::ostringstream os;
  os << " (RSK " << vrfId_ << ", " << af_ << ")";
  return os.str();
}

std::string valueToStrep(const ContainerKey& k) {
  return Kel::ValueStrepWriter(containerKeyType)
      .field("vrfName", L3::valueToStrep(k.vrfName()))
      .field("af", Pando::valueToStrep(k.af()))
      .done();
}

std::string valueToStrep(const RouteStatusKey& k) {
  return Kel::ValueStrepWriter(routeStatusKeyType)
      .field("vrfId", Kel::valueToStrep(k.vrfId()))
      .field("af", Pando::valueToStrep(k.af()))
      .done();
}

std::ostream& operator<<(std::ostream& os, const ContainerKey& k) { return os << valueToStrep(k); }
std::ostream& operator<<(std::ostream& os, const RouteStatusKey& k) {
  return os << valueToStrep(k);
}

}  // namespace Routing::Protocol
