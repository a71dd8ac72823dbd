#include "IpRib/ProtocolRouteLeak.h"

#include <sstream>

#include "Kel/Hash.h"

namespace Routing::Protocol {

// ---------------------------------------------------------------- value types

namespace {
constexpr const char* vrfIdAfType = "Routing::Protocol::VrfIdAf";
constexpr const char* vrfPairAfType = "Routing::Protocol::VrfPairAf";
}  // namespace

VrfIdAf::VrfIdAf(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, vrfIdAfType);
  vrfId_ = r.field("vrfId", Vrf::VrfIdMap::vrfIdFromStrep);
  af_ = r.field("af", Pando::addressFamilyFromStrep);
  r.done();
}

uint32_t VrfIdAf::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(vrfId_).add(uint32_t(af_)).result();
}

std::string VrfIdAf::str() const {
  std::ostringstream os;
  os << "(" << vrfId_ << ", " << af_ << ")";
  return os.str();
}

VrfPairAf::VrfPairAf(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, vrfPairAfType);
  srcVrf_ = r.field("srcVrf", Vrf::VrfIdMap::vrfIdFromStrep);
  dstVrf_ = r.field("dstVrf", Vrf::VrfIdMap::vrfIdFromStrep);
  af_ = r.field("af", Pando::addressFamilyFromStrep);
  r.done();
}

uint32_t VrfPairAf::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(srcVrf_).add(dstVrf_).add(uint32_t(af_)).result();
}

bool VrfPairAf::operator<(const VrfPairAf& o) const {
  if (srcVrf_ != o.srcVrf_) return srcVrf_ < o.srcVrf_;
  if (dstVrf_ != o.dstVrf_) return dstVrf_ < o.dstVrf_;
  return int32_t(af_) < int32_t(o.af_);
}

std::string VrfPairAf::str() const {
  std::ostringstream os;
  os << "(" << srcVrf_ << "-" << dstVrf_ << ", " << af_ << ")";
  return os.str();
}

std::string valueToStrep(const VrfIdAf& v) {
  return Kel::ValueStrepWriter(vrfIdAfType)
      .field("vrfId", Kel::valueToStrep(v.vrfId()))
      .field("af", Pando::valueToStrep(v.af()))
      .done();
}

std::string valueToStrep(const VrfPairAf& v) {
  return Kel::ValueStrepWriter(vrfPairAfType)
      .field("srcVrf", Kel::valueToStrep(v.srcVrf()))
      .field("dstVrf", Kel::valueToStrep(v.dstVrf()))
      .field("af", Pando::valueToStrep(v.af()))
      .done();
}

std::ostream& operator<<(std::ostream& os, const VrfIdAf& v) { return os << v.str(); }
std::ostream& operator<<(std::ostream& os, const VrfPairAf& v) { return os << v.str(); }

// ------------------------------------------------------------------- entities

Kel::Ptr<LeakRoute> leakRouteFactory(const VrfIdAf& vrfAf, Kel::Ptr<const Routing::Route> route) {
  return Kel::makePtr<LeakRoute>(vrfAf, std::move(route));
}

LeakRouteDir::~LeakRouteDir() {
  for (const Entry& e : leakRoute_) e.leakRoute->delRef();
}

Kel::Ptr<LeakRoute> LeakRouteDir::leakRouteIs(const VrfIdAf& vrfAf,
                                              const Kel::Ptr<const Routing::Route>& route) {
  KEL_ASSERT(route);
  Kel::Ptr<LeakRoute> lr;
  const auto [e, added] = leakRoute_.insertWith(route->key(), [&] {
    lr = leakRouteFactory(vrfAf, route);
    lr->newRef();  // the directory's reference
    return Entry{LeakRouteRef::of(lr.ptr()), Vrf::VrfIdMap::invalidVrfId};
  });
  KEL_ASSERT(added);
  notifyKey(&Notifiee::onLeakRoute, route->key());
  return lr;
}

void LeakRouteDir::leakRouteDel(const Routing::RouteKey& k) {
  const Entry* e = leakRoute_.find(k);
  if (e == nullptr) return;
  // The directory's reference passes to `old`, which lets go once the
  // reactors have heard.
  const Kel::Ptr<LeakRoute> old(e->leakRoute.get());
  old->delRef();
  leakRoute_.erase(k);
  notifyKey(&Notifiee::onLeakRoute, k);
}

void LeakRouteDir::leakRouteDelAll() {
  while (leakRoute_.size() != 0) leakRouteDel(leakRoute_.begin()->leakRoute->key());
}

