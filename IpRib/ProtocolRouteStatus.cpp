#include "IpRib/ProtocolRouteStatus.h"

#include <optional>
#include <sstream>

#include "Kel/Assert.h"
#include "Kel/Hash.h"

namespace Routing::Protocol {

// ---------------------------------------------------------------- value types

namespace {
constexpr const char* prefixPrefVrfIdType = "Routing::Protocol::PrefixPrefVrfId";
}  // namespace

PrefixPrefVrfId::PrefixPrefVrfId(Kel::StrepIt& it, Kel::StrepIt end) {
  Kel::ValueStrepReader r(it, end, prefixPrefVrfIdType);
  prefix_ = r.field("prefix", [](auto& i, auto e) { return Pando::IpGenPrefix(i, e); });
  pref_ = r.field("pref", [](auto& i, auto e) {
    return RoutePreference(Kel::strepToUnsigned(i, e, UINT8_MAX, "Routing::RoutePreference"));
  });
  vrfId_ = r.field("vrfId", Vrf::VrfIdMap::vrfIdFromStrep);
  r.done();
}

uint32_t PrefixPrefVrfId::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(prefix_.hash()).add(pref_).add(vrfId_).result();
}

bool PrefixPrefVrfId::operator<(const PrefixPrefVrfId& o) const {
  if (!(prefix_ == o.prefix_)) return prefix_ < o.prefix_;
  if (pref_ != o.pref_) return pref_ < o.pref_;
  return vrfId_ < o.vrfId_;
}

std::string PrefixPrefVrfId::str() const {
  std::ostringstream os;
  os << " (" << prefix_ << ", pref: " << unsigned(pref_) << ", vrf: " << vrfId_ << ")";
  return os.str();
}

std::string valueToStrep(const PrefixPrefVrfId& v) {
  return Kel::ValueStrepWriter(prefixPrefVrfIdType)
      .field("prefix", Pando::valueToStrep(v.prefix()))
      .field("pref", Kel::valueToStrep(v.pref()))
      .field("vrfId", Kel::valueToStrep(v.vrfId()))
      .done();
}

const Kel::EnumInfo& viaTypeEnumInfo() {
  static const Kel::EnumInfo info("Routing::Protocol::ViaTypeEnum", {{0, "viaInvalid"},
                                                                     {1, "viaIntfNextHop"},
                                                                     {2, "viaNextHopOnly"},
                                                                     {3, "viaIntfOnly"},
                                                                     {4, "viaDefault"}});
  return info;
}

std::string_view stringValue(ViaTypeEnum v) { return viaTypeEnumInfo().stringValue(int64_t(v)); }

const Kel::Enumerator& ViaTypeEnumInstance(uint32_t value) {
  return viaTypeEnumInfo().instance(int64_t(value));
}

const Kel::Enumerator& ViaTypeEnumInstance(std::string_view name) {
  return viaTypeEnumInfo().instance(name);
}

ViaTypeEnum sequenceToValue(Kel::StrepIt& it, Kel::StrepIt end) {
  return ViaTypeEnum(viaTypeEnumInfo().sequenceToValue(it, end));
}

ViaType::ViaType(Kel::StrepIt& it, Kel::StrepIt end)
    : viaType_(Kel::strepField("viaType", [&] { return sequenceToValue(it, end); })) {}

uint32_t ViaType::hash(uint32_t seed) const {
  return Kel::Hasher(seed).add(uint32_t(viaType_)).result();
}

std::string valueToStrep(ViaTypeEnum v) { return std::string(stringValue(v)); }
std::string valueToStrep(const ViaType& v) { return valueToStrep(v.viaType()); }
std::ostream& operator<<(std::ostream& os, const PrefixPrefVrfId& v) {
  return os << valueToStrep(v);
}
std::ostream& operator<<(std::ostream& os, ViaTypeEnum v) { return os << stringValue(v); }
std::ostream& operator<<(std::ostream& os, const ViaType& v) { return os << v.viaType(); }

