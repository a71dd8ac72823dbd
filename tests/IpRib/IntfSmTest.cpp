// IntfSm and IntfStatus, IPv4 and IPv6 alike.
//
//   VRF "red": Ethernet1 (routing on), Ethernet2 (routing off) at start;
//   an IntfStatus of the family over red's interface set, an IntfSm on it,
//   and a reader counting the notifications of intfStatusChanged.
//
// The counter must move by exactly one per relevant change, the per-interface
// reactors must mirror the interface set, and intf must answer live.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "IpRib/ProtocolIntfSm.h"
#include "Kel/Error.h"
#include "Kel/Trace.h"

namespace Routing::Protocol {
namespace {

using Pando::IntfId;

IntfId intf(int i) { return IntfId(Kel::String("Ethernet" + std::to_string(i))); }
const L3::VrfName red(Kel::String("red"));

struct Ipv4 {
  using Vrf = Ip::VrfIpIntfStatus;
  using Entry = Ip::IpIntfStatus;
  static constexpr const char* kindTrace = "handleInitialized(IPv4)";
  static constexpr const char* nullText =
      "Routing::Protocol::IntfSm::ipv4IntfStatusIs: null argument";
  static constexpr const char* kindTypeName = "Routing::Protocol::Ipv4IntfStatus";
  static Kel::Ptr<Vrf> vrf(const L3::VrfName& name) {
    return Kel::makePtr<Ip::Status>()->vrfIpIntfStatusIs(name);
  }
  static Kel::Ptr<Entry> entryIs(Vrf& v, const IntfId& i) { return v.ipIntfStatusIs(i); }
  static void entryIs(Vrf& v, const Kel::Ptr<Entry>& e) { v.ipIntfStatusIs(e); }
  static void entryDel(Vrf& v, const IntfId& i) { v.ipIntfStatusDel(i); }
  static Kel::Ptr<IntfStatus> intfStatus(const Kel::Ptr<Vrf>& v) {
    return ipv4IntfStatusFactory(v);
  }
  static const Vrf* watched(const IntfSm& sm) { return sm.ipv4Status(); }
  static void watchedIs(IntfSm& sm, const Kel::Ptr<Vrf>& v) { sm.ipv4StatusIs(v); }
  static void watchedDel(IntfSm& sm) { sm.ipv4StatusDel(); }
  static const Entry* reactorOn(const IntfSm& sm, const IntfId& i) { return sm.ipv4IntfStatus(i); }
  static uint32_t reactors(const IntfSm& sm) { return sm.ipv4IntfStatusSize(); }
  static void reactorIs(IntfSm& sm, const Kel::Ptr<const Entry>& e) { sm.ipv4IntfStatusIs(e); }
};

struct Ipv6 {
  using Vrf = Ip6::VrfIp6IntfStatus;
  using Entry = Ip6::IntfStatus;
  static constexpr const char* kindTrace = "handleInitialized(IPv6)";
  static constexpr const char* nullText =
      "Routing::Protocol::IntfSm::ipv6IntfStatusIs: null argument";
  static constexpr const char* kindTypeName = "Routing::Protocol::Ipv6IntfStatus";
  static Kel::Ptr<Vrf> vrf(const L3::VrfName& name) {
    return Kel::makePtr<Ip6::Status>()->vrfIp6IntfStatusIs(name);
  }
  static Kel::Ptr<Entry> entryIs(Vrf& v, const IntfId& i) { return v.ip6IntfStatusIs(i); }
  static void entryIs(Vrf& v, const Kel::Ptr<Entry>& e) { v.ip6IntfStatusIs(e); }
  static void entryDel(Vrf& v, const IntfId& i) { v.ip6IntfStatusDel(i); }
  static Kel::Ptr<IntfStatus> intfStatus(const Kel::Ptr<Vrf>& v) {
    return ipv6IntfStatusFactory(v);
  }
  static const Vrf* watched(const IntfSm& sm) { return sm.ipv6Status(); }
  static void watchedIs(IntfSm& sm, const Kel::Ptr<Vrf>& v) { sm.ipv6StatusIs(v); }
  static void watchedDel(IntfSm& sm) { sm.ipv6StatusDel(); }
  static const Entry* reactorOn(const IntfSm& sm, const IntfId& i) { return sm.ipv6IntfStatus(i); }
  static uint32_t reactors(const IntfSm& sm) { return sm.ipv6IntfStatusSize(); }
  static void reactorIs(IntfSm& sm, const Kel::Ptr<const Entry>& e) { sm.ipv6IntfStatusIs(e); }
};

// The protocol side: counts the wake-ups.
class Reader final : public IntfStatus::Notifiee {
 public:
  explicit Reader(const Kel::Ptr<IntfStatus>& s) { notifierIs(s.ptr()); }
  void onIntfStatusChanged() override { ++wakeUps; }
  int wakeUps = 0;
};

// The facility's text levels 8 and 9 on while it lives.
class IntfSmTrace {
 public:
  IntfSmTrace() : facility_(*Kel::TraceRegistry::instance().facility("IpRib::IntfSm")) {
    saved_ = facility_.textLevels();
    facility_.textLevelIs(8, true);
    facility_.textLevelIs(9, true);
  }
  ~IntfSmTrace() {
    facility_.textLevelIs(8, (saved_ >> 8) & 1u);
    facility_.textLevelIs(9, (saved_ >> 9) & 1u);
  }
  std::vector<std::string> messages() const { return capture_.messages(); }