void LeakRouteDir::leakToIs(const Routing::RouteKey& k, Vrf::VrfIdMap::VrfId vrfId) {
  Entry* e = leakRoute_.find(k);
  KEL_ASSERT(e);
  e->leakTo = vrfId;
}

Kel::Ptr<LeakRouteDir> leakRouteDirFactory() { return Kel::makePtr<LeakRouteDir>(); }

Kel::Ptr<LeakRouteConfig> leakRouteConfigFactory(const VrfIdAf& vrfAf) {
  return Kel::makePtr<LeakRouteConfig>(vrfAf);
}

Kel::Ptr<LeakRouteList> leakRouteListFactory(const VrfPairAf& vrfAf) {
  return Kel::makePtr<LeakRouteList>(vrfAf);
}

Kel::Ptr<LeakRouteList> LeakRouteListSet::leakRouteListIs(const VrfPairAf& k) {
  KEL_ASSERT(k.srcVrf() == vrfAf_.vrfId() && k.af() == vrfAf_.af() && k.dstVrf() != k.srcVrf());
  KEL_ASSERT(!lists_.get(k));
  Kel::Ptr<LeakRouteList> list = leakRouteListFactory(k);
  lists_.put(list);
  notifyKey(&Notifiee::onLeakRouteList, k);
  return list;
}

void LeakRouteListSet::leakRouteListDel(const VrfPairAf& k) {
  if (const Kel::Ptr<LeakRouteList> gone = lists_.take(k)) {
    notifyKey(&Notifiee::onLeakRouteList, k);
  }
}

void LeakRouteListSet::leakRouteListDelAll() {
  while (lists_.size() != 0) leakRouteListDel(lists_.firstKey());
}

Kel::Ptr<LeakRouteListSet> leakRouteListSetFactory(const VrfIdAf& vrfAf) {
  return Kel::makePtr<LeakRouteListSet>(vrfAf);
}

void LeakRouteListSetDir::lrlSetIs(const Kel::Ptr<LeakRouteListSet>& s) {
  if (sets_.put(s)) notifyKey(&Notifiee::onLrlSet, s->vrfAf());
}

void LeakRouteListSetDir::lrlSetDel(const VrfIdAf& k) {
  if (const Kel::Ptr<LeakRouteListSet> gone = sets_.take(k)) notifyKey(&Notifiee::onLrlSet, k);
}

void LeakRouteListSetDir::lrlSetDelAll() {
  while (sets_.size() != 0) lrlSetDel(sets_.firstKey());
}

Kel::Ptr<LeakRouteListSetDir> leakRouteListSetDirFactory() {
  return Kel::makePtr<LeakRouteListSetDir>();
}

void LeakRouteListPtrSet::leakRouteListIs(const Kel::Ptr<const LeakRouteList>& l) {
  KEL_ASSERT(l && l->vrfAf().dstVrf() == vrfAf_.vrfId() && l->vrfAf().af() == vrfAf_.af());
  if (lists_.put(l)) notifyKey(&Notifiee::onLeakRouteList, l->vrfAf());
}

void LeakRouteListPtrSet::leakRouteListDel(const VrfPairAf& k) {
  if (const Kel::Ptr<const LeakRouteList> gone = lists_.take(k)) {
    notifyKey(&Notifiee::onLeakRouteList, k);
  }
}

void LeakRouteListPtrSet::leakRouteListDelAll() {
  while (lists_.size() != 0) leakRouteListDel(lists_.firstKey());
}

Kel::Ptr<LeakRouteListPtrSet> leakRouteListPtrSetFactory(const VrfIdAf& vrfAf) {
  return Kel::makePtr<LeakRouteListPtrSet>(vrfAf);
}

void LeakRouteListPtrSetDir::lrlpSetIs(const Kel::Ptr<LeakRouteListPtrSet>& s) {
  if (sets_.put(s)) notifyKey(&Notifiee::onLrlpSet, s->vrfAf());
}

void LeakRouteListPtrSetDir::lrlpSetDel(const VrfIdAf& k) {
  if (const Kel::Ptr<LeakRouteListPtrSet> gone = sets_.take(k)) {
    notifyKey(&Notifiee::onLrlpSet, k);
  }
}

void LeakRouteListPtrSetDir::lrlpSetDelAll() {
  while (sets_.size() != 0) lrlpSetDel(sets_.firstKey());
}

Kel::Ptr<LeakRouteListPtrSetDir> leakRouteListPtrSetDirFactory() {
  return Kel::makePtr<LeakRouteListPtrSetDir>();
}

}  // namespace Routing::Protocol
