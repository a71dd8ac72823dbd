// Vrf::VrfIdMap::VrfEntry: one record of the shared-memory VRF id table: a
// VRF id and its name in a fixed buffer, as a shared-memory record keeps it.
//
// A plain value of 108 bytes. The invalid entry (id 0xffffff, empty name)
// stands for an absent one. vrfName() checks the stored size against the
// buffer, so a record written by a corrupt writer is caught where it is read.
// Decided here: the buffer holds the 100 bytes of the longest name and no
// terminator, the size being stored beside it; a stored size past the buffer
// keeps the bytes that fit. Reading such a name raises Kel::InvalidSizeError
// "expected size <= 100, instead got <size>. Buffer is at address: <address,
// as %p prints it> with contents: <the buffer's bytes>".
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/L3/VrfName.h"
#include "platform/Vrf/VrfId.h"

namespace Vrf::VrfIdMap {

class VrfEntry {
 public:
  static constexpr uint32_t bufferSize = uint32_t(L3::VrfName::maxLength);

  VrfEntry() = default;
  VrfEntry(VrfId id, const L3::VrfName& name) : VrfEntry(id, name.value()) {}
  // Stores `storedName` without checking it, as a corrupt writer would.
  static VrfEntry raw(VrfId id, std::string_view storedName) { return VrfEntry(id, storedName); }

  VrfId vrfId() const { return vrfId_; }
  bool valid() const { return vrfId_ != invalidVrfId; }
  // Raises Kel::InvalidSizeError when the stored size exceeds the buffer.
  L3::VrfName vrfName() const;
  uint32_t storedSize() const { return size_; }
  // Where the name's bytes are (the invalid-size error prints it).
  const void* buffer() const { return name_; }

  friend bool operator==(const VrfEntry& a, const VrfEntry& b) {
    return a.vrfId_ == b.vrfId_ && a.size_ == b.size_ && a.stored() == b.stored();
  }

 private:
  VrfEntry(VrfId id, std::string_view storedName);
  std::string_view stored() const { return {name_, size_ < bufferSize ? size_ : bufferSize}; }

  VrfId vrfId_ = invalidVrfId;
  uint32_t size_ = 0;
  char name_[bufferSize] = {};
};

}  // namespace Vrf::VrfIdMap
