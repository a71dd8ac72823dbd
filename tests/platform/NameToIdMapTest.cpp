// The VRF name-to-id map: renumbering, unique ids, and who hears what.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Vrf/NameToIdMap.h"

namespace Vrf::VrfIdMap {
namespace {

struct Watch : NameToIdMap::Notifiee {
  void onVrfNameToId(const L3::VrfName& n) override { heard.emplace_back(n.value()); }
  std::vector<std::string> heard;
};

TEST(NameToIdMapTest, NamesAreRenumberedAndIdsStayUnique) {
  auto map = Kel::makePtr<NameToIdMap>();
  Watch watch;
  watch.notifierIs(map.ptr());
  const L3::VrfName red("red"), blue("blue");
  EXPECT_EQ(map->vrfNameToId(red), invalidVrfId);
  map->vrfNameToIdIs(red, 5);
  map->vrfNameToIdIs(red, 5);  // same id: nobody hears
  EXPECT_EQ(watch.heard, std::vector<std::string>{"red"});
  EXPECT_THROW(map->vrfNameToIdIs(blue, 5), Kel::RangeError);
  EXPECT_THROW(map->vrfNameToIdIs(blue, invalidVrfId), Kel::RangeError);
  EXPECT_FALSE(map->vrfNameToIdHas(blue));
  map->vrfNameToIdIs(red, 6);  // renumbered: 5 is free again
  map->vrfNameToIdIs(blue, 5);
  EXPECT_EQ(*map->vrfName(5), blue);
  EXPECT_EQ(*map->vrfName(6), red);
  map->vrfNameToIdDelAll();
  EXPECT_EQ(map->vrfNameToIdSize(), 0u);
  EXPECT_EQ(map->vrfName(6), nullptr);
  EXPECT_EQ(watch.heard.size(), 5u);
}

}  // namespace
}  // namespace Vrf::VrfIdMap
