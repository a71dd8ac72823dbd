// KelBrisk::Table: what a shared-memory table offers its mappers besides its
// own entity interface: the capacity of each named collection, fixed when a
// mapper applies its mount info, and cleanup, which empties the table.
//
// Implemented by the tables that take a capacity (route, via and via-set
// configuration, the VRF id map). A table keeps what it holds when its
// capacity drops below its size; it only refuses new elements.
// Decided here: the texts of the two errors a table raises, built here so
// that every table words them alike: "<Table>::<collection> capacity
// exceeded" and "<table type name> has no collection '<name>'".
#pragma once

#include <cstdint>
#include <string_view>

namespace KelBrisk {

[[noreturn]] void throwCapacityExceeded(std::string_view table, std::string_view collection);
[[noreturn]] void throwNoCollection(std::string_view tableType, std::string_view collection);

class Table {
 public:
  virtual bool collectionHas(std::string_view collection) const = 0;
  // An unknown collection is a Kel::RangeError naming table and collection.
  virtual void collectionCapacityIs(std::string_view collection, uint32_t capacity) = 0;
  // Removes every element, notifying each as it goes.
  virtual void cleanup() = 0;

 protected:
  ~Table() = default;
};

// A table with one collection whose capacity limits its distinct keys.
class SingleCollectionTable : public Table {
 public:
  static constexpr uint32_t unlimited = UINT32_MAX;

  uint32_t capacity() const { return capacity_; }
  void capacityIs(uint32_t capacity) { capacity_ = capacity; }
  bool collectionHas(std::string_view collection) const override {
    return collection == collection_;
  }
  void collectionCapacityIs(std::string_view collection, uint32_t capacity) override;

 protected:
  // `tableType` names the table in errors about collections, `table` in
  // capacity errors: SingleCollectionTable("Routing::Rib::RouteConfig",
  // "RouteConfig", "route").
  SingleCollectionTable(const char* tableType, const char* table, const char* collection,
                        uint32_t capacity = unlimited)
      : tableType_(tableType), table_(table), collection_(collection), capacity_(capacity) {}
  ~SingleCollectionTable() = default;
  // Raises the capacity error when a table of `size` keys is full.
  void checkRoom(uint32_t size) const {
    if (size >= capacity_) throwCapacityExceeded(table_, collection_);
  }

 private:
  const char* tableType_;
  const char* table_;
  const char* collection_;
  uint32_t capacity_;
};

}  // namespace KelBrisk
