// Ringlog: a fixed-size binary ring of trace records, one per facility
// (Trace.h), always on and cheap enough for the hot path.
//
// A record keeps the format literal's pointer, the level, a raw clock reading
// and the arguments as raw 8-byte words; text is made only when the ring is
// read or dumped. Writing costs a few stores and a clock read: no allocation,
// no formatting, no locking. One thread, like the rest of the framework.
//
// The format is a string literal with one "%s" per argument ("%%" is a '%');
// the count is checked at compile time. Arguments are recorded as:
//   bool, integers of every width (char excepted), floating point: one word;
//   const char*: the pointer, so it must point at storage that outlives the
//     ring (a literal); use std::string_view for anything else;
//   std::string, std::string_view: the first 23 bytes, copied;
//   any other type that is trivially copyable, at most 24 bytes, aligned to at
//     most 8 and has operator<<: its bytes, printed by that operator at dump time
//     (char and scoped enums go this way; a scoped enum without operator<<
//     prints its number).
// A record holds at most 6 arguments in 12 words.
//
// The ring's capacity is rounded up to a power of two; the newest records
// overwrite the oldest.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace Kel {

// steady_clock time in nanoseconds: the time text traces carry.
inline uint64_t traceSteadyNs() {
  return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                      std::chrono::steady_clock::now().time_since_epoch())
                      .count());
}

// The ring's clock: the time stamp counter where there is one (a third of the
// cost of steady_clock), converted to steady_clock time only when read back.
inline uint64_t traceTicks() {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return traceSteadyNs();
#endif
}

// Converts traceTicks() readings to steady_clock nanoseconds. The scale is
// fixed when it is made: make one per read-out so that its records agree.
class TraceTimeScale {
 public:
  TraceTimeScale();
  uint64_t ns(uint64_t ticks) const;

 private:
  uint64_t ticks0_;
  uint64_t ns0_;
  double nsPerTick_;
};

enum class RingArgKind : uint8_t { Bool, Int, Uint, Double, Literal, Text, Value };

// Prints a recorded value of one type from its bytes.
using RingFormatter = void (*)(std::ostream&, const void*);

struct RingArgSlot {
  RingArgKind kind;
  uint8_t offset;           // first word in the record
  RingFormatter formatter;  // Value only
};

// Where and how a list of argument types is kept in a record; one constant per
// list of types, shared by every record that uses it.
struct RingLayout {
  static constexpr size_t maxArgs = 6;
  size_t words;
  RingArgSlot args[maxArgs];
};

struct alignas(64) RingRecord {
  static constexpr size_t maxWords = 12;
  const char* format;
  const RingLayout* layout;
  uint64_t ticks;
  uint32_t level;
  uint64_t words[maxWords];
};

namespace RingDetail {

constexpr size_t textBytes = 24;  // a length byte, then up to 23 characters

template <class T>
concept Streamable = requires(std::ostream& os, const T& v) {
  os << v;
};

template <class T>
constexpr RingArgKind kindOf() {
  if constexpr (std::is_same_v<T, bool>) {
    return RingArgKind::Bool;
  } else if constexpr (std::is_integral_v<T> && !std::is_same_v<T, char>) {
    return std::is_signed_v<T> ? RingArgKind::Int : RingArgKind::Uint;
  } else if constexpr (std::is_enum_v<T> && !Streamable<T>) {
    return kindOf<std::underlying_type_t<T>>();
  } else if constexpr (std::is_floating_point_v<T>) {
    return RingArgKind::Double;
  } else if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
    return RingArgKind::Literal;
  } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
    return RingArgKind::Text;
  } else {
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) <= 24 && alignof(T) <= 8,
                  "a ring argument kept by value must be trivially copyable, at most 24 bytes");
    static_assert(Streamable<T>, "a ring argument kept by value needs operator<<");
    return RingArgKind::Value;
  }
}

template <class T>
void formatValue(std::ostream& os, const void* bytes) {
  std::array<unsigned char, sizeof(T)> copy;
  std::memcpy(copy.data(), bytes, sizeof(T));
  os << std::bit_cast<T>(copy);
}

template <class T>
constexpr RingFormatter formatterOf() {
  if constexpr (kindOf<T>() == RingArgKind::Value) return &formatValue<T>;
  return nullptr;
}

template <class T>
constexpr size_t wordsOf() {
  constexpr RingArgKind kind = kindOf<T>();
  if constexpr (kind == RingArgKind::Text) return textBytes / 8;
  if constexpr (kind == RingArgKind::Value) return (sizeof(T) + 7) / 8;
  return 1;
}

