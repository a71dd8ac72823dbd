#include "Kel/Slab.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <new>

#include "Kel/Assert.h"

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
  // Map twice the size and keep the aligned half: mmap aligns to pages only.
  void* m =
      mmap(nullptr, 2 * regionBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m == MAP_FAILED) throw std::bad_alloc();
  const auto start = reinterpret_cast<uintptr_t>(m);
  const uintptr_t aligned = (start + regionBytes - 1) & ~(regionBytes - 1);
  if (aligned != start) munmap(m, aligned - start);
  if (aligned + regionBytes != start + 2 * regionBytes) {
    munmap(reinterpret_cast<void*>(aligned + regionBytes), start + regionBytes - aligned);
  }
  // Fresh pages are zero: no block is marked.
  auto* r = reinterpret_cast<Region*>(aligned);
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
  munmap(r, regionBytes);
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
