// Entities kept in a slab of their type's own (Kel/Slab.h), so that the
// large tables that refer to them keep 32-bit handles (SlabRef) instead of
// pointers: a hash table's slot is then a hash and a handle, 8 bytes.
//
// InSlab<T>, a base of T (beside its Kel::Entity base, whose operator new
// and delete T then names with `using`), makes T's objects come from the
// slab and go back to it, and gives a handle for an object and the object
// for a handle (two loads). The slab is one for the process and never
// destroyed: T's objects may outlive every other static. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "Kel/Assert.h"
#include "Kel/Ptr.h"
#include "Kel/Slab.h"

namespace Kel {

template <class T>
class InSlab {
 public:
  static void* operator new(std::size_t size) {
    // Made at the first object, in place, not on the heap.
    if (slab_ == nullptr) slab_ = new (place_) Slab(sizeof(T));
    KEL_ASSERT(size == slab_->blockSize());
    return slab_->allocate();
  }
  static void operator delete(void* p) { Slab::deallocate(p); }

  // Both for objects made: the slab is there.
  uint32_t handle() const { return slab_->handleOf(static_cast<const T*>(this)); }
  static T* of(uint32_t handle) { return static_cast<T*>(slab_->block(handle)); }

 private:
  alignas(Slab) static inline unsigned char place_[sizeof(Slab)];
  static inline Slab* slab_ = nullptr;
};

// A T (an InSlab<T>) by its handle. It counts nothing itself: the table that
// keeps one holds a reference for it (newRef when filed, delRef when
// dropped). Iterating a table gives counted references, Ptr<View>, as a
// table of Ptrs would.
template <class T, class View = T>
struct SlabRef {
  uint32_t handle = Slab::nullHandle;

  static SlabRef of(const T* t) { return SlabRef{t->handle()}; }
  T* get() const { return T::of(handle); }
  T* operator->() const { return get(); }
  T& operator*() const { return *get(); }
  operator Ptr<View>() const { return Ptr<View>(get()); }
  bool operator==(const SlabRef&) const = default;
};

}  // namespace Kel