template <class... A>
constexpr RingLayout layoutOf() {
  RingLayout layout{0, {}};
  size_t i = 0;
  [[maybe_unused]] auto add = [&](RingArgKind kind, size_t words, RingFormatter formatter) {
    layout.args[i++] = RingArgSlot{kind, uint8_t(layout.words), formatter};
    layout.words += words;
  };
  (add(kindOf<A>(), wordsOf<A>(), formatterOf<A>()), ...);
  return layout;
}

template <class... A>
inline constexpr RingLayout layout = layoutOf<A...>();

template <class T>
void store(uint64_t* word, const T& v) {
  constexpr RingArgKind kind = kindOf<T>();
  if constexpr (kind == RingArgKind::Int) {
    *word = uint64_t(int64_t(v));
  } else if constexpr (kind == RingArgKind::Bool || kind == RingArgKind::Uint) {
    *word = uint64_t(v);
  } else if constexpr (kind == RingArgKind::Double) {
    *word = std::bit_cast<uint64_t>(double(v));
  } else if constexpr (kind == RingArgKind::Literal) {
    *word = reinterpret_cast<uintptr_t>(v);
  } else if constexpr (kind == RingArgKind::Text) {
    std::string_view s(v);
    size_t n = std::min(s.size(), textBytes - 1);
    auto* bytes = reinterpret_cast<unsigned char*>(word);
    bytes[0] = uint8_t(n);
    std::memcpy(bytes + 1, s.data(), n);
  } else {
    std::memcpy(word, &v, sizeof(T));
  }
}

// How an argument of type A (as `const A&` deduces it) is kept: string
// literals as const char*, everything else by its own type.
template <class A>
using Stored = std::decay_t<const A>;

consteval size_t formatArgs(const char* s) {
  size_t n = 0;
  for (; *s; ++s) {
    if (*s != '%') continue;
    ++s;
    if (*s == 's') {
      ++n;
    } else if (*s != '%') {
      return size_t(-1);
    }
  }
  return n;
}

// Called only when a format does not fit its arguments: not constexpr, so the
// compiler names it in the error.
inline void ringFormatNeedsOnePercentSPerArgument() {}

}  // namespace RingDetail

// A format literal checked against the argument types at compile time.
template <class... A>
struct RingFormat {
  template <size_t N>
  consteval RingFormat(const char (&s)[N]) : text(s) {
    if (RingDetail::formatArgs(s) != sizeof...(A)) {
      RingDetail::ringFormatNeedsOnePercentSPerArgument();
    }
  }
  const char* text;
};

class Ringlog {
 public:
  static constexpr size_t defaultCapacity = 4096;

  explicit Ringlog(size_t capacity = defaultCapacity);
  Ringlog(const Ringlog&) = delete;
  Ringlog& operator=(const Ringlog&) = delete;

  size_t capacity() const { return mask_ + 1; }
  // Drops every record held.
  void capacityIs(size_t capacity);
  // Records ever written, the overwritten ones included.
  uint64_t written() const { return written_; }
  size_t size() const { return size_t(std::min<uint64_t>(written_, capacity())); }
  void clear() { written_ = 0; }

  // Record i of those held, 0 the oldest.
  const RingRecord& record(size_t i) const;
  std::string message(size_t i) const;
  // The messages of the newest n records (fewer if fewer are held), oldest first.
  std::vector<std::string> messages(size_t n) const;

  template <class... A>
  void write(int level, RingFormat<RingDetail::Stored<A>...> format, const A&... args) {
    static_assert(sizeof...(A) <= RingLayout::maxArgs, "a ring record holds at most 6 arguments");
    constexpr const RingLayout& layout = RingDetail::layout<RingDetail::Stored<A>...>;
    static_assert(layout.words <= RingRecord::maxWords,
                  "the arguments exceed the 12 words of a ring record");
    RingRecord& r = records_[written_++ & mask_];
    r.format = format.text;
    r.layout = &layout;
    r.ticks = traceTicks();
    r.level = uint32_t(level);
    [[maybe_unused]] size_t i = 0;
    (RingDetail::store<RingDetail::Stored<A>>(r.words + layout.args[i++].offset, args), ...);
  }

 private:
  std::unique_ptr<RingRecord[]> records_;
  uint64_t mask_ = 0;
  uint64_t written_ = 0;
};

}  // namespace Kel

// Records a message in the facility's ring when its ring level is on; the
// arguments are not evaluated otherwise.
#define KEL_RINGLOG(facility, level, format, ...)                             \
  do {                                                                        \
    if ((facility).ringOn(level)) {                                           \
      (facility).ringlog().write((level), format __VA_OPT__(, ) __VA_ARGS__); \
    }                                                                         \
  } while (0)
