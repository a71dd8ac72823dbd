// Kel::String: an immutable, reference-counted string one pointer in size.
//
// Contract: one thread (the count is a plain integer). The empty string is
// the null pointer and allocates nothing; any other string is one heap block
// (count, size, bytes) shared by all copies. Copying costs one increment,
// comparing two copies of the same block costs one pointer test. Order is by
// unsigned bytes; the hash is Kel::hashString of the bytes. The canonical form
// is single-quoted with \\ and \' escaped.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include "Kel/Hash.h"
#include "Kel/Strep.h"

namespace Kel {

class String {
 public:
  String() noexcept = default;
  // InvalidSizeError when `s` has 4 GiB or more.
  String(std::string_view s);
  String(const char* s) : String(std::string_view(s)) {}
  String(const std::string& s) : String(std::string_view(s)) {}
  // Reads the quoted canonical form.
  String(StrepIt& it, StrepIt end);

  String(const String& o) noexcept : rep_(o.rep_) {
    if (rep_) ++rep_->references;
  }
  String(String&& o) noexcept : rep_(std::exchange(o.rep_, nullptr)) {}
  String& operator=(const String& o) noexcept {
    String(o).swap(*this);
    return *this;
  }
  String& operator=(String&& o) noexcept {
    String(std::move(o)).swap(*this);
    return *this;
  }
  ~String() {
    if (rep_ && --rep_->references == 0) release();
  }
  void swap(String& o) noexcept { std::swap(rep_, o.rep_); }

  std::string_view view() const {
    return rep_ ? std::string_view(reinterpret_cast<const char*>(rep_ + 1), rep_->size)
                : std::string_view();
  }
  size_t size() const { return rep_ ? rep_->size : 0; }
  bool empty() const { return rep_ == nullptr; }
  uint32_t hash(uint32_t seed) const { return hashString(view(), seed); }

  friend bool operator==(const String& a, const String& b) {
    return a.rep_ == b.rep_ || a.view() == b.view();
  }
  friend bool operator<(const String& a, const String& b) { return a.view() < b.view(); }

 private:
  struct Rep {
    uint32_t references;
    uint32_t size;
  };
  void release();

  Rep* rep_ = nullptr;
};

std::ostream& operator<<(std::ostream& os, const String& s);
std::string valueToStrep(const String& s);

}  // namespace Kel
