// The shared body of the RIB's via configuration reactors (Ip::ViaConfigSm,
// Evpn::ViaConfigSm): binds to one via record table, counts the record
// writes it hears and keeps the set of present records that break a rule of
// the RIB. `Self::check(config, key, record)` names the rule a record breaks,
// or gives null. A record is traced at level 1 of the concrete reactor's
// facility when it goes bad, not again while it stays bad.
//
// Costs: one look-up, one check and one set update per write heard;
// construction and reviewAll check every record.
#pragma once

#include <cstdint>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Collections.h"
#include "Kel/Duallog.h"
#include "Kel/Ptr.h"
#include "platform/Routing/Rib/ViaKey.h"

namespace Routing::Rib::detail {

template <class Self, class Config>
class ViaConfigSmBase : public Config::Notifiee {
 public:
  const Kel::Ptr<const Config>& config() const { return config_; }
  // Record writes and deletions heard.
  uint64_t viaChanges() const { return viaChanges_; }
  // The present records that break a rule.
  uint32_t invalidViaSize() const { return invalidVia_.size(); }
  bool invalidViaHas(const ViaKey& k) const { return invalidVia_.find(k) != nullptr; }

  void onVia(const ViaKey& k) override {
    ++viaChanges_;
    review(k);
  }

 protected:
  ViaConfigSmBase(const Kel::Ptr<const Config>& config, Kel::TraceFacility& trace)
      : config_(config), trace_(trace) {
    KEL_ASSERT(config);
    this->notifierIs(config_);
    reviewAll();
  }

  // Re-checks every record: a rule changed, or writes went unheard while
  // notification was off.
  void reviewAll() {
    std::vector<ViaKey> known;
    for (const ViaKey& k : invalidVia_) known.push_back(k);
    for (const ViaKey& k : known) review(k);  // drops the gone and the mended
    for (const auto& entry : config_->via()) review(entry.key);
  }

 private:
  void review(const ViaKey& k) {
    const auto* record = config_->via(k);
    const char* broken = record ? Self::check(*config_, k, *record) : nullptr;
    if (broken == nullptr) {
      invalidVia_.erase(k);
      return;
    }
    if (invalidVia_.insert(ViaKey(k)).second) {
      KEL_DUALLOG(trace_, 1, "invalid via " << k << " (" << *record << "): " << broken,
                  "invalid via %s: %s", k, broken);
    }
  }

  Kel::Ptr<const Config> config_;
  Kel::TraceFacility& trace_;
  uint64_t viaChanges_ = 0;
  Kel::HashedSet<ViaKey> invalidVia_;
};

}  // namespace Routing::Rib::detail