// ------------------------------------------------------------ ContainerKeySet

void ContainerKeySet::containerKeyIs(const ContainerKey& k) {
  if (containerKey_.insert(ContainerKey(k)).second) {
    notifyKey(&Notifiee::onContainerKey, k);
  }
}

bool ContainerKeySet::containerKeyDel(const ContainerKey& k) {
  if (!containerKey_.erase(k)) return false;
  notifyKey(&Notifiee::onContainerKey, k);
  return true;
}

void ContainerKeySet::containerKeyDelAll() {
  while (!containerKey_.empty()) {
    ContainerKey k = containerKey_.popFront();
    notifyKey(&Notifiee::onContainerKey, k);
  }
}

// --------------------------------------------------------- DedupViaKeyMetric

DedupViaKeyMetric::DedupViaKeyMetric(Kel::Ptr<const Rib::DedupViaKey> dedupViaKey,
                                     RouteMetric metric)
    : dedupViaKey_(std::move(dedupViaKey)) {
  KEL_ASSERT(dedupViaKey_);
  word_ = metric;
}

// ------------------------------------------------------ DedupViaKeyByViaType

Kel::Ptr<DedupViaKeyMetric> DedupViaKeyByViaType::dedupViaKey(const Rib::ViaKey& k) const {
  const auto* e = dedupViaKey_.find(k);
  return e ? *e : nullptr;
}

void DedupViaKeyByViaType::dedupViaKeyIs(const Rib::ViaKey& k, Kel::Ptr<DedupViaKeyMetric> m) {
  KEL_ASSERT(m && m->viaKey() == k);
  auto [entry, inserted] = dedupViaKey_.insert(Kel::Ptr<DedupViaKeyMetric>(m));
  if (!inserted) {
    if (*entry == m) return;
    Kel::Ptr<DedupViaKeyMetric> old = std::exchange(*entry, std::move(m));
  }
  notifyKey(&Notifiee::onDedupViaKey, k);
}

void DedupViaKeyByViaType::dedupViaKeyDel(const Rib::ViaKey& k) {
  if (dedupViaKey_.erase(k)) notifyKey(&Notifiee::onDedupViaKey, k);
}

void DedupViaKeyByViaType::dedupViaKeyDelAll() {
  while (!dedupViaKey_.empty()) {
    Kel::Ptr<DedupViaKeyMetric> m = dedupViaKey_.popBack();
    notifyKey(&Notifiee::onDedupViaKey, m->viaKey());
  }
}

// ------------------------------------------------------------------ RoutePref

RoutePref::RoutePref(RoutePreference preference) : preference_(preference) {}
RoutePref::~RoutePref() = default;

RoutePref::Extras& RoutePref::extras() {
  if (!extras_) extras_ = std::make_unique<Extras>();
  return *extras_;
}

const Kel::Ptr<const Rib::DedupViaSetKey>& RoutePref::dedupViaSetKey() const {
  static const Kel::Ptr<const Rib::DedupViaSetKey> none;
  return extras_ ? extras_->dedupViaSetKey : none;
}

void RoutePref::dedupViaSetKeyIs(Kel::Ptr<const Rib::DedupViaSetKey> v) {
  if (!extras_ && !v) return;  // unchanged: no key
  attributeIs(extras().dedupViaSetKey, std::move(v), &Notifiee::onDedupViaSetKey);
}

Kel::Ptr<DedupViaKeyByViaType> RoutePref::dedupViaKeyByViaType(const ViaType& t) const {
  const auto* e = dedupViaKeyByViaType_.find(t);
  return e ? *e : nullptr;
}

