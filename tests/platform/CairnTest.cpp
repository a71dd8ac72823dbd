// The state database (Cairn) and the shared-memory mount group
// (KelSharedMem): path normalising, the entity type registry, mount groups
// that complete on a later turn of the loop, and typed readers.
//
// Paths below are the root's inputs: "vrf/vrfNameStatus" (a name-to-id
// wrapper), "ip/status" and "ip6/status"; time is virtual and the loop is
// run by hand.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Clock.h"
#include "Kel/Error.h"
#include "Kel/System.h"
#include "platform/Cairn/EntityManager.h"
#include "platform/Cairn/EntityTypes.h"
#include "platform/Cairn/MountGroup.h"
#include "platform/Cell/Path.h"
#include "platform/Ip/IntfStatus.h"
#include "platform/Ip/StatusMounter.h"
#include "platform/Ip6/IntfStatus.h"
#include "platform/KelSharedMem/EntityManager.h"
#include "platform/KelSharedMem/MountGroup.h"
#include "platform/Vrf/NameToIdMap.h"

namespace {

template <class F>
std::string errorOf(F&& f) {
  try {
    f();
  } catch (const Kel::Exception& e) {
    return e.what();
  }
  return "no error";
}

TEST(CellPath, NormalisesSlashesAndRefusesEmptyPaths) {
  EXPECT_EQ(Cell::path("routing/rib/viaMetricStatus").view(), "routing/rib/viaMetricStatus");
  EXPECT_EQ(Cell::path("/routing//rib/").view(), "routing/rib");
  // A protocol with no path component leaves a trailing slash behind.
  EXPECT_EQ(Cell::path("routing/rib/viaConfig/ipv4/7/").view(), "routing/rib/viaConfig/ipv4/7");
  EXPECT_EQ(errorOf([] { Cell::path(""); }), "Cell::path: '' has no component");
  EXPECT_EQ(errorOf([] { Cell::path("//"); }), "Cell::path: '//' has no component");
  EXPECT_THROW(Cell::path("/"), Kel::ParseError);
}

TEST(EntityTypes, MakeEveryRegisteredTypeAndRefuseOthers) {
  for (const char* name :
       {"Vrf::VrfIdMap::NameToIdMapWrapper", "Vrf::VrfIdMap::Status", "Ip::Status", "Ip6::Status",
        "Routing::Rib::ViaMetricStatusByVrf", "Routing::Rib::LoopingRouteStatusByVrf",
        "Routing::Rib::RouteConfig", "Routing::Rib::Ip::ViaConfig", "Routing::Rib::Evpn::ViaConfig",
        "Routing::Rib::Brisk::ViaSetCollection",
        "Routing::Rib::Ip::GlobalNextHopDependencyGraph"}) {
    const Kel::Ptr<Kel::Entity> e = Cairn::makeEntity(name);
    ASSERT_TRUE(e) << name;
    EXPECT_EQ(std::string(e->typeName()), name);
  }
  // The wrapper comes with an empty map a writer can fill.
  const auto wrapper = Kel::ptrCast<Vrf::VrfIdMap::NameToIdMapWrapper>(
      Cairn::makeEntity("Vrf::VrfIdMap::NameToIdMapWrapper"));
  ASSERT_TRUE(wrapper->nameToIdMap());
  EXPECT_EQ(wrapper->nameToIdMap()->vrfNameToIdSize(), 0u);
  EXPECT_EQ(errorOf([] { Cairn::makeEntity("Ip::Status6"); }),
            "Cairn::makeEntity: unknown entity type 'Ip::Status6'");
}

// Records the paths an entity manager announces.
struct EntityWatch : Cairn::EntityManager::Notifiee {
  std::vector<std::string> paths;
  void onEntity(const Kel::String& p) override { paths.emplace_back(p.view()); }
};

TEST(CairnEntityManager, PublishReplaceDeleteAndTypedReads) {
  auto em = Cairn::entityManagerFactory();
  EXPECT_EQ(std::string(em->typeName()), "Cairn::EntityManager");
  auto watch = Kel::makePtr<EntityWatch>();
  watch->notifierIs(em.ptr());
  auto ip = Kel::makePtr<Ip::Status>();
  em->entityIs("/ip//status", ip);
  em->entityIs("ip/status", ip);  // the same entity: nobody hears
  EXPECT_EQ(em->getEntity("ip/status"), Kel::Ptr<Kel::Entity>(ip));
  EXPECT_EQ(em->getEntity<Ip::Status>("ip/status/"), ip);
  // An entity of another type reads as missing.
  EXPECT_FALSE(em->getEntity<Ip6::Status>("ip/status"));
  EXPECT_FALSE(em->getEntity("ip6/status"));
  em->entityIs("ip/status", Kel::makePtr<Ip::Status>());
  EXPECT_NE(em->getEntity<Ip::Status>("ip/status"), ip);
  EXPECT_EQ(errorOf([&] { em->entityIs("ip6/status", nullptr); }),
            "entityIs: null entity for 'ip6/status'");
  EXPECT_EQ(em->entityCount(), 1u);
  em->entityDel("ip/status");
  em->entityDel("ip/status");
  EXPECT_EQ(em->entityCount(), 0u);
  EXPECT_EQ(watch->paths, (std::vector<std::string>{"ip/status", "ip/status", "ip/status"}));
}

struct CompleteWatch : Cairn::MountGroup::Notifiee {
  explicit CompleteWatch(const Cairn::MountGroup* mg) { notifierIs(mg); }
  int completions = 0;
  bool sawComplete = false;
  void onComplete() override {
    ++completions;
    sawComplete = notifier()->complete();
  }
};

class MountGroupTest : public ::testing::Test {
 protected:
  Kel::VirtualTimeScope time_;
  Kel::ActivityManager& loop_ = Kel::ActivityManager::instance();
  Kel::Ptr<Cairn::EntityManager> em_ = Cairn::entityManagerFactory();
  Kel::Ptr<Cairn::MountGroup> mg_ = Cairn::mountGroupFactory(em_);
  Kel::Ptr<CompleteWatch> watch_ = Kel::makePtr<CompleteWatch>(mg_.ptr());
};

TEST_F(MountGroupTest, CompletesOnALaterTurnOnlyAfterItsLastMount) {
  EXPECT_FALSE(mg_->complete());  // nothing asked yet
  mg_->doMount(Cairn::Mount("vrf/vrfNameStatus", "Vrf::VrfIdMap::NameToIdMapWrapper", "r"));
  Ip::StatusMounter::doMount(mg_, true, true);
  EXPECT_EQ(mg_->mountCount(), 3u);
  EXPECT_EQ(mg_->mount()[1], Cairn::Mount("ip/status", "Ip::Status", "r"));
  EXPECT_EQ(mg_->mount()[2], Cairn::Mount("ip6/status", "Ip6::Status", "r"));
  // Nothing is done within the turn that asked.
  EXPECT_FALSE(mg_->complete());
  EXPECT_EQ(em_->entityCount(), 0u);
  EXPECT_EQ(loop_.runOnce(), 1u);
  EXPECT_TRUE(mg_->complete());
  EXPECT_EQ(watch_->completions, 1);
  EXPECT_TRUE(watch_->sawComplete);
  // Each path now holds the empty entity of its type.
  EXPECT_TRUE(em_->getEntity<Ip::Status>("ip/status"));
  EXPECT_TRUE(em_->getEntity<Ip6::Status>("ip6/status"));
  EXPECT_TRUE(em_->getEntity<Vrf::VrfIdMap::NameToIdMapWrapper>("vrf/vrfNameStatus"));

  // A later request reopens the group until it is done too.
  mg_->doMount(
      Cairn::Mount("routing/rib/loopingRouteStatus", "Routing::Rib::LoopingRouteStatusByVrf", "r"));
  EXPECT_FALSE(mg_->complete());
  EXPECT_EQ(mg_->pendingMountCount(), 1u);
  loop_.runUntilQuiet();
  EXPECT_TRUE(mg_->complete());
  EXPECT_EQ(watch_->completions, 2);
  EXPECT_EQ(mg_->completions(), 2u);
}

TEST_F(MountGroupTest, HeldGroupWaitsAndAMountAskedOnCompletionWaitsForItsTurn) {
  mg_->heldIs(true);
  Ip::StatusMounter::doMount(mg_, true, false);
  loop_.runUntilIdle();
  EXPECT_FALSE(mg_->complete());
  EXPECT_FALSE(em_->getEntity("ip/status"));
  // An agent that asks for more as the group completes: that mount is not
  // done in the same turn.
  struct AskMore : Cairn::MountGroup::Notifiee {
    void onComplete() override {
      if (asked++ == 0) Ip::StatusMounter::doMount(Kel::Ptr<Cairn::MountGroup>(mg), false, true);
    }
    Cairn::MountGroup* mg = nullptr;
    int asked = 0;
  };
  auto more = Kel::makePtr<AskMore>();
  more->mg = mg_.ptr();
  more->notifierIs(mg_.ptr());
  mg_->heldIs(false);
  EXPECT_EQ(loop_.runOnce(), 1u);
  EXPECT_FALSE(mg_->complete());
  EXPECT_FALSE(em_->getEntity("ip6/status"));
  EXPECT_EQ(loop_.runOnce(), 1u);
  EXPECT_TRUE(mg_->complete());
  EXPECT_TRUE(em_->getEntity<Ip6::Status>("ip6/status"));
  EXPECT_EQ(watch_->completions, 2);

  // A reader that asks for more as a path is published: the group is not
  // complete until that request is done too.
  struct AskOnPublish : Cairn::EntityManager::Notifiee {
    void onEntity(const Kel::String& path) override {
      if (path.view() == "vrf/vrfNameStatus") {
        mg->doMount(Cairn::Mount("ip/status", "Ip::Status", "r"));
        mg->doMount(Cairn::Mount("routing/rib/loopingRouteStatus",
                                 "Routing::Rib::LoopingRouteStatusByVrf", "r"));
      }
    }
    Cairn::MountGroup* mg = nullptr;
  };
  auto ask = Kel::makePtr<AskOnPublish>();
  ask->mg = mg_.ptr();
  ask->notifierIs(em_.ptr());
  mg_->doMount(Cairn::Mount("vrf/vrfNameStatus", "Vrf::VrfIdMap::NameToIdMapWrapper", "r"));
  EXPECT_EQ(loop_.runOnce(), 1u);
  EXPECT_FALSE(mg_->complete());
  EXPECT_EQ(watch_->completions, 2);
  loop_.runUntilQuiet();
  EXPECT_TRUE(mg_->complete());
  EXPECT_EQ(watch_->completions, 3);
}

TEST_F(MountGroupTest, RequestsAreCheckedAndAnotherTypeIsLeftAlone) {
  // The writer published something else at ip6/status.
  auto other = Kel::makePtr<Ip::Status>();
  em_->entityIs("ip6/status", other);
  Ip::StatusMounter::doMount(mg_, true, true);
  Ip::StatusMounter::doMount(mg_, true, false);  // the same mount twice is one
  EXPECT_EQ(mg_->mountCount(), 2u);
  EXPECT_EQ(errorOf([] { Cairn::Mount("ip/status", "Ip::Status", "rw"); }),
            "Cairn::Mount: mode 'rw' of 'ip/status' is neither \"r\" nor \"w\"");
  EXPECT_EQ(errorOf([&] { mg_->doMount(Cairn::Mount("/ip/status", "Ip6::Status", "w")); }),
            "MountGroup: 'ip/status' is mounted as Ip::Status, not Ip6::Status");
  EXPECT_EQ(errorOf([&] { mg_->doMount(Cairn::Mount("ip/other", "Ip::Other", "r")); }),
            "Cairn::makeEntity: unknown entity type 'Ip::Other'");
  EXPECT_EQ(mg_->mountCount(), 2u);
  loop_.runUntilQuiet();
  EXPECT_TRUE(mg_->complete());
  EXPECT_EQ(em_->getEntity("ip6/status"), Kel::Ptr<Kel::Entity>(other));
  EXPECT_FALSE(em_->getEntity<Ip6::Status>("ip6/status"));
}

TEST(KelSharedMem, SameContractUnderItsOwnTypeNames) {
  Kel::VirtualTimeScope time;
  auto em = KelSharedMem::entityManagerFactory();
  auto mg = KelSharedMem::mountGroupFactory(em);
  EXPECT_EQ(std::string(em->typeName()), "KelSharedMem::EntityManager");
  EXPECT_EQ(std::string(mg->typeName()), "KelSharedMem::MountGroup");
  mg->doMount(
      Cairn::Mount("routing/rib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf", "r"));
  Kel::ActivityManager::instance().runUntilQuiet();
  EXPECT_TRUE(mg->complete());
  EXPECT_EQ(std::string(em->getEntity("routing/rib/viaMetricStatus")->typeName()),
            "Routing::Rib::ViaMetricStatusByVrf");
  EXPECT_THROW(KelSharedMem::mountGroupFactory(nullptr), Kel::NullArgumentError);
}

}  // namespace
