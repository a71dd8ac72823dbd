// Trace facilities: named trace points with levels 0 to 9, switched per level
// for text and for the facility's Ringlog separately.
//
// A facility is a static at namespace scope in the .cpp that traces:
//   static Kel::TraceFacility trace("IpRib::RouteStatusSm");
// It registers itself by name with the TraceRegistry, one of the framework's
// two singletons. Defaults: text level 0 (notices) only; ring levels 0 to 8
// (decisions) on, 9 (per-via detail) off.
//
// KEL_TRACE(trace, 9, "Vrf: " << vrfName << " validVia " << prefix) formats
// its stream expression only when the text level is on; off, it costs one test
// of a bit in the facility. Text goes to the registry's sink, by default
// stderr, one line per trace:
//   <seconds>.<microseconds> <facility>/<level> <message>
// in steady_clock time; a TraceCapture collects them instead while it lives.
// KEL_RINGLOG (Ringlog.h) records in the facility's ring; KEL_DUALLOG
// (Duallog.h) does both.
//
// Levels come from the environment variable KELTRACE, read once when the
// registry is first used, and at run time from the facility's setters or from
// TraceRegistry::levelsIs with the same syntax:
//   rules   := rule { "," rule }
//   rule    := pattern "/" [ "ring:" ] [ item { "," item } ]
//   pattern := a facility name, or a name prefix ended by "*" ("IpRib::*", "*")
//   item    := level | level "-" level
// e.g. "IpRib::RouteStatusSm/0-9,IpRib::IntfSm/0,8,IpRib::*/ring:0-9". A rule
// sets exactly the listed text levels (ring levels after "ring:") of the
// facilities it matches, later rules winning; "Name/" turns them all off.
// KELTRACE's rules apply to each facility as it registers; a text applied at
// run time changes the facilities present.
//
// One thread, like the rest of the framework.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Kel/Ringlog.h"

namespace Kel {

class TraceFacility {
 public:
  static constexpr int levels = 10;
  // Bit i is level i.
  static constexpr uint32_t defaultTextLevels = 0x001;
  static constexpr uint32_t defaultRingLevels = 0x1ff;

  explicit TraceFacility(std::string name, size_t ringCapacity = Ringlog::defaultCapacity);
  ~TraceFacility();
  TraceFacility(const TraceFacility&) = delete;
  TraceFacility& operator=(const TraceFacility&) = delete;

  const std::string& name() const { return name_; }

  bool textOn(int level) const { return (textLevels_ >> level) & 1u; }
  bool ringOn(int level) const { return (ringLevels_ >> level) & 1u; }
  uint32_t textLevels() const { return textLevels_; }
  uint32_t ringLevels() const { return ringLevels_; }
  // A level outside 0 to 9 is a RangeError.
  void textLevelIs(int level, bool on);
  void ringLevelIs(int level, bool on);
  // Every level, text and ring.
  void allLevelsIs(bool on);

  Ringlog& ringlog() { return ringlog_; }
  const Ringlog& ringlog() const { return ringlog_; }
  // The ring's records, oldest first, one line each in the text line's form.
  void dump(std::ostream& os) const;

 private:
  friend class TraceRegistry;
  // First, beside the ring's cursor: the hot path reads one cache line.
  uint32_t textLevels_ = defaultTextLevels;
  uint32_t ringLevels_ = defaultRingLevels;
  Ringlog ringlog_;
  std::string name_;
};

class TraceSink {
 public:
  virtual ~TraceSink() = default;
  // timeNs is steady_clock time.
  virtual void write(const TraceFacility& facility, int level, uint64_t timeNs,
                     std::string_view message) = 0;
};

// A trace line as the default sink prints it, without the newline.
std::string traceLine(uint64_t timeNs, std::string_view facility, int level,
                      std::string_view message);

// Collects the text traces written while it lives, in place of the sink that
// was there before; captures nest.
class TraceCapture : public TraceSink {
 public:
  struct Entry {
    std::string facility;
    int level;
    uint64_t timeNs;
    std::string message;
  };

  TraceCapture();
  ~TraceCapture() override;
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  void write(const TraceFacility& facility, int level, uint64_t timeNs,
             std::string_view message) override;

  const std::vector<Entry>& entries() const { return entries_; }
  std::vector<std::string> messages() const;
  std::vector<std::string> lines() const;
  void clear() { entries_.clear(); }

 private:
  TraceSink* previous_;
  std::vector<Entry> entries_;
};

class TraceRegistry {
 public:
  using Facilities = std::map<std::string_view, TraceFacility*, std::less<>>;

  static TraceRegistry& instance();

  // Null when no facility has that name.
  TraceFacility* facility(std::string_view name) const;
  const Facilities& facilities() const { return facilities_; }

  // Applies a rule text (syntax above) to the facilities present. The whole
  // text is read before any level changes: ParseError for bad syntax,
  // RangeError for a level above 9.
  void levelsIs(std::string_view rules);

  TraceSink& sink() const { return *sink_; }
  // Null restores stderr.
  void sinkIs(TraceSink* sink);

  // Every facility's ring, merged oldest first.
  void dump(std::ostream& os) const;

 private:
  struct Rule {
    std::string_view pattern;
    bool prefix = false;
    bool ring = false;
    uint32_t levels = 0;
  };

  TraceRegistry();
  ~TraceRegistry();
  // The rules refer into `text`.
  static std::vector<Rule> parse(std::string_view text);
  static void apply(const Rule& rule, TraceFacility& facility);

  friend class TraceFacility;
  void facilityAdd(TraceFacility* facility);
  void facilityDel(TraceFacility* facility);

  Facilities facilities_;
  std::string environment_;
  std::vector<Rule> environmentRules_;
  std::unique_ptr<TraceSink> stderrSink_;
  TraceSink* sink_;
};

// Stamps and hands a formatted text trace to the sink (KEL_TRACE's slow path).
void traceWrite(const TraceFacility& facility, int level, std::string_view message);

}  // namespace Kel

// Formats and writes a text trace when the facility's text level is on; the
// stream expression is not evaluated otherwise.
#define KEL_TRACE(facility, level, ...)                            \
  do {                                                             \
    if ((facility).textOn(level)) [[unlikely]] {                   \
      std::ostringstream kelTraceText;                             \
      kelTraceText << __VA_ARGS__;                                 \
      ::Kel::traceWrite((facility), (level), kelTraceText.view()); \
    }                                                              \
  } while (0)
