#include "platform/Cairn/detail/MountGroupBase.h"

#include <string>

#include "Kel/Error.h"
#include "Kel/System.h"
#include "platform/Cairn/EntityTypes.h"

namespace Cairn::detail {

class MountGroupBase::KelClock final : public Kel::Clock::Notifiee {
 public:
  KelClock(MountGroupBase* group, const Kel::Ptr<Kel::Clock>& clock) : group_(group) {
    notifierIs(clock.ptr());
  }
  void onTimeMin() override { group_->handleClock(); }
  void doArm() const { notifier()->timeMinIs(Kel::System::currentTime()); }

 private:
  MountGroupBase* group_;
};

MountGroupBase::MountGroupBase(const Kel::Ptr<EntityManagerBase>& em)
    : em_(em),
      kelClock_(Kel::makePtr<KelClock>(this, Kel::ActivityManager::instance().newClock())) {
  if (!em_) throw Kel::NullArgumentError("MountGroup: null entity manager");
}

MountGroupBase::~MountGroupBase() = default;

void MountGroupBase::doMount(const Mount& m) {
  for (const Mount& present : mount_) {
    if (present.path() != m.path()) continue;
    if (present.typeName() == m.typeName()) return;
    throw Kel::RangeError("MountGroup: '" + std::string(m.path().view()) + "' is mounted as " +
                          std::string(present.typeName().view()) + ", not " +
                          std::string(m.typeName().view()));
  }
  entityTypeCheck(m.typeName().view());
  mount_.push_back(m);
  complete_ = false;
  if (!held_) kelClock_->doArm();
}

void MountGroupBase::heldIs(bool held) {
  held_ = held;
  if (!held_ && done_ < mount_.size()) kelClock_->doArm();
}

void MountGroupBase::handleClock() {
  if (held_) return;
  // Publishing notifies readers, who may ask for more mounts: those wait for
  // the next turn, the clock being re-armed by doMount.
  const uint32_t requested = uint32_t(mount_.size());
  while (done_ < requested) {
    const Mount m = mount_[done_++];
    if (!em_->getEntity(m.path().view()))
      em_->entityIs(m.path().view(), makeEntity(m.typeName().view()));
  }
  if (complete_ || done_ != mount_.size()) return;
  complete_ = true;
  ++completions_;
  notify<Notifiee>([](Notifiee* n) { n->onComplete(); });
}

}  // namespace Cairn::detail
