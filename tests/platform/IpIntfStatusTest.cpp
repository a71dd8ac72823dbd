// The platform's interface status, IPv4 and IPv6 alike:
//
//   Status -> VRF "red" -> Ethernet1..n, each with dpRoutingEnabled and addr
//
// Checked: what each write notifies (exactly once, and nothing for a write
// that changes nothing), replacing an entry under its id, the null-argument
// text, and a random sequence of writes against a plain map.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip6/IntfStatus.h"

namespace {

using Pando::IntfId;

IntfId intf(int i) { return IntfId(Kel::String("Ethernet" + std::to_string(i))); }
const L3::VrfName red(Kel::String("red"));

// Records what an interface notifies.
template <class Entry>
struct EntryRecorder final : Entry::Notifiee {
  explicit EntryRecorder(const Kel::Ptr<Entry>& e) { this->notifierIs(e.ptr()); }
  void onDpRoutingEnabled() override { ++flag; }
  void onAddr() override { ++addr; }
  int flag = 0;
  int addr = 0;
};

struct Ipv4 {
  using Status = Ip::Status;
  using Vrf = Ip::VrfIpIntfStatus;
  using Entry = Ip::IpIntfStatus;
  static constexpr const char* nullText = "Ip::VrfIpIntfStatus::ipIntfStatusIs: null argument";
  static Kel::Ptr<Vrf> vrfIs(Status& s, const L3::VrfName& v) { return s.vrfIpIntfStatusIs(v); }
  static Kel::Ptr<Entry> entryIs(Vrf& v, const IntfId& i) { return v.ipIntfStatusIs(i); }
  static void entryIs(Vrf& v, Kel::Ptr<Entry> e) { v.ipIntfStatusIs(std::move(e)); }
  static Kel::Ptr<Entry> entry(const Vrf& v, const IntfId& i) { return v.ipIntfStatus(i); }
  static bool entryHas(const Vrf& v, const IntfId& i) { return v.ipIntfStatusHas(i); }
  static uint32_t entrySize(const Vrf& v) { return v.ipIntfStatusSize(); }
  static const Vrf::Map& entries(const Vrf& v) { return v.ipIntfStatus(); }
  static void entryDel(Vrf& v, const IntfId& i) { v.ipIntfStatusDel(i); }
  struct VrfRecorder final : Vrf::Notifiee {
    explicit VrfRecorder(const Kel::Ptr<Vrf>& v) { notifierIs(v.ptr()); }
    void onIpIntfStatus(const IntfId& i) override { keys.push_back(i); }
    std::vector<IntfId> keys;
  };
};

struct Ipv6 {
  using Status = Ip6::Status;
  using Vrf = Ip6::VrfIp6IntfStatus;
  using Entry = Ip6::IntfStatus;
  static constexpr const char* nullText = "Ip6::VrfIp6IntfStatus::ip6IntfStatusIs: null argument";
  static Kel::Ptr<Vrf> vrfIs(Status& s, const L3::VrfName& v) { return s.vrfIp6IntfStatusIs(v); }
  static Kel::Ptr<Entry> entryIs(Vrf& v, const IntfId& i) { return v.ip6IntfStatusIs(i); }
  static void entryIs(Vrf& v, Kel::Ptr<Entry> e) { v.ip6IntfStatusIs(std::move(e)); }
  static Kel::Ptr<Entry> entry(const Vrf& v, const IntfId& i) { return v.ip6IntfStatus(i); }
  static bool entryHas(const Vrf& v, const IntfId& i) { return v.ip6IntfStatusHas(i); }
  static uint32_t entrySize(const Vrf& v) { return v.ip6IntfStatusSize(); }
  static const Vrf::Map& entries(const Vrf& v) { return v.ip6IntfStatus(); }
  static void entryDel(Vrf& v, const IntfId& i) { v.ip6IntfStatusDel(i); }
  struct VrfRecorder final : Vrf::Notifiee {
    explicit VrfRecorder(const Kel::Ptr<Vrf>& v) { notifierIs(v.ptr()); }
    void onIp6IntfStatus(const IntfId& i) override { keys.push_back(i); }
    std::vector<IntfId> keys;
  };
};

template <class F>
class IpIntfStatusTest : public ::testing::Test {
 protected:
  Kel::Ptr<typename F::Status> status_ = Kel::makePtr<typename F::Status>();
  Kel::Ptr<typename F::Vrf> vrf_ = F::vrfIs(*status_, red);
  typename F::VrfRecorder vrfRecorder_{vrf_};
};

using Families = ::testing::Types<Ipv4, Ipv6>;
TYPED_TEST_SUITE(IpIntfStatusTest, Families);

TYPED_TEST(IpIntfStatusTest, EachWriteNotifiesOnceAndRepeatsNotifyNobody) {
  using F = TypeParam;
  typename F::Vrf& vrf = *this->vrf_;
  const Kel::Ptr<typename F::Entry> e1 = F::entryIs(vrf, intf(1));
  EXPECT_EQ(F::entryIs(vrf, intf(1)), e1);
  EXPECT_EQ(e1->intfId(), intf(1));
  EXPECT_FALSE(e1->dpRoutingEnabled());
  EXPECT_TRUE(e1->addr().isEmpty());

  EntryRecorder<typename F::Entry> entryRecorder(e1);
  e1->dpRoutingEnabledIs(true);
  e1->dpRoutingEnabledIs(true);
  e1->addrIs(Pando::IpGenPrefix("10.0.0.1/24"));
  e1->addrIs(Pando::IpGenPrefix("10.0.0.1/24"));
  EXPECT_EQ(entryRecorder.flag, 1);
  EXPECT_EQ(entryRecorder.addr, 1);
  EXPECT_TRUE(e1->dpRoutingEnabled());

  F::entryDel(vrf, intf(2));  // absent: nothing
  F::entryDel(vrf, intf(1));
  EXPECT_FALSE(F::entryHas(vrf, intf(1)));
  EXPECT_EQ(this->vrfRecorder_.keys, (std::vector<IntfId>{intf(1), intf(1)}));
}

TYPED_TEST(IpIntfStatusTest, AnEntryReplacedUnderItsIdNotifiesOnceAndLivesOnWhileHeld) {
  using F = TypeParam;
  typename F::Vrf& vrf = *this->vrf_;
  Kel::Ptr<typename F::Entry> old = F::entryIs(vrf, intf(1));
  old->dpRoutingEnabledIs(true);
  auto fresh = Kel::makePtr<typename F::Entry>(intf(1));
  this->vrfRecorder_.keys.clear();

  F::entryIs(vrf, fresh);
  F::entryIs(vrf, fresh);  // already there
  EXPECT_EQ(this->vrfRecorder_.keys, (std::vector<IntfId>{intf(1)}));
  EXPECT_EQ(F::entry(vrf, intf(1)), fresh);
  EXPECT_EQ(F::entrySize(vrf), 1u);
  EXPECT_TRUE(old->dpRoutingEnabled());  // the reader's copy is intact

  try {
    F::entryIs(vrf, Kel::Ptr<typename F::Entry>());
    FAIL() << "a null entry was accepted";
  } catch (const Kel::NullArgumentError& e) {
    EXPECT_STREQ(e.what(), F::nullText);
  }
  EXPECT_EQ(this->vrfRecorder_.keys.size(), 1u);
}

// Random writes against a map of (id -> entry object, flag); after every
// step the collection holds exactly the model and each write that changed
// something was heard exactly once.
TYPED_TEST(IpIntfStatusTest, RandomWritesMatchAMap) {
  using F = TypeParam;
  const uint32_t seed = 20240517;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  typename F::Vrf& vrf = *this->vrf_;
  std::map<IntfId, Kel::Ptr<typename F::Entry>> model;
  size_t expectedKeys = 0;
  for (int step = 0; step < 2000; ++step) {
    const IntfId id = intf(int(rng() % 12));
    const auto it = model.find(id);
    switch (rng() % 4) {
      case 0:  // create or return
        if (it == model.end()) {
          model[id] = F::entryIs(vrf, id);
          ++expectedKeys;
        } else {
          ASSERT_EQ(F::entryIs(vrf, id), it->second);
        }
        break;
      case 1: {  // replace with a fresh object
        auto fresh = Kel::makePtr<typename F::Entry>(id);
        F::entryIs(vrf, fresh);
        model[id] = fresh;
        ++expectedKeys;
        break;
      }
      case 2:  // delete
        F::entryDel(vrf, id);
        if (it != model.end()) {
          model.erase(it);
          ++expectedKeys;
        }
        break;
      default:  // a flag write never reaches the VRF's reactors
        if (it != model.end()) it->second->dpRoutingEnabledIs(rng() % 2);
        break;
    }
    ASSERT_EQ(this->vrfRecorder_.keys.size(), expectedKeys) << "step " << step;
    ASSERT_EQ(F::entrySize(vrf), model.size());
    for (const auto& e : F::entries(vrf)) ASSERT_EQ(model.at(e->intfId()), e);
  }
}

}  // namespace