Kel::Ptr<DedupViaKeyByViaType> RoutePref::dedupViaKeyByViaTypeIs(const ViaType& t) {
  auto [entry, inserted] = dedupViaKeyByViaType_.insert(Kel::makePtr<DedupViaKeyByViaType>(t));
  Kel::Ptr<DedupViaKeyByViaType> byType = *entry;
  if (inserted) {
    if (nestedParent()) byType->nestedParentIs(this);
    notifyKey(&Notifiee::onDedupViaKeyByViaType, t);
  }
  return byType;
}

void RoutePref::dedupViaKeyByViaTypeDel(const ViaType& t) {
  const auto* e = dedupViaKeyByViaType_.find(t);
  if (e == nullptr) return;
  (*e)->nestedParentIs(nullptr);
  dedupViaKeyByViaType_.erase(t);
  notifyKey(&Notifiee::onDedupViaKeyByViaType, t);
}

void RoutePref::dedupViaKeyByViaTypeDelAll() {
  while (!dedupViaKeyByViaType_.empty()) {
    Kel::Ptr<DedupViaKeyByViaType> byType = dedupViaKeyByViaType_.popBack();
    byType->nestedParentIs(nullptr);
    notifyKey(&Notifiee::onDedupViaKeyByViaType, byType->viaType());
  }
}

void RoutePref::dedupViaKeyIs(const ViaType& t, Kel::Ptr<const Rib::DedupViaKey> k,
                              RouteMetric metric) {
  KEL_ASSERT(k);
  const Rib::ViaKey viaKey = k->key();
  auto entry = Kel::makePtr<DedupViaKeyMetric>(std::move(k), metric);
  if (Kel::Ptr<DedupViaKeyByViaType> byType = dedupViaKeyByViaType(t)) {
    byType->dedupViaKeyIs(viaKey, std::move(entry));
    return;
  }
  // Fill a new by-type entry before it is filed, so nobody sees it empty.
  auto byType = Kel::makePtr<DedupViaKeyByViaType>(t);
  byType->dedupViaKeyIs(viaKey, std::move(entry));
  if (nestedParent()) byType->nestedParentIs(this);
  dedupViaKeyByViaType_.insert(std::move(byType));
  notifyKey(&Notifiee::onDedupViaKeyByViaType, t);
}

void RoutePref::dedupViaKeyDel(const ViaType& t, const Rib::ViaKey& k) {
  Kel::Ptr<DedupViaKeyByViaType> byType = dedupViaKeyByViaType(t);
  if (!byType || !byType->dedupViaKey(k)) return;
  if (byType->dedupViaKeySize() > 1) {
    byType->dedupViaKeyDel(k);
    return;
  }
  // The last via: the whole by-type entry goes, so nobody sees it empty.
  dedupViaKeyByViaTypeDel(t);
  byType->dedupViaKeyDelAll();
}

void RoutePref::dedupViaKeyDelAll(const ViaType& t) {
  Kel::Ptr<DedupViaKeyByViaType> byType = dedupViaKeyByViaType(t);
  if (!byType) return;
  dedupViaKeyByViaTypeDel(t);
  byType->dedupViaKeyDelAll();
}

void RoutePref::subtreeLinkIs(const Route* route) {
  nestedParentIs(route);
  for (const Kel::Ptr<DedupViaKeyByViaType>& byType : dedupViaKeyByViaType_) {
    byType->nestedParentIs(route ? this : nullptr);
  }
}

Kel::Ptr<const Rib::DedupViaKey> RoutePref::dedupEvpnVtepIpViaKey(const Rib::ViaKey& k) const {
  if (!extras_) return nullptr;
  const VtepEntry* e = extras_->dedupEvpnVtepIpViaKey.find(k);
  return e ? e->vtep : nullptr;
}

void RoutePref::dedupEvpnVtepIpViaKeyIs(const Rib::ViaKey& k,
                                        Kel::Ptr<const Rib::DedupViaKey> vtep) {
  auto [entry, inserted] = extras().dedupEvpnVtepIpViaKey.insert(VtepEntry{k, vtep});
  if (!inserted) {
    if (entry->vtep == vtep) return;
    entry->vtep = std::move(vtep);
  }
  notifyKey(&Notifiee::onDedupEvpnVtepIpViaKey, k);
}