 private:
  Kel::TraceFacility& facility_;
  uint32_t saved_;
  Kel::TraceCapture capture_;
};

template <class F>
class IntfSmTest : public ::testing::Test {
 protected:
  IntfSmTest() {
    F::entryIs(*vrf_, intf(1))->dpRoutingEnabledIs(true);
    F::entryIs(*vrf_, intf(2));
    sm_ = IntfSm::IntfSmIs(intfStatus_);
  }
  typename F::Entry& entry(int i) { return *F::entryIs(*vrf_, intf(i)); }
  uint32_t counter() const { return intfStatus_->intfStatusChanged(); }
  // The counter and the reader's wake-ups moved together by `n` since the last call.
  void expectBumps(int n) {
    EXPECT_EQ(counter() - last_, uint32_t(n));
    EXPECT_EQ(reader_.wakeUps - lastWakeUps_, n);
    last_ = counter();
    lastWakeUps_ = reader_.wakeUps;
  }

  Kel::Ptr<typename F::Vrf> vrf_ = F::vrf(red);
  Kel::Ptr<IntfStatus> intfStatus_ = F::intfStatus(vrf_);
  Reader reader_{intfStatus_};
  Kel::Ptr<IntfSm> sm_;
  uint32_t last_ = 0;
  int lastWakeUps_ = 0;
};

using Families = ::testing::Types<Ipv4, Ipv6>;
TYPED_TEST_SUITE(IntfSmTest, Families);

TYPED_TEST(IntfSmTest, StartsOnTheVrfsInterfacesWithoutABump) {
  using F = TypeParam;
  EXPECT_TRUE(this->sm_->initialized());
  EXPECT_EQ(this->sm_->intfStatus(), this->intfStatus_);
  EXPECT_STREQ(this->intfStatus_->typeName(), F::kindTypeName);
  EXPECT_EQ(F::watched(*this->sm_), this->vrf_.ptr());
  EXPECT_EQ(F::reactors(*this->sm_), 2u);
  EXPECT_EQ(F::reactorOn(*this->sm_, intf(1)), &this->entry(1));
  this->expectBumps(0);
  EXPECT_TRUE(this->intfStatus_->intf(intf(1)));
  EXPECT_FALSE(this->intfStatus_->intf(intf(2)));
  EXPECT_FALSE(this->intfStatus_->intf(intf(9)));  // unknown to the VRF
  EXPECT_FALSE(this->intfStatus_->intf(IntfId()));
}

TYPED_TEST(IntfSmTest, AReplacedEntryBumpsOnceAndTheReactorFollowsIt) {
  using F = TypeParam;
  const Kel::Ptr<typename F::Entry> old = F::entryIs(*this->vrf_, intf(1));
  auto fresh = Kel::makePtr<typename F::Entry>(intf(1));
  F::entryIs(*this->vrf_, fresh);
  this->expectBumps(1);
  EXPECT_EQ(F::reactorOn(*this->sm_, intf(1)), fresh.ptr());
  EXPECT_FALSE(this->intfStatus_->intf(intf(1)));  // the fresh entry's flag
  old->dpRoutingEnabledIs(false);
  this->expectBumps(0);
  fresh->dpRoutingEnabledIs(true);
  this->expectBumps(1);

  // Asked for the entry it already watches, the reactor stays as it is.
  F::reactorIs(*this->sm_, fresh);
  EXPECT_EQ(fresh->notifieeCount(), 1u);
  try {
    F::reactorIs(*this->sm_, nullptr);
    FAIL() << "a null entry was accepted";
  } catch (const Kel::NullArgumentError& e) {
    EXPECT_STREQ(e.what(), F::nullText);
  }
}

// Red's set replaced by blue's: Ethernet1 is the very same entry in both,
// Ethernet2 is in red only, Ethernet3 in blue only.
TYPED_TEST(IntfSmTest, ANewInterfaceSetResynchronisesWithoutABump) {
  using F = TypeParam;
  const Kel::Ptr<typename F::Vrf> blue = F::vrf(L3::VrfName(Kel::String("blue")));
  const Kel::Ptr<typename F::Entry> shared = F::entryIs(*this->vrf_, intf(1));
  F::entryIs(*blue, shared);
  const Kel::Ptr<typename F::Entry> e3 = F::entryIs(*blue, intf(3));

  F::watchedIs(*this->sm_, this->vrf_);  // the one watched: nothing
  EXPECT_EQ(this->vrf_->notifieeCount(), 1u);
  F::watchedIs(*this->sm_, blue);
  this->expectBumps(0);
  EXPECT_EQ(F::watched(*this->sm_), blue.ptr());
  EXPECT_EQ(this->vrf_->notifieeCount(), 0u);
  EXPECT_EQ(F::reactors(*this->sm_), 2u);
  EXPECT_EQ(F::reactorOn(*this->sm_, intf(2)), nullptr);
  EXPECT_EQ(F::reactorOn(*this->sm_, intf(3)), e3.ptr());
  EXPECT_EQ(shared->notifieeCount(), 1u);  // kept, not doubled

  this->entry(2).dpRoutingEnabledIs(true);  // red's only
  F::entryIs(*this->vrf_, intf(4));
  this->expectBumps(0);
  e3->dpRoutingEnabledIs(true);
  F::entryDel(*blue, intf(1));
  this->expectBumps(2);

  F::watchedDel(*this->sm_);
  EXPECT_EQ(F::watched(*this->sm_), nullptr);
  EXPECT_EQ(F::reactors(*this->sm_), 0u);
  e3->dpRoutingEnabledIs(false);
  F::entryIs(*blue, intf(5));
  this->expectBumps(0);
}

TYPED_TEST(IntfSmTest, SwitchedOffItHearsNothingSwitchedOnItHearsAgain) {
  using F = TypeParam;
  this->sm_->hasNotificationActiveIs(false);
  this->entry(1).dpRoutingEnabledIs(false);
  this->entry(2).dpRoutingEnabledIs(true);
  F::entryDel(*this->vrf_, intf(2));
  this->expectBumps(0);
  EXPECT_EQ(F::reactors(*this->sm_), 2u);  // nothing followed either

  this->sm_->hasNotificationActiveIs(true);
  this->entry(1).dpRoutingEnabledIs(true);
  this->expectBumps(1);
  F::entryIs(*this->vrf_, intf(3));
  this->expectBumps(1);
  this->sm_->hasNotificationActiveIs(false);
  this->entry(3).dpRoutingEnabledIs(true);  // a reactor made while on, switched off with it
  this->expectBumps(0);
}

// The reader runs its own code on every wake-up, here in the middle of the
// set reactor's handler.
class MeddlingReader final : public IntfStatus::Notifiee {
 public:
  MeddlingReader(const Kel::Ptr<IntfStatus>& s, std::function<void()> act) : act_(std::move(act)) {
    notifierIs(s.ptr());
  }
  void onIntfStatusChanged() override { act_(); }

