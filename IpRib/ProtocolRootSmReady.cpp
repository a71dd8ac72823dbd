// RootSm: the readiness handshake after a (re)start. Per VRF, the records in
// the two shared collections; the RIB side's sequence triggers answered once
// both families' reviews are complete; routes marked ready where this root
// may decide it.
#include "IpRib/ProtocolRootSm.h"
#include "IpRib/ProtocolRootSmTrace.h"
#include "Kel/Assert.h"

namespace Routing::Protocol {

void RootSm::doCreateOrDeleteVrfAsuState(const L3::VrfName& vrfName) {
  ROOT_DUALLOG(8, "doCreateOrDeleteVrfAsuState", "doCreateOrDeleteVrfAsuState");
  KEL_ASSERT(allVrfReadyStatus());
  KEL_ASSERT(allVrfRibSeqTrigger());
  if (vrfIdOf(vrfName) == Vrf::VrfIdMap::invalidVrfId) {
    // The message's spelling is kept: readers of older traces search for it.
    ROOT_DUALLOG(8, "Deleting vrfReadyStatus and vrfRiSeqTrigger for vrf: " << vrfName,
                 "Deleting vrfReadyStatus and vrfRiSeqTrigger for vrf: %s", vrfName.value());
    allVrfReadyStatus_->vrfReadyStatusDel(vrfName);
    allVrfRibSeqTrigger_->vrfRibSeqTriggerDel(vrfName);
    return;
  }
  ROOT_DUALLOG(8, "Creating vrfReadyStatus and vrfRibSeqTrigger for vrf: " << vrfName,
               "Creating vrfReadyStatus and vrfRibSeqTrigger for vrf: %s", vrfName.value());
  allVrfReadyStatus_->vrfReadyStatusIs(vrfName);
  allVrfRibSeqTrigger_->vrfRibSeqTriggerIs(vrfName);
}

void RootSm::maybeSetRoutesReady(const L3::VrfName& vrfName) {
  if (!initialized_) return;
  ROOT_DUALLOG(8,
               "maybeSetRoutesReady"
                   << ": Attempting to set routes ready for vrf : " << vrfName,
               "maybeSetRoutesReady: Attempting to set routes ready for vrf : %s", vrfName.value());
  KEL_ASSERT(grState());
  const Kel::Ptr<VrfReadyStatus> status =
      allVrfReadyStatus_ ? allVrfReadyStatus_->vrfReadyStatus(vrfName) : nullptr;
  if (!status) return;
  const bool hasIpv4Intfs = ipv4IntfStatus_ && ipv4IntfStatus_->vrfIpIntfStatus(vrfName);
  const bool hasIpv6Intfs = ipv6IntfStatus_ && ipv6IntfStatus_->vrfIp6IntfStatus(vrfName);
  if (!grState_->gracefulRestart()) {
    ROOT_DUALLOG(9,
                 "maybeSetRoutesReady"
                     << ": Marking both v4 and v6 routes ready",
                 "maybeSetRoutesReady: Marking both v4 and v6 routes ready");
    status->v4RoutesReadyIs(true);
    status->v6RoutesReadyIs(true);
    return;
  }
  if (!grState_->startReadyVerification()) return;
  // A family with interfaces is left to the component that knows them.
  if (!hasIpv6Intfs) {
    ROOT_DUALLOG(9,
                 "maybeSetRoutesReady"
                     << ": Marking v6 routes ready",
                 "maybeSetRoutesReady: Marking v6 routes ready");
    status->v6RoutesReadyIs(true);
  }
  if (!hasIpv4Intfs) {
    ROOT_DUALLOG(9,
                 "maybeSetRoutesReady"
                     << " Marking v4 routes ready",
                 "maybeSetRoutesReady Marking v4 routes ready");
    status->v4RoutesReadyIs(true);
  }
}

void RootSm::handleStartReadyVerification() {
  ROOT_DUALLOG(8, "handleStartReadyVerification", "handleStartReadyVerification");
  const Vrf::VrfIdMap::NameToIdMap* map = nameToIdMap();
  if (!initialized_ || map == nullptr) return;
  for (const auto& entry : map->vrfNameToId()) maybeSetRoutesReady(entry.name);
}

std::pair<Kel::Ptr<VrfReadyStatus>, uint32_t> RootSm::seqTriggerOf(
    const L3::VrfName& vrfName) const {
  const Kel::Ptr<VrfReadyStatus> status =
      allVrfReadyStatus_ ? allVrfReadyStatus_->vrfReadyStatus(vrfName) : nullptr;
  const Kel::Ptr<VrfRibSeqTrigger> trigger =
      allVrfRibSeqTrigger_ ? allVrfRibSeqTrigger_->vrfRibSeqTrigger(vrfName) : nullptr;
  if (!status || !trigger) return {nullptr, 0};
  return {status, trigger->ribReadySeqTrigger()};
}

void RootSm::handleRibSeqTrigger(const L3::VrfName& vrfName) {
  ROOT_DUALLOG(8, "handleRibSeqTrigger", "handleRibSeqTrigger");
  if (!initialized_) return;
  const auto [status, seq] = seqTriggerOf(vrfName);
  if (!status) return;
  if (seq == 0) return;
  ROOT_DUALLOG(8, vrfName << ", ribReadySeqTrigger received : " << seq,
               "%s, ribReadySeqTrigger received : %s", vrfName.value(), seq);
  // A family without a container has nothing to review.
  if (!readyVrfIpv4Has(vrfName)) {
    ROOT_DUALLOG(8, "Mark v4 route review complete ", "Mark v4 route review complete ");
    status->v4RouteReviewCompleteIs(true);
  }
  if (!readyVrfIpv6Has(vrfName)) {
    ROOT_DUALLOG(8, "Mark v6 route review complete ", "Mark v6 route review complete ");
    status->v6RouteReviewCompleteIs(true);
  }
  maybeUpdateRibReadySeqStatus(vrfName);
}

void RootSm::maybeUpdateRibReadySeqStatus(const L3::VrfName& vrfName) {
  ROOT_DUALLOG(8, "maybeUpdateRibReadySeqStatus", "maybeUpdateRibReadySeqStatus");
  if (!initialized_) return;
  const auto [status, seq] = seqTriggerOf(vrfName);
  if (!status) return;
  if (seq == 0 || status->ribReadySeqStatus() == seq) return;
  const bool v4 = status->v4RouteReviewComplete();
  const bool v6 = status->v6RouteReviewComplete();
  ROOT_DUALLOG(8,
               "Attempting to update ribReadySeqStatus for vrf : "
                   << vrfName << " to value : " << seq
                   << ". v4RouteReviewComplete: " << (v4 ? "true" : "false")
                   << ", v6RouteReviewComplete: " << (v6 ? "true" : "false"),
               "Attempting to update ribReadySeqStatus for vrf : %s to value : %s. "
               "v4RouteReviewComplete: %s, v6RouteReviewComplete: %s",
               vrfName.value(), seq, v4, v6);
  if (!v4 || !v6) return;  // the next change of either flag runs this again
  ROOT_DUALLOG(8, "Vrf : " << vrfName << ", ribReadySeqStatus : " << seq,
               "Vrf : %s, ribReadySeqStatus : %s", vrfName.value(), seq);
  status->ribReadySeqStatusIs(seq);
}

}  // namespace Routing::Protocol
