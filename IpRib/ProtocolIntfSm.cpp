#include "IpRib/ProtocolIntfSm.h"

#include <string>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/Error.h"
#include "Kel/Trace.h"

namespace Routing::Protocol {

namespace {
Kel::TraceFacility trace("IpRib::IntfSm");
}  // namespace

// ------------------------------------------------------------ families

// What differs between IPv4 and IPv6: the platform types, how to read the
// VRF's interface set, the mutator named in the null-argument error, and the
// members that hold the reactors.
struct IntfSm::Ipv4 {
  using VrfStatus = Ip::VrfIpIntfStatus;
  using Entry = Ip::IpIntfStatus;
  using KelStatus = KelIpv4Status;
  using KelIntfStatus = KelIpv4IntfStatus;
  static constexpr const char* intfStatusIsName = "ipv4IntfStatusIs";
  static Kel::Ptr<Entry> entry(const VrfStatus& s, const Pando::IntfId& i) {
    return s.ipIntfStatus(i);
  }
  static const VrfStatus::Map& entries(const VrfStatus& s) { return s.ipIntfStatus(); }
  static constexpr auto kelStatus = &IntfSm::kelIpv4Status_;
  static constexpr auto kelIntfStatus = &IntfSm::kelIpv4IntfStatus_;
};

struct IntfSm::Ipv6 {
  using VrfStatus = Ip6::VrfIp6IntfStatus;
  using Entry = Ip6::IntfStatus;
  using KelStatus = KelIpv6Status;
  using KelIntfStatus = KelIpv6IntfStatus;
  static constexpr const char* intfStatusIsName = "ipv6IntfStatusIs";
  static Kel::Ptr<Entry> entry(const VrfStatus& s, const Pando::IntfId& i) {
    return s.ip6IntfStatus(i);
  }
  static const VrfStatus::Map& entries(const VrfStatus& s) { return s.ip6IntfStatus(); }
  static constexpr auto kelStatus = &IntfSm::kelIpv6Status_;
  static constexpr auto kelIntfStatus = &IntfSm::kelIpv6IntfStatus_;
};

// ------------------------------------------------------------ nested reactors

// On the VRF's interface set: every element change is one handleIntfStatus,
// then the per-interface reactor follows the set.
template <class F>
class IntfSm::KelStatusBase : public F::VrfStatus::Notifiee {
 public:
  KelStatusBase(IntfSm* sm, const typename F::VrfStatus* status) : sm_(sm) {
    this->notifierIs(status);
  }

 protected:
  void handleEntry(const Pando::IntfId& intfId) {
    // A reader woken by the counter may drop the IntfSm or point it at
    // another set, which drops this reactor: keep what the rest needs.
    const Kel::Ptr<IntfSm> sm(sm_);
    const Kel::Ptr<const typename F::VrfStatus> status(this->notifier());
    sm->handleIntfStatus(intfId);
    if (sm->status<F>() != status.ptr()) return;
    if (Kel::Ptr<const typename F::Entry> e = F::entry(*status, intfId)) {
      sm->intfStatusIs<F>(e);
    } else {
      (sm.ptr()->*F::kelIntfStatus).erase(intfId);
    }
  }

 private:
  IntfSm* sm_;
};

class IntfSm::KelIpv4Status final : public KelStatusBase<Ipv4> {
 public:
  using KelStatusBase::KelStatusBase;
  void onIpIntfStatus(const Pando::IntfId& intfId) override { handleEntry(intfId); }
};

class IntfSm::KelIpv6Status final : public KelStatusBase<Ipv6> {
 public:
  using KelStatusBase::KelStatusBase;
  void onIp6IntfStatus(const Pando::IntfId& intfId) override { handleEntry(intfId); }
};

// On one interface: only dpRoutingEnabled matters. The reactor holds its
// entry, so the entry's interface id is always there to report.
template <class F>
class IntfSm::KelIntfStatusBase : public F::Entry::Notifiee {
 public:
  KelIntfStatusBase(IntfSm* sm, const typename F::Entry* entry) : sm_(sm) {
    this->notifierIs(entry);
  }
  const Pando::IntfId& key() const { return this->notifier()->intfId(); }
  void onDpRoutingEnabled() override { sm_->handleIntfStatus(key()); }

