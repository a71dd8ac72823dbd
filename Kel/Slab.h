// Blocks of one size for the many small objects of one kind that need what a
// pooled block (Kel/Pool.h) cannot give:
// - its slab from its address alone, so that an object need not point to
//   its owner (the slab carries an owner word);
// - a 32-bit handle, half a pointer, to keep in large tables;
// - a walk over the blocks that carry a mark (a bit the user sets).
//
// Blocks are carved from 64 KiB regions aligned to their size and mapped
// apart from the heap: a slab's first few on 4 KiB pages of their own, so that
// a small slab touches a page or two, the rest cut from huge pages shared by
// every slab. A block's region is its address with the low bits cleared, and
// the region's header names the slab. A region is carved as it fills and
// given back as soon as its last block is freed, so that a slab that empties
// holds nothing; a huge page goes back to the system once all its regions are.
// Accounting (usage()) counts, like the pool's, the live blocks and the
// region headers, not the untouched rest of a region.
//
// Costs: allocate, deallocate and handleOf are O(1) (a mask and a look at the
// header); block(handle) is two loads; forEachMarked reads the headers' mark
// bits, one bit per block. A slab is bound to nothing but its owner word: one
// thread, like the framework. Every block must be freed before its slab goes
// (asserted).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kel {

class Slab {
 public:
  static constexpr std::size_t regionBytes = std::size_t(64) << 10;
  // Regions a slab maps on their own before it takes huge-page ones.
  static constexpr std::size_t smallRegions = 4;
  // Blocks per region fit in this many bits of a handle.
  static constexpr uint32_t blockBits = 13;
  static constexpr uint32_t nullHandle = UINT32_MAX;

  // Blocks of `blockSize` bytes (8 to 4096, a multiple of 8).
  explicit Slab(std::size_t blockSize, void* owner = nullptr);
  ~Slab();
  Slab(const Slab&) = delete;
  Slab& operator=(const Slab&) = delete;

  std::size_t blockSize() const { return blockSize_; }
  void* owner() const { return owner_; }
  // Live blocks.
  uint32_t size() const { return live_; }

  void* allocate();
  // Frees a block of any slab.
  static void deallocate(void* p) { regionOf(p)->slab->release(p); }
  static Slab& of(const void* p) { return *regionOf(p)->slab; }

  uint32_t handleOf(const void* p) const {
    const Region* r = regionOf(p);
    return r->index << blockBits |
           uint32_t((static_cast<const char*>(p) - r->blocks()) / blockSize_);
  }
  void* block(uint32_t h) const {
    return regions_[h >> blockBits]->blocks() + std::size_t(h & blockMask) * blockSize_;
  }

  // The user's mark of a live block; a new block has none.
  static bool marked(const void* p);
  static void markIs(const void* p, bool mark);
  // Calls f(block) for each marked block; f may free blocks and change marks.
  template <class F>
  void forEachMarked(F&& f) const {
    for (std::size_t i = 0; i < regions_.size(); ++i) {
      // Re-read the region each time: f may have freed its last block.
      for (uint32_t b = 0; i < regions_.size() && regions_[i] != nullptr; ++b) {
        b = nextMarked(regions_[i], b);
        if (b == blocksPerRegion_) break;
        f(static_cast<void*>(regions_[i]->blocks() + std::size_t(b) * blockSize_));
      }
    }
  }

  struct Usage {
    std::size_t requested = 0;  // the live blocks
    std::size_t held = 0;       // and the region headers
  };
  // Of every slab.
  static Usage usage();

 private:
  static constexpr uint32_t blockMask = (1u << blockBits) - 1;
  struct FreeBlock {
    FreeBlock* next;
  };
  struct Region {
    Slab* slab;
    FreeBlock* free;
    Region* prevOpen;
    Region* nextOpen;
    uint32_t index;
    uint32_t live;
    uint32_t carved;
    uint32_t blockOffset;  // from the region's start
    bool open;             // has room, and is on the slab's open list
    bool huge;             // cut from a shared huge page

    // One bit per block, right after the header's fields.
    uint64_t* marks() { return reinterpret_cast<uint64_t*>(this + 1); }
    const uint64_t* marks() const { return reinterpret_cast<const uint64_t*>(this + 1); }
    char* blocks() { return reinterpret_cast<char*>(this) + blockOffset; }
    const char* blocks() const { return reinterpret_cast<const char*>(this) + blockOffset; }
  };

  static Region* regionOf(const void* p) {
    return reinterpret_cast<Region*>(reinterpret_cast<uintptr_t>(p) & ~(regionBytes - 1));
  }
  // The first marked block of `r` at or after b, or blocksPerRegion_.
  uint32_t nextMarked(const Region* r, uint32_t b) const;
  void release(void* p);
  Region* newRegion();
  void dropRegion(Region* r);
  void openIs(Region* r, bool open);

  std::size_t blockSize_;
  void* owner_;
  uint32_t blocksPerRegion_;
  uint32_t headerBytes_;
  uint32_t live_ = 0;
  Region* open_ = nullptr;        // regions with room, the newest first
  std::vector<Region*> regions_;  // by index; null where one was dropped
  std::vector<uint32_t> spareIndex_;
};

}  // namespace Kel
