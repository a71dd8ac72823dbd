// The body of a mount group, shared by the state database
// (Cairn::MountGroup) and the shared-memory table service
// (KelSharedMem::MountGroup), which differ in their type names only.
//
// A mount group gathers an agent's mount requests and tells it when they are
// all done: doMount files a request at once; the requests are done on a
// later turn of the event loop (a Kel::Clock armed for now), and `complete`
// then becomes true, notifying onComplete. A request made after completion
// makes `complete` false again (notifying nobody) until that request is done
// too. An agent watches onComplete, then reads its entities.
// A done mount of a path that holds no entity makes the type's empty entity
// (Cairn::makeEntity) and publishes it, as a database brings a local copy of
// a path into being; a path holding an entity of another type is left as it
// is (typed readers see it as missing).
// Costs: doMount is O(mounts of the group), the group being small.
// Decided here: a group with no request is not complete. The same path and
// type asked again is one mount (its first mode stays); the same path with
// another type is a Kel::RangeError naming path and both types, and an
// unknown type name is the registry's Kel::RangeError, both changing
// nothing. Test hooks: held groups finish no mount until released.
#pragma once

#include <cstdint>
#include <vector>

#include "Kel/Clock.h"
#include "Kel/Entity.h"
#include "Kel/Ptr.h"
#include "platform/Cairn/Mount.h"
#include "platform/Cairn/detail/EntityManagerBase.h"

namespace Cairn::detail {

class MountGroupBase : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<MountGroupBase> {
   public:
    virtual void onComplete() {}
  };
  ~MountGroupBase() override;

  void doMount(const Mount& m);
  bool complete() const { return complete_; }
  uint32_t mountCount() const { return uint32_t(mount_.size()); }
  // The requests in request order.
  const std::vector<Mount>& mount() const { return mount_; }
  // Requests not done yet.
  uint32_t pendingMountCount() const { return uint32_t(mount_.size()) - done_; }
  // Times `complete` became true.
  uint64_t completions() const { return completions_; }

  // Test hook: while held, no request is done (a slow database).
  void heldIs(bool held);
  bool held() const { return held_; }

 protected:
  explicit MountGroupBase(const Kel::Ptr<EntityManagerBase>& em);

 private:
  class KelClock;
  void handleClock();

  Kel::Ptr<EntityManagerBase> em_;
  std::vector<Mount> mount_;
  uint32_t done_ = 0;  // requests [0, done_) are done
  bool complete_ = false;
  bool held_ = false;
  uint64_t completions_ = 0;
  Kel::Ptr<KelClock> kelClock_;
};

}  // namespace Cairn::detail
