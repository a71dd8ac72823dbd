// The agent's route list: who hears what, in which order, and what it refuses.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kel/Error.h"
#include "platform/Routing/Route/Route.h"

namespace Routing {
namespace {

using Pando::AddressFamily;

constexpr AddressFamily v4 = AddressFamily::ipv4;
const RouteKey p1(Pando::IpGenPrefix("10.1.0.0/16"), 1);

Kel::Ptr<Route> route(const std::string& prefix, RoutePreference pref, const std::string& leakTo) {
  auto r = Kel::makePtr<Route>(RouteKey(Pando::IpGenPrefix(prefix), pref));
  r->leakVrfNameIs(L3::VrfName(leakTo));
  return r;
}

TEST(RouteKeyTest, CanonicalFormReadsBack) {
  EXPECT_EQ(valueToStrep(p1),
            "Value('Routing::RouteKey', ** {'prefix': 10.1.0.0/16, 'preference': 1})");
  EXPECT_EQ(Kel::strepToValue<RouteKey>(valueToStrep(p1)), p1);
  EXPECT_THROW(Kel::strepToValue<RouteKey>(
                   "Value('Routing::RouteKey', ** {'prefix': 10.1.0.0/16, 'preference': 256})"),
               Kel::DeserializationError);
}

TEST(RouteListTest, ARouteLeavesItsListBeforeTheListTells) {
  auto list = routeListFactory(v4);
  std::vector<std::string> heard;
  struct ListWatch : RouteList::Notifiee {
    std::vector<std::string>* heard;
    void onRoute(const Routing::RouteKey&) override { heard->push_back("list"); }
  } listWatch;
  struct RouteWatch : Route::Notifiee {
    std::vector<std::string>* heard;
    void onFiled() override { heard->push_back(notifier()->filed() ? "filed" : "unfiled"); }
  } routeWatch;
  listWatch.heard = routeWatch.heard = &heard;
  listWatch.notifierIs(list.ptr());
  const auto first = route("10.1.0.0/16", 1, "blue");
  list->routeIs(first);
  routeWatch.notifierIs(first.ptr());
  list->routeIs(first);  // already there: nothing
  list->routeIs(route("10.1.0.0/16", 1, "blue"));
  EXPECT_EQ(heard, (std::vector<std::string>{"list", "unfiled", "list"}));
  // A route is filed in one list at a time, of its family; a name is 100 bytes at most.
  EXPECT_THROW(routeListFactory(v4)->routeIs(list->route(p1)), Kel::RangeError);
  EXPECT_THROW(routeListFactory(AddressFamily::ipv6)->routeIs(route("10.2.0.0/16", 1, "")),
               Kel::RangeError);
  EXPECT_THROW(L3::VrfName(std::string(101, 'v')), Kel::RangeError);
  EXPECT_EQ(list->routeSize(), 1u);
  routeWatch.notifierIs(static_cast<const Route*>(nullptr));
}

}  // namespace
}  // namespace Routing
