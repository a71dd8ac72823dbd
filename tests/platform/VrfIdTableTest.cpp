// The shared-memory VRF id table and the corruption reports of its readers:
// fixed name buffers with the invalid-size error a corrupt writer leads to,
// and injected corruption that a reader reports and retries past, on the
// VRF id table and on a walk of an IP via configuration.
//
// VRFs below: "default" (id 0), "red" (7).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Routing/Rib/Ip/ViaConfig.h"
#include "platform/Vigil/CorruptionDetectedException.h"
#include "platform/Vrf/VrfIdMapStatus.h"

namespace {

using Vrf::VrfIdMap::Status;
using Vrf::VrfIdMap::VrfEntry;
using Vrf::VrfIdMap::VrfId;

L3::VrfName vrf(const char* name) { return L3::VrfName(Kel::String(name)); }

// What a reader does: report each corruption to the table and look again.
template <class Table, class Read>
auto readReporting(Table& table, Read read, int& attempts) {
  for (;;) {
    ++attempts;
    try {
      return read();
    } catch (const Vigil::CorruptionDetectedException& e) {
      table.doCorruptionDetected(e.what());
    }
  }
}

TEST(VrfIdTable, EntriesByIdWithTheInvalidEntryForAbsentOnes) {
  auto status = Kel::makePtr<Status>();
  struct Watch : Status::Notifiee {
    std::vector<VrfId> seen;
    void onVrfEntry(VrfId id) override { seen.push_back(id); }
  };
  auto watch = Kel::makePtr<Watch>();
  watch->notifierIs(status.ptr());
  status->vrfEntryIs(0, vrf("default"));
  status->vrfEntryIs(7, vrf("red"));
  status->vrfEntryIs(7, vrf("red"));  // unchanged: nobody hears
  EXPECT_EQ(status->vrfEntry(7).vrfName(), vrf("red"));
  EXPECT_TRUE(status->vrfEntry(0).valid());
  const VrfEntry absent = status->vrfEntry(8);
  EXPECT_FALSE(absent.valid());
  EXPECT_EQ(absent.vrfId(), 0xffffffu);
  EXPECT_EQ(absent.vrfName(), L3::VrfName());
  EXPECT_THROW(status->vrfEntryIs(Vrf::VrfIdMap::invalidVrfId, vrf("x")), Kel::RangeError);
  status->vrfEntryDel(7);
  status->vrfEntryDel(7);
  EXPECT_EQ(watch->seen, (std::vector<VrfId>{0, 7, 7}));
}

TEST(VrfIdTable, AStoredNameLongerThanTheBufferRaisesTheInvalidSizeError) {
  auto status = Kel::makePtr<Status>();
  const std::string longest(100, 'a');
  status->vrfEntryRawIs(7, longest);
  EXPECT_EQ(status->vrfEntry(7).vrfName().value(), longest);

  const std::string tooLong = std::string(100, 'b') + "cdef";
  status->vrfEntryRawIs(7, tooLong);
  const VrfEntry entry = status->vrfEntry(7);
  EXPECT_TRUE(entry.valid());
  EXPECT_EQ(entry.storedSize(), 104u);
  char address[32];
  std::snprintf(address, sizeof address, "%p", entry.buffer());
  try {
    entry.vrfName();
    FAIL() << "no error";
  } catch (const Kel::InvalidSizeError& e) {
    EXPECT_EQ(std::string(e.what()),
              "expected size <= 100, instead got 104. Buffer is at address: " +
                  std::string(address) + " with contents: " + std::string(100, 'b'));
  }
}

TEST(Vigil, ReadersReportCorruptionAndSucceedOnceTheInjectedFaultsAreUsedUp) {
  auto status = Kel::makePtr<Status>();
  status->vrfEntryIs(7, vrf("red"));
  status->corruptionIs(2);
  int attempts = 0;
  const VrfEntry e = readReporting(
      *status, [&] { return status->vrfEntry(7); }, attempts);
  EXPECT_EQ(e.vrfName(), vrf("red"));
  EXPECT_EQ(attempts, 3);
  EXPECT_EQ(status->corruptionsDetected(), 2u);
  EXPECT_EQ(status->lastCorruption(), "corruption detected in Vrf::VrfIdMap::Status");

  // A walk of an IP via configuration: faults come before any via is seen;
  // the look-up of one via is never checked.
  using Routing::Rib::ViaKey;
  auto vias = Kel::makePtr<Routing::Rib::Ip::ViaConfig>();
  for (uint32_t n = 1; n <= 4; ++n) {
    vias->viaIs(ViaKey(1, n % 2 ? 7 : 0, 2, n), Routing::Rib::Via(Pando::IpGenAddr::fromV4(n)));
  }
  vias->corruptionIs(1);
  EXPECT_NE(vias->via(ViaKey(1, 7, 2, 1)), nullptr);
  attempts = 0;
  std::vector<ViaKey> ofRed;
  readReporting(
      *vias,
      [&] {
        ofRed.clear();
        vias->forEachVia([&](const ViaKey& k, const Routing::Rib::Via&) {
          if (k.vrfId() == 7) ofRed.push_back(k);
        });
        return 0;
      },
      attempts);
  EXPECT_EQ(attempts, 2);
  EXPECT_EQ(ofRed.size(), 2u);
  EXPECT_EQ(vias->corruptionsDetected(), 1u);
  EXPECT_EQ(vias->lastCorruption(), "corruption detected in Routing::Rib::Ip::ViaConfig");
}

}  // namespace
