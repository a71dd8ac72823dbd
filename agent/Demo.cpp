#include "agent/Demo.h"

#include "IpRib/ProtocolContainerKey.h"
#include "IpRib/ProtocolGrTypes.h"
#include "IpRib/ProtocolRouteStatus.h"
#include "Kel/NestedReactors.h"

namespace IpRibAgent {

using namespace Routing::Protocol;
using Pando::AddressFamily;
using Pando::IpGenPrefix;
using Routing::Rib::ViaKey;

namespace {

// Prints every change of a status and of its routes, the way a reactor sees it.
class StatusWatcher final : public Status::Notifiee {
 public:
  class KelRoute final : public Route::Notifiee {
   public:
    KelRoute(Route* r, std::ostream& out) : out_(out) { notifierIs(r); }
    const IpGenPrefix& key() const { return notifier()->prefix(); }
    void onRoutePref(const Routing::RoutePreference& p) override {
      out_ << "  notify " << key() << " routePref[" << unsigned(p) << "]"
           << (notifier()->routePref(p) ? " added" : " deleted") << "\n";
    }
    void onRouteChangedAt() override {
      out_ << "  notify " << key() << " routeChangedAt = " << notifier()->routeChangedAt() << "\n";
    }
    void handleDel() override { out_ << "  reactor of " << key() << " dropped\n"; }

   private:
    std::ostream& out_;
  };

  StatusWatcher(Status* s, std::ostream& out) : routes_(this), out_(out) { notifierIs(s); }
  void onRoute(const IpGenPrefix& prefix) override {
    Kel::Ptr<Route> r = notifier()->route(prefix);
    out_ << "  notify status.route[" << prefix << "]" << (r ? " added" : " deleted") << "\n";
    if (r) {
      routes_.insert(Kel::makePtr<KelRoute>(r.ptr(), out_));
    } else {
      routes_.erase(prefix);
    }
  }
  void onInitialized() override {
    out_ << "  notify status.initialized = " << Kel::valueToStrep(notifier()->initialized()) << "\n";
  }

 private:
  Kel::NestedReactors<IpGenPrefix, KelRoute> routes_;
  std::ostream& out_;
};

void printStatus(const Status& s, std::ostream& out) {
  out << "Status " << s.key() << "\n  initialized: " << Kel::valueToStrep(s.initialized())
      << ", routes: " << s.routeSize() << " (hash order)\n";
  for (const Kel::Ptr<Route>& r : s.route()) {
    out << "  Route " << r->prefix() << "  srcVrfId " << r->srcVrfId() << "  routeChangedAt "
        << r->routeChangedAt() << "\n";
    for (const Kel::Ptr<RoutePref>& p : r->routePref()) {
      out << "    RoutePref " << unsigned(p->preference()) << "  fecType "
          << unsigned(p->fecType()) << "  installInFib " << Kel::valueToStrep(p->installInFib())
          << "  tag " << p->tag() << "\n";
      for (const Kel::Ptr<DedupViaKeyByViaType>& t : p->dedupViaKeyByViaType()) {
        out << "      " << t->viaType() << "\n";
        for (const Kel::Ptr<DedupViaKeyMetric>& v : t->dedupViaKey()) {
          out << "        " << v->viaKey() << "  metric " << v->metric()
              << (p->bfdTrackedViaCollHas(v->viaKey()) ? "  bfd-tracked" : "") << "\n";
        }
      }
    }
  }
}

}  // namespace

int runDemo(std::ostream& out) {
  out << "IpRib demo: a protocol route status built in memory\n\n";
  auto viaKeys = Kel::makePtr<Routing::Rib::DedupViaKeyTable>();
  auto dir = routeStatusDirFactory();
  Kel::Ptr<Status> status = statusFactory(RouteStatusKey(0, AddressFamily::ipv4));
  dir->statusIs(status);
  auto watcher = Kel::makePtr<StatusWatcher>(status.ptr(), out);

  out << "The protocol writes its routes; a reactor watches:\n";
  const ViaKey nh1(ViaKey::kindIpv4, 0, 2, 1), nh2(ViaKey::kindIpv4, 0, 2, 2),
      nh3(ViaKey::kindIpv4, 0, 2, 3);
  Kel::Ptr<Route> r1 = status->routeIs(IpGenPrefix("10.1.0.0/24"));
  Kel::Ptr<RoutePref> p1 = r1->routePrefIs(1);
  p1->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys->dedupViaKeyIs(nh1), 10);
  p1->dedupViaKeyIs(ViaTypeEnum::viaIntfNextHop, viaKeys->dedupViaKeyIs(nh2), 20);
  p1->dedupViaKeyIs(ViaTypeEnum::viaNextHopOnly, viaKeys->dedupViaKeyIs(nh3), 5);
  p1->bfdTrackedViaCollIs(nh3);
  r1->routePrefIs(200)->dedupViaKeyIs(ViaTypeEnum::viaDefault, viaKeys->dedupViaKeyIs(nh3), 0);
  r1->routeChangedAtIs(1000.25);

