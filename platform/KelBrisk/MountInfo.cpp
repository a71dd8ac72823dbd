#include "platform/KelBrisk/MountInfo.h"

#include <string>

#include "Kel/Error.h"

namespace KelBrisk {

MountInfo::MountInfo(uint32_t tableType) : tableType_(tableType) {
  if (tableType != configTable && tableType != nextHopGraphTable && tableType != vrfIdMapTable) {
    throw Kel::RangeError("KelBrisk::MountInfo: unknown table type " + std::to_string(tableType));
  }
}

void MountInfo::collectionInfoIs(const Kel::String& collectionName, uint32_t capacity) {
  for (CollectionInfo& info : collectionInfo_) {
    if (info.name == collectionName) {
      info.capacity = capacity;
      return;
    }
  }
  collectionInfo_.push_back({collectionName, capacity});
}

const MountInfo::CollectionInfo* MountInfo::collectionInfo(
    const Kel::String& collectionName) const {
  for (const CollectionInfo& info : collectionInfo_) {
    if (info.name == collectionName) return &info;
  }
  return nullptr;
}

}  // namespace KelBrisk
