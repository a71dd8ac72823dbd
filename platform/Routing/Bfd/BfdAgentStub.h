// BfdAgentStub stands in for the agent that runs BFD sessions: it records the
// state of each session it is told about and writes it into the matching
// entries of a BFD tracking list, including entries created later.
//
// A session is (peer, interface). It matches the entry of the same key and,
// when it has an interface, also the entry of its peer with no interface
// (a next hop that is not link-local is tracked by address alone). Such an
// entry takes the first up session of its peer in interface order, else the
// first session.
// Decided here: the agent owns the state of the entries of the sessions it
// knows. Any other write to their `status` or `resolvedIntf` (the route side
// starts every new entry down) is answered at once with the session's state.
// `resolvedIntf` is written before `status`, so a reactor woken by `status`
// already sees where the session runs. Entries of unknown sessions are never
// touched: they stay down.
// Cost: a session change is a few map look-ups; one nested reactor per entry.
#pragma once

#include <cstdint>
#include <map>

#include "Kel/NestedReactors.h"
#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Routing/Bfd/BfdTrackedStaticRoutes.h"

namespace Routing {

class BfdAgentStub final : public BfdTrackedStaticRoutesList::Notifiee {
 public:
  struct Session {
    bool up = false;
    Pando::IntfId resolvedIntf;
  };

  explicit BfdAgentStub(const Kel::Ptr<BfdTrackedStaticRoutesList>& list);

  // Records the session's state and writes it into every matching entry.
  void sessionIs(const Pando::IpGenAddr& peer, const Pando::IntfId& intf, bool up,
                 Pando::IntfId resolvedIntf);
  // The recorded state of a session; null when unknown.
  const Session* session(const Pando::IpGenAddr& peer, const Pando::IntfId& intf) const;
  uint32_t sessionSize() const { return uint32_t(session_.size()); }
  // Writes that changed an entry, for tests.
  uint64_t entryWrites() const { return entryWrites_; }

  void onRoute(const BfdStatusKey& k) override;

 private:
  // Answers writes to one entry of a known session.
  class KelRoute final : public BfdTrackedStaticRoutes::Notifiee {
   public:
    KelRoute(BfdAgentStub* stub, BfdTrackedStaticRoutes* entry) : stub_(stub) { notifierIs(entry); }
    const BfdStatusKey& key() const { return notifier()->key(); }
    void onStatus() override { stub_->apply(*notifier()); }
    void onResolvedIntf() override { stub_->apply(*notifier()); }

   private:
    BfdAgentStub* stub_;
  };

  // The session whose state the entry keyed `k` takes; null when none.
  const Session* sessionFor(const BfdStatusKey& k) const;
  void apply(BfdTrackedStaticRoutes& entry);
  void applyTo(const BfdStatusKey& k);

  std::map<BfdStatusKey, Session> session_;
  Kel::NestedReactors<BfdStatusKey, KelRoute> kelRoute_{this};
  uint64_t entryWrites_ = 0;
};

}  // namespace Routing
