#include "Kel/Slab.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "Kel/Assert.h"
#include "Kel/HugePages.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define KEL_SLAB_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define KEL_SLAB_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define KEL_SLAB_POISON(p, n) static_cast<void>(0)
#define KEL_SLAB_UNPOISON(p, n) static_cast<void>(0)
#endif

namespace Kel {

namespace {

Slab::Usage total;

// `bytes` (a power of two) mapped apart from the heap, aligned to their size.
void* mapAligned(std::size_t bytes) {
  // Map twice the size and keep the aligned half: mmap aligns to pages only.
  void* m = mmap(nullptr, 2 * bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m == MAP_FAILED) throw std::bad_alloc();
  const auto start = reinterpret_cast<uintptr_t>(m);
  const uintptr_t aligned = (start + bytes - 1) & ~(bytes - 1);
  if (aligned != start) munmap(m, aligned - start);
  if (aligned + bytes != start + 2 * bytes) {
    munmap(reinterpret_cast<void*>(aligned + bytes), start + bytes - aligned);
  }
  return reinterpret_cast<void*>(aligned);
}

// A slab's regions past its first few come from huge-page chunks that every
// slab shares: blocks read at random by passes over many routes miss the TLB
// far less than on 4 KiB pages, and a region costs no system call. A chunk
// goes back to the system once the last of its regions is given back.
class RegionSource {
 public:
  static constexpr std::size_t chunkBytes = HugePages::bytes;
  static constexpr uint32_t regionsPerChunk = uint32_t(chunkBytes / Slab::regionBytes);
  static_assert(regionsPerChunk >= 1 && regionsPerChunk <= 32);
  static constexpr uint32_t allFree = uint32_t((uint64_t(1) << regionsPerChunk) - 1);

  // A region, aligned to its size; its contents are undefined.
  void* take() {
    if (partial_.empty()) newChunk();
    Chunk& c = *partial_.back();
    const auto i = uint32_t(std::countr_zero(c.free));
    c.free &= ~(1u << i);
    if (c.free == 0) partialDel(c);
    return reinterpret_cast<void*>(c.base + i * Slab::regionBytes);
  }

  void give(void* region) {
    const auto at = reinterpret_cast<uintptr_t>(region);
    const auto found = chunks_.find(at & ~(chunkBytes - 1));
    KEL_ASSERT(found != chunks_.end());
    Chunk& c = *found->second;
    if (c.free == 0) partialAdd(c);
    c.free |= 1u << ((at - c.base) / Slab::regionBytes);
    if (c.free != allFree) return;
    partialDel(c);
    munmap(reinterpret_cast<void*>(c.base), chunkBytes);
    chunks_.erase(found);
    if (chunks_.empty()) {
      // Nothing left on the heap either, so that a process whose slabs all
      // empty is back where it started.
      std::unordered_map<uintptr_t, std::unique_ptr<Chunk>>().swap(chunks_);
      std::vector<Chunk*>().swap(partial_);
    }
  }

 private:
  struct Chunk {
    uintptr_t base;
    uint32_t free = allFree;  // one bit per region
    uint32_t partialAt = 0;   // in partial_, when it has free regions
  };

  void newChunk() {
    const auto aligned = reinterpret_cast<uintptr_t>(mapAligned(chunkBytes));
    HugePages::advise(reinterpret_cast<void*>(aligned), chunkBytes);
    auto chunk = std::make_unique<Chunk>();
    chunk->base = aligned;
    partialAdd(*chunk);
    chunks_.emplace(aligned, std::move(chunk));
  }
  void partialAdd(Chunk& c) {
    c.partialAt = uint32_t(partial_.size());
    partial_.push_back(&c);
  }
  void partialDel(Chunk& c) {
    partial_[c.partialAt] = partial_.back();
    partial_[c.partialAt]->partialAt = c.partialAt;
    partial_.pop_back();
  }

