// Large blocks read at random (the slot arrays of big tables, the pool's
// chunks) miss the TLB on nearly every read when backed by 4 KiB pages. Such
// blocks are aligned to 2 MiB and the kernel is asked to back them with huge
// pages; where transparent huge pages are off the advice is ignored.
#pragma once

#include <cstddef>
#include <new>

namespace Kel::HugePages {

inline constexpr std::size_t bytes = std::size_t(2) << 20;

// Through operator new, so heap accounting sees it; free with release(p, size).
void* allocate(std::size_t size);
void release(void* p, std::size_t size) noexcept;
// Advises the whole huge pages inside [p, p + size).
void advise(void* p, std::size_t size) noexcept;

}  // namespace Kel::HugePages
