// KelBrisk::MountInfo: how a mapper maps a shared-memory table: its table
// type and the capacity of each of its collections.
//
// Table types: 0, a configuration table this agent writes and owns (it
// leaves the database with its last mapper); 2, the RIB's next-hop
// dependency graph, read; 3, the VRF id map, read. Types 2 and 3 belong to
// their writer and stay.
// Decided here: any other table type is a Kel::RangeError naming it, raised
// on construction. A collection given twice keeps its last capacity, at its
// first place.
#pragma once

#include <cstdint>
#include <vector>

#include "Kel/String.h"

namespace KelBrisk {

class MountInfo {
 public:
  static constexpr uint32_t configTable = 0;
  static constexpr uint32_t nextHopGraphTable = 2;
  static constexpr uint32_t vrfIdMapTable = 3;

  struct CollectionInfo {
    Kel::String name;
    uint32_t capacity;
    friend bool operator==(const CollectionInfo&, const CollectionInfo&) = default;
  };

  explicit MountInfo(uint32_t tableType);

  uint32_t tableType() const { return tableType_; }
  // Whether the table belongs to this agent, leaving with its last mapper.
  bool ownedTable() const { return tableType_ == configTable; }
  void collectionInfoIs(const Kel::String& collectionName, uint32_t capacity);
  // In the order first given.
  const std::vector<CollectionInfo>& collectionInfo() const { return collectionInfo_; }
  // Null when absent.
  const CollectionInfo* collectionInfo(const Kel::String& collectionName) const;

 private:
  uint32_t tableType_;
  std::vector<CollectionInfo> collectionInfo_;
};

}  // namespace KelBrisk
