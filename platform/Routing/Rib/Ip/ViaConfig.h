// Routing::Rib::Ip::ViaConfig: the IP via records (next hop, interface,
// label, resolution RIBs, colours) that the RIB's via keys stand for, which
// RIB ("rib" or "mrib") and transport the table serves, and the routing
// protocol that writes it.
// See detail/ViaRecordTable.h for the contract, costs and capacity.
// `ribString`, `transport` and `rp` are scalar attributes: setting the value
// they have notifies nobody.
// A walk of the table (forEachVia) may meet a corrupt record
// (Vigil::CorruptionDetectedException, before any record is visited): the
// reader reports it through doCorruptionDetected and walks again; see
// Vigil/CorruptionMonitor.h. The look-up via(key) is not checked.
// Decided here: a record is stored under any key it is given; the key's kind
// is not checked against the next hop's family (Ip::ViaConfigSm counts such
// records). A new table serves "rib" and Transport::ipv4 unless told otherwise.
// The dump is a header line "Routing::Rib::Ip::ViaConfig <rib> transport <n>
// rp <n> vias <n>" at the indent and one line "<key> <via>" per record at
// indent + 2, in hash order.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "Kel/Ptr.h"
#include "Kel/String.h"
#include "platform/Quay/DumpContext.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/detail/ViaRecordTable.h"
#include "platform/Vigil/CorruptionMonitor.h"

namespace Routing::Rib::Ip {

class ViaConfig final : public detail::ViaRecordTable<ViaConfig, Via> {
 public:
  // Every reactor of an Ip::ViaConfig derives from this one.
  class Notifiee : public detail::ViaRecordTable<ViaConfig, Via>::Notifiee {
   public:
    virtual void onRibString() {}
  };

  explicit ViaConfig(Kel::String ribString = Rib::ribString, Transport transport = Transport::ipv4)
      : ViaRecordTable("Routing::Rib::Ip::ViaConfig", transport),
        ribString_(std::move(ribString)) {}
  const char* typeName() const override { return "Routing::Rib::Ip::ViaConfig"; }

  const Kel::String& ribString() const { return ribString_; }
  void ribStringIs(const Kel::String& s) { attributeIs(ribString_, s, &Notifiee::onRibString); }

  // Calls f(key, via) for every record in hash order; may raise
  // Vigil::CorruptionDetectedException first. `f` must not write the table.
  template <class F>
  void forEachVia(F&& f) const {
    monitor_.check(typeName());
    for (const Entry& e : via()) f(e.key, e.via);
  }
  void doCorruptionDetected(const std::string& message) const {
    monitor_.doCorruptionDetected(message);
  }
  uint32_t corruptionsDetected() const { return monitor_.corruptionsDetected(); }
  const std::string& lastCorruption() const { return monitor_.lastMessage(); }
  // Test hook: the next `walks` walks raise.
  void corruptionIs(uint32_t walks) { monitor_.corruptionIs(walks); }

  void dumpState(const Kel::Ptr<const Quay::DumpContext>& dumpCtx, uint32_t indent) const;

 private:
  Kel::String ribString_;
  Vigil::CorruptionMonitor monitor_;
};

}  // namespace Routing::Rib::Ip