void RoutePref::dedupEvpnVtepIpViaKeyDel(const Rib::ViaKey& k) {
  if (extras_ && extras_->dedupEvpnVtepIpViaKey.erase(k)) {
    notifyKey(&Notifiee::onDedupEvpnVtepIpViaKey, k);
  }
}

void RoutePref::dedupEvpnVtepIpViaKeyDelAll() {
  while (extras_ && !extras_->dedupEvpnVtepIpViaKey.empty()) {
    VtepEntry e = extras_->dedupEvpnVtepIpViaKey.popFront();
    notifyKey(&Notifiee::onDedupEvpnVtepIpViaKey, e.via);
  }
}

bool RoutePref::bfdTrackedViaCollHas(const Rib::ViaKey& k) const {
  return extras_ && extras_->bfdTrackedViaColl.find(k) != nullptr;
}

uint32_t RoutePref::bfdTrackedViaCollSize() const {
  return extras_ ? extras_->bfdTrackedViaColl.size() : 0;
}

void RoutePref::bfdTrackedViaCollIs(const Rib::ViaKey& k) {
  if (extras().bfdTrackedViaColl.insert(Rib::ViaKey(k)).second) {
    notifyKey(&Notifiee::onBfdTrackedViaColl, k);
  }
}

void RoutePref::bfdTrackedViaCollDel(const Rib::ViaKey& k) {
  if (extras_ && extras_->bfdTrackedViaColl.erase(k)) {
    notifyKey(&Notifiee::onBfdTrackedViaColl, k);
  }
}

void RoutePref::bfdTrackedViaCollDelAll() {
  while (extras_ && !extras_->bfdTrackedViaColl.empty()) {
    Rib::ViaKey k = extras_->bfdTrackedViaColl.popFront();
    notifyKey(&Notifiee::onBfdTrackedViaColl, k);
  }
}

// ---------------------------------------------------------------------- Route

Kel::Ptr<RoutePref> Route::routePref(RoutePreference p) const {
  const auto* e = routePref_.find(p);
  return e ? *e : nullptr;
}

Kel::Ptr<RoutePref> Route::routePrefIs(RoutePreference p) {
  if (const auto* e = routePref_.find(p)) return *e;
  Kel::Ptr<RoutePref> pref = *routePref_.insert(Kel::makePtr<RoutePref>(p)).first;
  if (nestedWatchers_ != 0) pref->subtreeLinkIs(this);
  notifyKey(&Notifiee::onRoutePref, p);
  return pref;
}

void Route::routePrefDel(RoutePreference p) {
  const auto* e = routePref_.find(p);
  if (e == nullptr) return;
  (*e)->subtreeLinkIs(nullptr);
  routePref_.erase(p);
  notifyKey(&Notifiee::onRoutePref, p);
}

void Route::routePrefDelAll() {
  while (!routePref_.empty()) {
    Kel::Ptr<RoutePref> pref = routePref_.popBack();
    pref->subtreeLinkIs(nullptr);
    notifyKey(&Notifiee::onRoutePref, pref->preference());
  }
}

Route::~Route() {
  if (!subtreeLinked_) return;
  // Whoever holds a preference still must not pass changes up to a route gone.
  for (const Kel::Ptr<RoutePref>& pref : routePref_) pref->subtreeLinkIs(nullptr);
}

void Route::nestedWatcherIs() {
  KEL_ASSERT(nestedWatchers_ != UINT8_MAX);
  if (nestedWatchers_++ != 0) return;
  subtreeLinked_ = true;
  for (const Kel::Ptr<RoutePref>& pref : routePref_) pref->subtreeLinkIs(this);
}

void Route::nestedWatcherDel() {
  // The links stay until the route goes: a route computation dropped with a
  // million routes would otherwise read every preference and via type again.
  KEL_ASSERT(nestedWatchers_ != 0);
  --nestedWatchers_;
}