  Kel::Ptr<Route> r2 = status->routeIs(IpGenPrefix("192.168.7.0/24"));
  Kel::Ptr<RoutePref> p2 = r2->routePrefIs(1);
  p2->tagIs(77);
  p2->installInFibIs(false);
  p2->dedupViaKeyIs(ViaTypeEnum::viaIntfOnly, viaKeys->dedupViaKeyIs(nh2), 0);
  r2->routeChangedAtIs(1000.5);
  status->routeIs(IpGenPrefix("10.9.9.9/32"))->routePrefIs(1)->fecTypeIs(2);
  status->initializedIs(true);

  out << "\n";
  printStatus(*status, out);
  out << "\nShared via keys in the dedup table: " << viaKeys->size() << "\n";

  out << "\nThe last via of a type goes, and the type with it:\n";
  p1->dedupViaKeyDel(ViaTypeEnum::viaNextHopOnly, nh3);
  out << "  viaNextHopOnly present: "
      << Kel::valueToStrep(bool(p1->dedupViaKeyByViaType(ViaTypeEnum::viaNextHopOnly))) << "\n";
  out << "A route is deleted:\n";
  status->routeDel(IpGenPrefix("10.9.9.9/32"));

  out << "\nCanonical forms, and each parsed back:\n";
  auto show = [&out](const auto& value) {
    using T = std::decay_t<decltype(value)>;
    const std::string text = valueToStrep(value);
    const bool same = Kel::strepToValue<T>(text) == value;
    out << "  " << text << (same ? "  (round trip ok)" : "  (ROUND TRIP FAILED)") << "\n";
  };
  show(ContainerKey(L3::VrfName("red"), AddressFamily::ipv6));
  show(RouteStatusKey(0, AddressFamily::ipv4));
  show(RouteStatusKey());
  show(PrefixPrefVrfId(IpGenPrefix("2001:db8::/32"), 20, 3));
  show(ViaType(ViaTypeEnum::viaIntfOnly));
  out << "Trace forms:" << RouteStatusKey(0, AddressFamily::ipv4).str()
      << PrefixPrefVrfId(IpGenPrefix("10.1.0.0/24"), 1, 0).str() << "\n";

  out << "\nA bad value names what is wrong:\n";
  try {
    Kel::strepToValue<ContainerKey>(
        "Value('Routing::Protocol::ContainerKey', ** {'vrfName': 'red', 'af': ipv5})");
  } catch (const Kel::Exception& e) {
    out << "  " << e.what() << "\n";
  }
  try {
    L3::VrfName(Kel::String(std::string(101, 'v')));
  } catch (const Kel::Exception& e) {
    out << "  " << e.what() << "\n";
  }

  auto ready = allVrfReadyStatusFactory();
  Kel::Ptr<VrfReadyStatus> rs = ready->vrfReadyStatusIs(L3::VrfName("default"));
  rs->v4RouteReviewCompleteIs(true);
  out << "\nReadiness of VRF " << rs->vrfName()
      << ": v4RouteReviewComplete " << Kel::valueToStrep(rs->v4RouteReviewComplete())
      << ", ribReadySeqStatus " << rs->ribReadySeqStatus() << "\n";
  watcher = nullptr;
  return 0;
}

}  // namespace IpRibAgent