 private:
  IntfSm* sm_;
};

class IntfSm::KelIpv4IntfStatus final : public KelIntfStatusBase<Ipv4> {
 public:
  using KelIntfStatusBase::KelIntfStatusBase;
};

class IntfSm::KelIpv6IntfStatus final : public KelIntfStatusBase<Ipv6> {
 public:
  using KelIntfStatusBase::KelIntfStatusBase;
};

// ------------------------------------------------------------ construction

IntfSm::IntfSm(const Kel::Ptr<IntfStatus>& intfStatus)
    : intfStatus_(intfStatus),
      kelIpv4Status_(this),
      kelIpv6Status_(this),
      kelIpv4IntfStatus_(this),
      kelIpv6IntfStatus_(this) {
  handleInitialized();
}

IntfSm::~IntfSm() = default;

Kel::Ptr<IntfSm> IntfSm::IntfSmIs(const Kel::Ptr<IntfStatus>& intfStatus) {
  return Kel::makePtr<IntfSm>(intfStatus);
}

Kel::Ptr<IntfSm> intfSmFactory(const Kel::Ptr<IntfStatus>& intfStatus) {
  return IntfSm::IntfSmIs(intfStatus);
}

void IntfSm::handleInitialized() {
  KEL_TRACE(trace, 8, "handleInitialized");
  initialized_ = true;
  if (auto* v4 = dynamic_cast<Ipv4IntfStatus*>(intfStatus_.ptr())) {
    KEL_TRACE(trace, 9,
              "handleInitialized"
                  << "(IPv4)");
    ipv4StatusIs(v4->status());
  } else if (auto* v6 = dynamic_cast<Ipv6IntfStatus*>(intfStatus_.ptr())) {
    KEL_TRACE(trace, 9,
              "handleInitialized"
                  << "(IPv6)");
    ipv6StatusIs(v6->status());
  } else {
    KEL_ASSERT(0 && "A derived type of IntfStatus must be supplied as a constructor arg");
  }
}

void IntfSm::handleIntfStatus(const Pando::IntfId& intfId) {
  KEL_TRACE(trace, 8,
            "handleIntfStatus"
                << "(" << intfId << ")");
  intfStatus_->intfStatusChangedInc(1);
}

// ------------------------------------------------------------ shared mutators

template <class F>
void IntfSm::statusIs(const Kel::Ptr<const typename F::VrfStatus>& status) {
  if (!status) {
    statusDel<F>();
    return;
  }
  auto& kelStatus = this->*F::kelStatus;
  if (kelStatus && kelStatus->notifier() == status.ptr()) return;
  kelStatus.reactorIs(Kel::makePtr<typename F::KelStatus>(this, status.ptr()));
  // Resynchronise: follow every interface present, then forget the others.
  for (const auto& entry : F::entries(*status)) intfStatusIs<F>(entry);
  auto& reactors = this->*F::kelIntfStatus;
  std::vector<Pando::IntfId> gone;
  for (const auto& r : reactors) {
    if (!F::entry(*status, r->key())) gone.push_back(r->key());
  }
  for (const Pando::IntfId& intfId : gone) reactors.erase(intfId);
}

template <class F>
void IntfSm::statusDel() {
  (this->*F::kelStatus).reactorIs(nullptr);
  (this->*F::kelIntfStatus).clear();
}

template <class F>
const typename F::VrfStatus* IntfSm::status() const {
  const auto& kelStatus = this->*F::kelStatus;
  return kelStatus ? kelStatus->notifier() : nullptr;
}

template <class F>
void IntfSm::intfStatusIs(const Kel::Ptr<const typename F::Entry>& entry) {
  if (!entry) {
    throw Kel::NullArgumentError(std::string(typeName()) + "::" + F::intfStatusIsName +
                                 ": null argument");
  }
  auto& reactors = this->*F::kelIntfStatus;
  const auto* present = reactors.find(entry->intfId());
  if (present && present->notifier() == entry.ptr()) return;
  reactors.replace(Kel::makePtr<typename F::KelIntfStatus>(this, entry.ptr()));
}

template <class F>
const typename F::Entry* IntfSm::intfStatusOf(const Pando::IntfId& intfId) const {
  const auto* r = (this->*F::kelIntfStatus).find(intfId);
  return r ? r->notifier() : nullptr;
}

// ------------------------------------------------------------ IPv4

const Ip::VrfIpIntfStatus* IntfSm::ipv4Status() const { return status<Ipv4>(); }

void IntfSm::ipv4StatusIs(const Kel::Ptr<const Ip::VrfIpIntfStatus>& vrfIpIntfStatus) {
  statusIs<Ipv4>(vrfIpIntfStatus);
}

void IntfSm::ipv4StatusDel() { statusDel<Ipv4>(); }

const Ip::IpIntfStatus* IntfSm::ipv4IntfStatus(const Pando::IntfId& intfId) const {
  return intfStatusOf<Ipv4>(intfId);
}

uint32_t IntfSm::ipv4IntfStatusSize() const { return kelIpv4IntfStatus_.size(); }

void IntfSm::ipv4IntfStatusIs(const Kel::Ptr<const Ip::IpIntfStatus>& ipIntfStatus) {
  intfStatusIs<Ipv4>(ipIntfStatus);
}

void IntfSm::ipv4IntfStatusDel(const Pando::IntfId& intfId) { kelIpv4IntfStatus_.erase(intfId); }

void IntfSm::ipv4IntfStatusDelAll() { kelIpv4IntfStatus_.clear(); }

// ------------------------------------------------------------ IPv6

const Ip6::VrfIp6IntfStatus* IntfSm::ipv6Status() const { return status<Ipv6>(); }

void IntfSm::ipv6StatusIs(const Kel::Ptr<const Ip6::VrfIp6IntfStatus>& vrfIp6IntfStatus) {
  statusIs<Ipv6>(vrfIp6IntfStatus);
}

void IntfSm::ipv6StatusDel() { statusDel<Ipv6>(); }

const Ip6::IntfStatus* IntfSm::ipv6IntfStatus(const Pando::IntfId& intfId) const {
  return intfStatusOf<Ipv6>(intfId);
}

uint32_t IntfSm::ipv6IntfStatusSize() const { return kelIpv6IntfStatus_.size(); }

void IntfSm::ipv6IntfStatusIs(const Kel::Ptr<const Ip6::IntfStatus>& ip6IntfStatus) {
  intfStatusIs<Ipv6>(ip6IntfStatus);
}

void IntfSm::ipv6IntfStatusDel(const Pando::IntfId& intfId) { kelIpv6IntfStatus_.erase(intfId); }

void IntfSm::ipv6IntfStatusDelAll() { kelIpv6IntfStatus_.clear(); }

}  // namespace Routing::Protocol
