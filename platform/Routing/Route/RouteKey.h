// Routing::RouteKey: the identity of one route of an agent in one VRF and
// address family, its prefix and its route preference. Static routes are
// configured per (prefix, preference), so two routes of one prefix at
// different preferences are two routes; BFD tracking files its requests
// under the same key.
//
// A small value: ==, < (prefix, then preference) and hash(seed) are inline
// and cost a few cycles. Canonical form and its parse:
//   Value('Routing::RouteKey', ** {'prefix': 10.1.0.0/24, 'preference': 1})
// operator<< prints the short form "10.1.0.0/24 pref 1" that traces use.
// Decided here: the default key is the empty prefix at preference 0.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Kel/Hash.h"
#include "Kel/Strep.h"
#include "platform/Pando/IpGenPrefix.h"
#include "platform/Routing/RouteTypes.h"

namespace Routing {

class RouteKey {
 public:
  RouteKey() = default;
  RouteKey(const Pando::IpGenPrefix& prefix, RoutePreference preference)
      : prefix_(prefix), preference_(preference) {}
  RouteKey(Kel::StrepIt& it, Kel::StrepIt end);

  const Pando::IpGenPrefix& prefix() const { return prefix_; }
  RoutePreference preference() const { return preference_; }

  uint32_t hash(uint32_t seed) const {
    return Kel::Hasher(seed).add(prefix_.hash()).add(preference_).result();
  }
  friend bool operator==(const RouteKey& a, const RouteKey& b) {
    return a.prefix_ == b.prefix_ && a.preference_ == b.preference_;
  }
  friend bool operator<(const RouteKey& a, const RouteKey& b) {
    if (!(a.prefix_ == b.prefix_)) return a.prefix_ < b.prefix_;
    return a.preference_ < b.preference_;
  }

 private:
  Pando::IpGenPrefix prefix_;
  RoutePreference preference_ = 0;
};

std::string valueToStrep(const RouteKey& k);
// "10.1.0.0/24 pref 1".
std::ostream& operator<<(std::ostream& os, const RouteKey& k);

}  // namespace Routing