// --------------------------------------------------------------------- Status

Status::~Status() {
  // A VRF's million routes go in one turn: read each route's objects ahead.
  route_.clearReadingAhead<routePrefetchSteps, 2>(
      [](const Kel::Ptr<Route>& route, int step) { prefetchRouteStep(*route, step); });
}

Kel::Ptr<Route> Status::route(const Pando::IpGenPrefix& p) const {
  if (lastFiled_ != nullptr && lastFiled_->prefix() == p) return Kel::Ptr<Route>(lastFiled_);
  const auto* e = route_.find(p);
  return e ? *e : nullptr;
}

Kel::Ptr<Route> Status::routeIs(const Pando::IpGenPrefix& p) {
  // Made only when absent: a route's objects are carved together, and one made and
  // dropped here would leave a hole among them.
  const auto [entry, inserted] = route_.insertWith(p, [&p] { return Kel::makePtr<Route>(p); });
  Kel::Ptr<Route> route = *entry;
  if (!inserted) return route;
  route->filed_ = true;  // nobody watches it yet
  lastFiled_ = route.ptr();
  notifyKey(&Notifiee::onRoute, p);
  return route;
}

void Status::routeDel(const Pando::IpGenPrefix& p) {
  std::optional<Kel::Ptr<Route>> gone = route_.extract(p);
  if (!gone) return;
  if (lastFiled_ == gone->ptr()) lastFiled_ = nullptr;
  (*gone)->filedIs(false);
  gone.reset();
  notifyKey(&Notifiee::onRoute, p);
}

void Status::routeDelAll() {
  while (!route_.empty()) {
    Kel::Ptr<Route> route = route_.popFront();
    if (lastFiled_ == route.ptr()) lastFiled_ = nullptr;
    route->filedIs(false);
    notifyKey(&Notifiee::onRoute, route->prefix());
  }
}

Kel::Ptr<Status> statusFactory(const RouteStatusKey& key) { return Kel::makePtr<Status>(key); }

// ------------------------------------------------------------- RouteStatusDir

Kel::Ptr<Status> RouteStatusDir::status(const RouteStatusKey& k) const {
  const auto* e = status_.find(k);
  return e ? *e : nullptr;
}

void RouteStatusDir::statusIs(Kel::Ptr<Status> s) {
  KEL_ASSERT(s);
  const RouteStatusKey key = s->key();
  auto [entry, inserted] = status_.insert(Kel::Ptr<Status>(s));
  if (!inserted) {
    if (*entry == s) return;
    Kel::Ptr<Status> old = std::exchange(*entry, std::move(s));
  }
  notifyKey(&Notifiee::onStatus, key);
}

void RouteStatusDir::statusDel(const RouteStatusKey& k) {
  if (status_.erase(k)) notifyKey(&Notifiee::onStatus, k);
}

void RouteStatusDir::statusDelAll() {
  while (!status_.empty()) {
    Kel::Ptr<Status> s = status_.popFront();
    notifyKey(&Notifiee::onStatus, s->key());
  }
}

Kel::Ptr<RouteStatusDir> routeStatusDirFactory() { return Kel::makePtr<RouteStatusDir>(); }

// -------------------------------------------------------------- RouteByViaKey

void RouteByViaKey::routeIs(const PrefixPrefVrfId& r) {
  if (route_.insert(PrefixPrefVrfId(r)).second) notifyKey(&Notifiee::onRoute, r);
}

void RouteByViaKey::routeDel(const PrefixPrefVrfId& r) {
  if (route_.erase(r)) notifyKey(&Notifiee::onRoute, r);
}

void RouteByViaKey::routeDelAll() {
  while (!route_.empty()) {
    PrefixPrefVrfId r = route_.popFront();
    notifyKey(&Notifiee::onRoute, r);
  }
}

}  // namespace Routing::Protocol