 private:
  std::function<void()> act_;
};

TYPED_TEST(IntfSmTest, AReaderMayDropOrRepointItWhenWoken) {
  using F = TypeParam;
  {
    MeddlingReader dropper(this->intfStatus_, [this] { this->sm_ = nullptr; });
    F::entryIs(*this->vrf_, intf(3));
  }
  EXPECT_EQ(this->sm_, nullptr);
  EXPECT_EQ(this->vrf_->notifieeCount(), 0u);
  EXPECT_EQ(this->entry(3).notifieeCount(), 0u);

  this->sm_ = IntfSm::IntfSmIs(this->intfStatus_);
  const Kel::Ptr<typename F::Vrf> blue = F::vrf(L3::VrfName(Kel::String("blue")));
  const Kel::Ptr<typename F::Entry> b1 = F::entryIs(*blue, intf(1));
  {
    MeddlingReader repointer(this->intfStatus_, [this, &blue] { F::watchedIs(*this->sm_, blue); });
    F::entryDel(*this->vrf_, intf(2));  // heard on red, answered by moving to blue
  }
  EXPECT_EQ(F::watched(*this->sm_), blue.ptr());
  EXPECT_EQ(F::reactors(*this->sm_), 1u);
  EXPECT_EQ(F::reactorOn(*this->sm_, intf(1)), b1.ptr());
}

TYPED_TEST(IntfSmTest, TheCounterWrapsAndStillNotifies) {
  IntfStatus& status = *this->intfStatus_;
  status.intfStatusChangedIs(4294967295u);
  EXPECT_EQ(this->reader_.wakeUps, 1);
  this->entry(2).dpRoutingEnabledIs(true);
  EXPECT_EQ(status.intfStatusChanged(), 0u);
  EXPECT_EQ(this->reader_.wakeUps, 2);
  EXPECT_EQ(status.intfStatusChangedInc(0), 0u);  // no change: nobody woken
  EXPECT_EQ(this->reader_.wakeUps, 2);
  EXPECT_EQ(status.intfStatusChangedInc(4294967295u), 4294967295u);
  EXPECT_EQ(status.intfStatusChangedInc(2), 1u);
  EXPECT_EQ(this->reader_.wakeUps, 4);
}

TYPED_TEST(IntfSmTest, TracesItsHandlers) {
  using F = TypeParam;
  IntfSmTrace trace;
  const Kel::Ptr<IntfSm> sm = intfSmFactory(F::intfStatus(this->vrf_));
  this->entry(2).dpRoutingEnabledIs(true);
  EXPECT_EQ(trace.messages(),
            (std::vector<std::string>{"handleInitialized", F::kindTrace,
                                      "handleIntfStatus(Ethernet2)",  // one per IntfSm
                                      "handleIntfStatus(Ethernet2)"}));
}

// Random changes of the interface set and its flags against a map of what
// the set holds: after each, the reactors mirror the set, intf agrees with
// the map, and the counter moved by the number of relevant changes.
TYPED_TEST(IntfSmTest, RandomChangesMatchAModel) {
  using F = TypeParam;
  const uint32_t seed = 7001;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  std::map<IntfId, Kel::Ptr<typename F::Entry>> present = {
      {intf(1), F::entryIs(*this->vrf_, intf(1))}, {intf(2), F::entryIs(*this->vrf_, intf(2))}};
  std::vector<Kel::Ptr<typename F::Entry>> stale;
  for (int step = 0; step < 3000; ++step) {
    const IntfId id = intf(int(rng() % 10));
    const auto it = present.find(id);
    int relevant = 0;
    switch (rng() % 5) {
      case 0:  // add, or return the present one
        if (it == present.end()) relevant = 1;
        present[id] = F::entryIs(*this->vrf_, id);
        break;
      case 1: {  // replace with a fresh entry
        auto fresh = Kel::makePtr<typename F::Entry>(id);
        fresh->dpRoutingEnabledIs(rng() % 2);
        F::entryIs(*this->vrf_, fresh);
        if (it != present.end()) stale.push_back(it->second);
        present[id] = fresh;
        relevant = 1;
        break;
      }
      case 2:  // remove
        if (it != present.end()) {
          stale.push_back(it->second);
          present.erase(it);
          relevant = 1;
        }
        F::entryDel(*this->vrf_, id);
        break;
      case 3:  // flip a present interface
        if (it != present.end()) {
          const bool v = rng() % 2;
          relevant = it->second->dpRoutingEnabled() != v;
          it->second->dpRoutingEnabledIs(v);
        }
        break;
      default:  // flip a gone one
        if (!stale.empty()) {
          stale[rng() % stale.size()]->dpRoutingEnabledIs(rng() % 2);
        }
        break;
    }
    this->expectBumps(relevant);
    ASSERT_EQ(F::reactors(*this->sm_), present.size()) << "step " << step;
    for (int i = 0; i < 10; ++i) {
      const auto p = present.find(intf(i));
      const bool known = p != present.end();
      ASSERT_EQ(F::reactorOn(*this->sm_, intf(i)), known ? p->second.ptr() : nullptr);
      ASSERT_EQ(this->intfStatus_->intf(intf(i)), known && p->second->dpRoutingEnabled());
    }
    if (::testing::Test::HasFailure()) break;
  }
}

TEST(IntfSmDeathTest, OnlyTheKindsAnswerAndOnlyTheKindsStart) {
  const Kel::Ptr<IntfStatus> plain = intfStatusFactory();
  EXPECT_STREQ(plain->typeName(), "Routing::Protocol::IntfStatus");
  EXPECT_DEATH(plain->intf(intf(1)),
               "Assertion failed: \"0 && \"Must be implemented in derived class\"\" in module "
               "ProtocolIntf, function intf\n");
  EXPECT_DEATH(IntfSm::IntfSmIs(plain),
               "Assertion failed: \"0 && \"A derived type of IntfStatus must be supplied as a "
               "constructor arg\"\" in module ProtocolIntfSm, function handleInitialized\n");
  EXPECT_DEATH(IntfSm::IntfSmIs(nullptr), "A derived type of IntfStatus must be supplied");
}

}  // namespace
}  // namespace Routing::Protocol
