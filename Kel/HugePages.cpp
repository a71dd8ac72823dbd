#include "Kel/HugePages.h"

#include <sys/mman.h>

#include <cstdint>

namespace Kel::HugePages {

void* allocate(std::size_t size) {
  if (size < bytes) return ::operator new(size);
  void* p = ::operator new(size, std::align_val_t(bytes));
  advise(p, size);
  return p;
}

void release(void* p, std::size_t size) noexcept {
  if (size < bytes) {
    ::operator delete(p);
  } else {
    ::operator delete(p, std::align_val_t(bytes));
  }
}

void advise(void* p, std::size_t size) noexcept {
  const uintptr_t begin = (uintptr_t(p) + bytes - 1) & ~(bytes - 1);
  const uintptr_t end = (uintptr_t(p) + size) & ~(bytes - 1);
  if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace Kel::HugePages
