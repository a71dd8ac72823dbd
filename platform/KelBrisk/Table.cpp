#include "platform/KelBrisk/Table.h"

#include <string>

#include "Kel/Error.h"

namespace KelBrisk {

void throwCapacityExceeded(std::string_view table, std::string_view collection) {
  throw Kel::RangeError(std::string(table) + "::" + std::string(collection) + " capacity exceeded");
}

void throwNoCollection(std::string_view tableType, std::string_view collection) {
  throw Kel::RangeError(std::string(tableType) + " has no collection '" + std::string(collection) +
                        "'");
}

void SingleCollectionTable::collectionCapacityIs(std::string_view collection, uint32_t capacity) {
  if (!collectionHas(collection)) throwNoCollection(tableType_, collection);
  capacity_ = capacity;
}

}  // namespace KelBrisk
