// Routing::Rib::Ip::ViaConfig: the IP via records (next hop, interface,
// label, resolution RIBs, colours) that the RIB's via keys stand for, and
// which RIB ("rib" or "mrib") and transport the table serves.
// See detail/ViaRecordTable.h for the contract and costs of the records.
// `ribString` and `transport` are scalar attributes: setting the value they
// have notifies nobody.
// Decided here: a record is stored under any key it is given; the key's kind
// is not checked against the next hop's family (Ip::ViaConfigSm counts such
// records). A new table serves "rib" and Transport::ipv4 unless told otherwise.
#pragma once

#include <utility>

#include "Kel/String.h"
#include "platform/Routing/Rib/Transport.h"
#include "platform/Routing/Rib/Via.h"
#include "platform/Routing/Rib/detail/ViaRecordTable.h"

namespace Routing::Rib::Ip {

class ViaConfig final : public detail::ViaRecordTable<ViaConfig, Via> {
 public:
  // Every reactor of an Ip::ViaConfig derives from this one.
  class Notifiee : public detail::ViaRecordTable<ViaConfig, Via>::Notifiee {
   public:
    virtual void onRibString() {}
    virtual void onTransport() {}
  };

  explicit ViaConfig(Kel::String ribString = Rib::ribString, Transport transport = Transport::ipv4)
      : ribString_(std::move(ribString)), transport_(transport) {}
  const char* typeName() const override { return "Routing::Rib::Ip::ViaConfig"; }

  const Kel::String& ribString() const { return ribString_; }
  Transport transport() const { return transport_; }
  void ribStringIs(const Kel::String& s) { attributeIs(ribString_, s, &Notifiee::onRibString); }
  void transportIs(Transport t) { attributeIs(transport_, t, &Notifiee::onTransport); }

 private:
  Kel::String ribString_;
  Transport transport_;
};

}  // namespace Routing::Rib::Ip
