// Software prefetch for passes over tables far larger than the caches.
//
// A pass that knows which objects it will read a few steps from now asks for
// them early, so that their cache misses overlap instead of following one
// another. A prefetch never faults and changes nothing observable.
#pragma once

#include <bit>
#include <cstdint>

namespace Kel {

// Starts loading the cache line holding `p`. The empty asm keeps the
// prefetch: the optimizer takes a function of loads and prefetches alone for
// pure, and drops calls to it.
inline void prefetchLine(const void* p) {
  __builtin_prefetch(p);
  asm volatile("" : : "r"(p));
}

// Both ends of `*p` (an object may straddle two lines).
template <class T>
void prefetchObject(const T* p) {
  prefetchLine(p);
  prefetchLine(reinterpret_cast<const char*>(p) + sizeof(T) - 1);
}

// Staged prefetching ahead of a pass. The pass pushes each element `lead`
// places before it reaches it; an element gets stage k (0 to Stages - 1) as
// the element k * Spacing places after it is pushed, so that each stage finds
// in cache what the stage before brought. Handles must stay cheap to copy and
// safe to use after the pass has moved on (a hash to look up again, say); a
// stage may fill in what later stages of its element need.
template <class Handle, int Stages, int Spacing>
class Lookahead {
 public:
  static constexpr uint32_t lead = Stages * Spacing;

  // Forgets every element pushed (the pass jumped).
  void clear() { pushed_ = 0; }
  // Calls stage(handle, k) for each stage due.
  template <class F>
  void push(const Handle& h, F&& stage) {
    ring_[pushed_ % ringSize] = h;
    for (uint32_t k = 0; k < uint32_t(Stages) && k * Spacing <= pushed_; ++k) {
      stage(ring_[(pushed_ - k * Spacing) % ringSize], int(k));
    }
    ++pushed_;
  }

 private:
  static constexpr uint32_t ringSize = std::bit_ceil(uint32_t((Stages - 1) * Spacing + 1));
  Handle ring_[ringSize]{};
  uint32_t pushed_ = 0;
};

}  // namespace Kel
