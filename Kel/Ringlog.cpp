#include "Kel/Ringlog.h"

#include <sstream>

#include "Kel/Assert.h"

namespace Kel {

namespace {

// One reading of both clocks, taken when the first ring is made; the tick rate
// is measured from there to each read-out, so the longer the process runs the
// better the scale, and the error never exceeds the skew of the two readings.
struct ClockReference {
  uint64_t ticks;
  uint64_t ns;
};

const ClockReference& clockReference() {
  static const ClockReference reference{traceTicks(), traceSteadyNs()};
  return reference;
}

void formatArg(std::ostream& os, const RingRecord& r, const RingArgSlot& slot) {
  const uint64_t* word = r.words + slot.offset;
  switch (slot.kind) {
    case RingArgKind::Bool:
      os << (*word ? "true" : "false");
      break;
    case RingArgKind::Int:
      os << int64_t(*word);
      break;
    case RingArgKind::Uint:
      os << *word;
      break;
    case RingArgKind::Double:
      os << std::bit_cast<double>(*word);
      break;
    case RingArgKind::Literal: {
      auto s = reinterpret_cast<const char*>(*word);
      os << (s ? s : "(null)");
      break;
    }
    case RingArgKind::Text: {
      auto bytes = reinterpret_cast<const char*>(word);
      os.write(bytes + 1, static_cast<unsigned char>(bytes[0]));
      break;
    }
    case RingArgKind::Value:
      slot.formatter(os, word);
      break;
  }
}

}  // namespace

TraceTimeScale::TraceTimeScale() {
  const ClockReference& reference = clockReference();
  ticks0_ = reference.ticks;
  ns0_ = reference.ns;
#if defined(__x86_64__) || defined(__i386__)
  uint64_t ticks = traceTicks();
  uint64_t ns = traceSteadyNs();
  nsPerTick_ = ticks == ticks0_ ? 1.0 : double(ns - ns0_) / double(ticks - ticks0_);
#else
  nsPerTick_ = 1.0;
#endif
}

uint64_t TraceTimeScale::ns(uint64_t ticks) const {
  // Signed: a record may predate the reference by the time it took to make it.
  return ns0_ + uint64_t(int64_t(double(int64_t(ticks - ticks0_)) * nsPerTick_));
}

Ringlog::Ringlog(size_t capacity) {
  clockReference();
  capacityIs(capacity);
}

void Ringlog::capacityIs(size_t capacity) {
  size_t n = std::bit_ceil(std::max<size_t>(capacity, 1));
  // Left uninitialised: pages are touched only as records are written.
  records_.reset(new RingRecord[n]);
  mask_ = n - 1;
  written_ = 0;
}

const RingRecord& Ringlog::record(size_t i) const {
  KEL_ASSERT(i < size());
  return records_[(written_ - size() + i) & mask_];
}

std::string Ringlog::message(size_t i) const {
  const RingRecord& r = record(i);
  std::ostringstream os;
  const char* p = r.format;
  size_t arg = 0;
  // The format was checked when compiled: every '%' starts "%s" or "%%".
  while (const char* percent = std::strchr(p, '%')) {
    os.write(p, percent - p);
    if (percent[1] == 's') {
      formatArg(os, r, r.layout->args[arg++]);
    } else {
      os << '%';
    }
    p = percent + 2;
  }
  os << p;
  return std::move(os).str();
}

std::vector<std::string> Ringlog::messages(size_t n) const {
  size_t held = size();
  n = std::min(n, held);
  std::vector<std::string> out;
  out.reserve(n);
  for (size_t i = held - n; i < held; ++i) out.push_back(message(i));
  return out;
}

}  // namespace Kel
