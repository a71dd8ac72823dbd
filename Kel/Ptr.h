// Intrusive reference counting for entities and reactors.
//
// Contract: one thread, so the count is a plain integer. Owners hold children
// by Ptr; back pointers are raw, so no cycle keeps anything alive. Dropping the
// last Ptr deletes the object at once, through its virtual destructor.
// Such objects are many and small: they live in the framework's pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "Kel/Pool.h"

namespace Kel {

class PtrInterface {
 public:
  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;
  virtual ~PtrInterface() = default;

  // The virtual destructor passes the dynamic type's size to delete.
  static void* operator new(std::size_t size) { return Pool::allocate(size); }
  static void operator delete(void* p, std::size_t size) noexcept { Pool::deallocate(p, size); }
  static void* operator new(std::size_t, void* place) noexcept { return place; }

  uint32_t references() const { return references_; }
  void newRef() const { ++references_; }
  void delRef() const {
    if (--references_ == 0) delete this;
  }

 private:
  mutable uint32_t references_ = 0;
};

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  Ptr(T* p) : p_(p) {
    if (p_) p_->newRef();
  }
  Ptr(const Ptr& o) : Ptr(o.p_) {}
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U>
  Ptr(const Ptr<U>& o) : Ptr(o.ptr()) {}
  template <class U>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
  ~Ptr() {
    if (p_) p_->delRef();
  }

  Ptr& operator=(const Ptr& o) {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) {
    Ptr().swap(*this);
    return *this;
  }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  explicit operator bool() const { return p_ != nullptr; }
  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }
  // Hands the reference over to the caller without touching the count.
  T* release() { return std::exchange(p_, nullptr); }

  friend bool operator==(const Ptr& a, const Ptr& b) { return a.p_ == b.p_; }
  friend bool operator==(const Ptr& a, std::nullptr_t) { return a.p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

template <class T, class... Args>
Ptr<T> makePtr(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& p) {
  return Ptr<T>(static_cast<T*>(p.ptr()));
}

}  // namespace Kel
