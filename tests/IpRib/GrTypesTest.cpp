// Restart readiness records.
#include <gtest/gtest.h>

#include "IpRib/ProtocolGrTypes.h"

namespace Routing::Protocol {
namespace {

TEST(GrTypesTest, VrfReadyStatusIsKeepsAnExistingEntry) {
  struct Watcher : AllVrfReadyStatus::Notifiee {
    int calls = 0;
    void onVrfReadyStatus(const L3::VrfName&) override { ++calls; }
  };
  auto all = allVrfReadyStatusFactory();
  auto w = Kel::makePtr<Watcher>();
  w->notifierIs(all.ptr());
  Kel::Ptr<VrfReadyStatus> rs = all->vrfReadyStatusIs(L3::VrfName("red"));
  rs->v6RouteReviewCompleteIs(true);
  rs->ribReadySeqStatusIs(42);
  EXPECT_EQ(all->vrfReadyStatusIs(L3::VrfName("red")), rs);
  EXPECT_TRUE(rs->v6RouteReviewComplete());
  EXPECT_EQ(rs->ribReadySeqStatus(), 42u);
  EXPECT_EQ(w->calls, 1);
  EXPECT_FALSE(all->vrfReadyStatus(L3::VrfName("blue")));
  all->vrfReadyStatusDel(L3::VrfName("red"));
  EXPECT_FALSE(all->vrfReadyStatus(L3::VrfName("red")));
  all->vrfReadyStatusIs(L3::VrfName("a"));
  all->vrfReadyStatusIs(L3::VrfName("b"));
  all->vrfReadyStatusDelAll();
  EXPECT_TRUE(all->vrfReadyStatus().empty());
  EXPECT_EQ(w->calls, 6);
}

TEST(GrTypesTest, SettingTheSameValueNotifiesNobody) {
  struct Watcher : VrfRibSeqTrigger::Notifiee {
    int calls = 0;
    void onRibReadySeqTrigger() override { ++calls; }
  };
  auto all = allVrfRibSeqTriggerFactory();
  Kel::Ptr<VrfRibSeqTrigger> t = all->vrfRibSeqTriggerIs(L3::VrfName("red"));
  auto w = Kel::makePtr<Watcher>();
  w->notifierIs(t.ptr());
  t->ribReadySeqTriggerIs(7);
  t->ribReadySeqTriggerIs(7);
  EXPECT_EQ(w->calls, 1);
  EXPECT_EQ(all->vrfRibSeqTrigger(L3::VrfName("red")), t);
  all->vrfRibSeqTriggerDel(L3::VrfName("red"));
  EXPECT_FALSE(all->vrfRibSeqTrigger(L3::VrfName("red")));
}

TEST(GrTypesTest, AVrfNameLongerThan100BytesIsRefused) {
  EXPECT_NO_THROW(L3::VrfName(Kel::String(std::string(100, 'v'))));
  try {
    vrfReadyStatusFactory(L3::VrfName(Kel::String(std::string(101, 'v'))));
    FAIL() << "no error";
  } catch (const Kel::RangeError& e) {
    EXPECT_STREQ(e.what(), "VrfName::value::bytes > VrfName::maxLength not allowed");
  }
}

}  // namespace
}  // namespace Routing::Protocol
