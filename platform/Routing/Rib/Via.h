// Routing::Rib::Via: one IP via record, what a via key stands for: the next
// hop, the interface, an MPLS label, the RIBs the next hop resolves in, and
// the colours (policy tags) that steer it.
//
// Resolution RIBs sit in a fixed inline array of 3; colours, up to 1024, in
// a vector, since 1024 inline words would make every Via 4 KB. The setters
// copy what they are given and refuse a longer list with
// Kel::InvalidSizeError, leaving the via unchanged.
// Decided here: a label above 0xFFFFF means no label; noLabel is the default.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <utility>
#include <vector>

#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Routing/Rib/Transport.h"

namespace Routing::Rib {

class Via {
 public:
  static constexpr uint32_t noLabel = 0x100000;
  static constexpr uint32_t maxLabel = 0xFFFFF;
  static constexpr size_t maxResolutionRibs = 3;
  static constexpr size_t maxColours = 1024;

  Via() = default;
  Via(Pando::IpGenAddr nextHop, Pando::IntfId intf = {}, uint32_t label = noLabel)
      : nextHop_(nextHop), intf_(std::move(intf)), label_(label) {}

  const Pando::IpGenAddr& nextHop() const { return nextHop_; }
  const Pando::IntfId& intf() const { return intf_; }
  uint32_t label() const { return label_; }
  bool isLabelled() const { return label_ <= maxLabel; }
  std::span<const RibType> resolutionRib() const {
    return {resolutionRib_.data(), resolutionRibs_};
  }
  const std::vector<uint32_t>& colour() const { return colour_; }

  void nextHopIs(const Pando::IpGenAddr& a) { nextHop_ = a; }
  void intfIs(const Pando::IntfId& i) { intf_ = i; }
  void labelIs(uint32_t l) { label_ = l; }
  // Both raise Kel::InvalidSizeError past their maximum.
  void resolutionRibIs(std::span<const RibType> ribs);
  void colourIs(std::span<const uint32_t> colours);

  friend bool operator==(const Via& a, const Via& b);

 private:
  Pando::IpGenAddr nextHop_;
  Pando::IntfId intf_;
  uint32_t label_ = noLabel;
  uint8_t resolutionRibs_ = 0;
  std::array<RibType, maxResolutionRibs> resolutionRib_{};
  std::vector<uint32_t> colour_;
};

// "10.0.0.1 intf Ethernet1 label 16 resolutionRib rib,mrib colour 5,7"; the
// interface, label, RIBs and colours only when present.
std::ostream& operator<<(std::ostream& os, const Via& v);

}  // namespace Routing::Rib