  std::unordered_map<uintptr_t, std::unique_ptr<Chunk>> chunks_;  // by base
  std::vector<Chunk*> partial_;                                   // with free regions
};

// Never destroyed, and not on the heap: a process-wide slab may give its
// regions back at exit.
RegionSource& regionSource() {
  alignas(RegionSource) static unsigned char place[sizeof(RegionSource)];
  static RegionSource* source = new (place) RegionSource;
  return *source;
}

uint32_t headerFor(uint32_t blocks, uint32_t marksOffset) {
  const uint32_t words = (blocks + 63) / 64;
  return (marksOffset + 8 * words + 15) & ~15u;
}

}  // namespace

Slab::Slab(std::size_t blockSize, void* owner) : blockSize_(blockSize), owner_(owner) {
  KEL_ASSERT(blockSize >= sizeof(FreeBlock) && blockSize <= 4096 && blockSize % 8 == 0);
  const auto marksOffset = uint32_t(sizeof(Region));
  uint32_t n = std::min<uint32_t>(uint32_t(regionBytes / blockSize), 1u << blockBits);
  while (headerFor(n, marksOffset) + n * blockSize > regionBytes) --n;
  blocksPerRegion_ = n;
  headerBytes_ = headerFor(n, marksOffset);
}

Slab::~Slab() { KEL_ASSERT(live_ == 0); }

void* Slab::allocate() {
  if (open_ == nullptr) newRegion();
  Region* r = open_;
  void* p;
  if (r->free != nullptr) {
    KEL_SLAB_UNPOISON(r->free, blockSize_);
    p = r->free;
    r->free = r->free->next;
  } else {
    p = r->blocks() + std::size_t(r->carved) * blockSize_;
    ++r->carved;
  }
  ++r->live;
  ++live_;
  if (r->free == nullptr && r->carved == blocksPerRegion_) openIs(r, false);
  total.requested += blockSize_;
  total.held += blockSize_;
  return p;
}

void Slab::release(void* p) {
  Region* r = regionOf(p);
  markIs(p, false);
  r->free = new (p) FreeBlock{r->free};
  KEL_SLAB_POISON(p, blockSize_);
  --r->live;
  --live_;
  total.requested -= blockSize_;
  total.held -= blockSize_;
  if (r->live == 0) {
    dropRegion(r);
  } else if (!r->open) {
    openIs(r, true);
  }
}

bool Slab::marked(const void* p) {
  const Region* r = regionOf(p);
  const auto b = uint32_t((static_cast<const char*>(p) - r->blocks()) / r->slab->blockSize_);
  return (r->marks()[b / 64] >> (b % 64) & 1) != 0;
}

void Slab::markIs(const void* p, bool mark) {
  Region* r = regionOf(p);
  const auto b = uint32_t((static_cast<const char*>(p) - r->blocks()) / r->slab->blockSize_);
  const uint64_t bit = uint64_t(1) << (b % 64);
  r->marks()[b / 64] = mark ? r->marks()[b / 64] | bit : r->marks()[b / 64] & ~bit;
}

uint32_t Slab::nextMarked(const Region* r, uint32_t b) const {
  while (b < blocksPerRegion_) {
    const uint64_t word = r->marks()[b / 64] >> (b % 64);
    if (word != 0) return std::min(blocksPerRegion_, b + uint32_t(std::countr_zero(word)));
    b = (b / 64 + 1) * 64;
  }
  return blocksPerRegion_;
}

Slab::Region* Slab::newRegion() {
  // The first few on 4 KiB pages of their own, touched as they fill: a huge
  // page is resident whole once touched, and thousands of small slabs (a
  // VRF's each) would hold one region of it each.
  const bool huge = regions_.size() - spareIndex_.size() >= smallRegions;
  auto* r = static_cast<Region*>(huge ? regionSource().take() : mapAligned(regionBytes));
  // No block is marked, and the header's counts start at zero.
  std::memset(static_cast<void*>(r), 0, headerBytes_);
  r->huge = huge;
  r->slab = this;
  r->blockOffset = headerBytes_;
  if (spareIndex_.empty()) {
    KEL_ASSERT(regions_.size() < (std::size_t(1) << (32 - blockBits)) - 1);
    r->index = uint32_t(regions_.size());
    regions_.push_back(r);
  } else {
    r->index = spareIndex_.back();
    spareIndex_.pop_back();
    regions_[r->index] = r;
  }
  openIs(r, true);
  total.held += headerBytes_;
  return r;
}

void Slab::dropRegion(Region* r) {
  if (r->open) openIs(r, false);
  regions_[r->index] = nullptr;
  total.held -= headerBytes_;
  if (live_ == 0) {
    // Every region has gone: so do the tables.
    std::vector<Region*>().swap(regions_);
    std::vector<uint32_t>().swap(spareIndex_);
  } else {
    spareIndex_.push_back(r->index);
  }
  KEL_SLAB_UNPOISON(r, regionBytes);
  if (r->huge) {
    regionSource().give(r);
  } else {
    munmap(r, regionBytes);
  }
}

void Slab::openIs(Region* r, bool open) {
  if (open) {
    r->prevOpen = nullptr;
    r->nextOpen = open_;
    if (open_ != nullptr) open_->prevOpen = r;
    open_ = r;
  } else {
    (r->prevOpen != nullptr ? r->prevOpen->nextOpen : open_) = r->nextOpen;
    if (r->nextOpen != nullptr) r->nextOpen->prevOpen = r->prevOpen;
  }
  r->open = open;
}

Slab::Usage Slab::usage() { return total; }

}  // namespace Kel
