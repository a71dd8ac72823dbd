#include "platform/Routing/Bfd/BfdAgentStub.h"

#include <utility>

namespace Routing {

BfdAgentStub::BfdAgentStub(const Kel::Ptr<BfdTrackedStaticRoutesList>& list) {
  notifierIs(list.ptr());
  // No session is known yet, so the entries present only need their reactor.
  for (const Kel::Ptr<BfdTrackedStaticRoutes>& entry : list->route()) {
    kelRoute_.insert(Kel::makePtr<KelRoute>(this, entry.ptr()));
  }
}

void BfdAgentStub::sessionIs(const Pando::IpGenAddr& peer, const Pando::IntfId& intf, bool up,
                             Pando::IntfId resolvedIntf) {
  session_[BfdStatusKey(peer, intf)] = Session{up, std::move(resolvedIntf)};
  applyTo(BfdStatusKey(peer, intf));
  if (!intf.isEmpty()) applyTo(BfdStatusKey(peer, Pando::IntfId()));
}

const BfdAgentStub::Session* BfdAgentStub::session(const Pando::IpGenAddr& peer,
                                                   const Pando::IntfId& intf) const {
  auto it = session_.find(BfdStatusKey(peer, intf));
  return it == session_.end() ? nullptr : &it->second;
}

void BfdAgentStub::onRoute(const BfdStatusKey& k) {
  Kel::Ptr<BfdTrackedStaticRoutes> entry = notifier()->route(k);
  if (!entry) {
    kelRoute_.erase(k);
    return;
  }
  if (kelRoute_.find(k) == nullptr) kelRoute_.insert(Kel::makePtr<KelRoute>(this, entry.ptr()));
  apply(*entry);
}

const BfdAgentStub::Session* BfdAgentStub::sessionFor(const BfdStatusKey& k) const {
  if (!k.intf().isEmpty()) return session(k.addr(), k.intf());
  const Session* first = nullptr;
  for (auto it = session_.lower_bound(k); it != session_.end() && it->first.addr() == k.addr();
       ++it) {
    if (it->second.up) return &it->second;
    if (first == nullptr) first = &it->second;
  }
  return first;
}

void BfdAgentStub::apply(BfdTrackedStaticRoutes& entry) {
  const Session* s = sessionFor(entry.key());
  if (s == nullptr) return;
  if (!(entry.resolvedIntf() == s->resolvedIntf)) {
    ++entryWrites_;
    entry.resolvedIntfIs(s->resolvedIntf);
  }
  if (entry.status() != s->up) {
    ++entryWrites_;
    entry.statusIs(s->up);
  }
}

void BfdAgentStub::applyTo(const BfdStatusKey& k) {
  if (Kel::Ptr<BfdTrackedStaticRoutes> entry = notifier()->route(k)) apply(*entry);
}

}  // namespace Routing
