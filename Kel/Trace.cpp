#include "Kel/Trace.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "Kel/Assert.h"
#include "Kel/Error.h"

namespace Kel {

namespace {

constexpr uint32_t allLevels = (1u << TraceFacility::levels) - 1;

void checkLevel(int level) {
  if (level < 0 || level >= TraceFacility::levels) {
    throw RangeError("trace level " + std::to_string(level) + " out of range 0-9");
  }
}

uint32_t withLevel(uint32_t levels, int level, bool on) {
  checkLevel(level);
  return on ? levels | (1u << level) : levels & ~(1u << level);
}

class StderrSink : public TraceSink {
 public:
  void write(const TraceFacility& facility, int level, uint64_t timeNs,
             std::string_view message) override {
    std::string line = traceLine(timeNs, facility.name(), level, message);
    line += '\n';
    // One write per line, so that lines from other writers do not interleave.
    std::fwrite(line.data(), 1, line.size(), stderr);
  }
};

void dumpRecord(std::ostream& os, const TraceTimeScale& scale, const TraceFacility& facility,
                size_t i) {
  const RingRecord& r = facility.ringlog().record(i);
  os << traceLine(scale.ns(r.ticks), facility.name(), int(r.level), facility.ringlog().message(i))
     << '\n';
}

bool isNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':' || c == '.';
}

bool isDigit(std::string_view text, size_t i) {
  return i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]));
}

}  // namespace

std::string traceLine(uint64_t timeNs, std::string_view facility, int level,
                      std::string_view message) {
  char time[32];
  std::snprintf(time, sizeof time, "%" PRIu64 ".%06" PRIu64 " ", timeNs / 1000000000,
                timeNs / 1000 % 1000000);
  std::string line(time);
  line.append(facility);
  line += '/';
  line += char('0' + level);
  line += ' ';
  line.append(message);
  return line;
}

// --- TraceFacility

TraceFacility::TraceFacility(std::string name, size_t ringCapacity)
    : ringlog_(ringCapacity), name_(std::move(name)) {
  TraceRegistry::instance().facilityAdd(this);
}

TraceFacility::~TraceFacility() { TraceRegistry::instance().facilityDel(this); }

void TraceFacility::textLevelIs(int level, bool on) {
  textLevels_ = withLevel(textLevels_, level, on);
}

void TraceFacility::ringLevelIs(int level, bool on) {
  ringLevels_ = withLevel(ringLevels_, level, on);
}

void TraceFacility::allLevelsIs(bool on) {
  textLevels_ = on ? allLevels : 0;
  ringLevels_ = on ? allLevels : 0;
}

void TraceFacility::dump(std::ostream& os) const {
  TraceTimeScale scale;
  for (size_t i = 0; i < ringlog_.size(); ++i) dumpRecord(os, scale, *this, i);
}

// --- TraceCapture

TraceCapture::TraceCapture() : previous_(&TraceRegistry::instance().sink()) {
  TraceRegistry::instance().sinkIs(this);
}

TraceCapture::~TraceCapture() {
  KEL_ASSERT(&TraceRegistry::instance().sink() == this);
  TraceRegistry::instance().sinkIs(previous_);
}

void TraceCapture::write(const TraceFacility& facility, int level, uint64_t timeNs,
                         std::string_view message) {
  entries_.push_back(Entry{facility.name(), level, timeNs, std::string(message)});
}

std::vector<std::string> TraceCapture::messages() const {
  std::vector<std::string> out;
  out.reserve(entries_.size());
  for (const Entry& e : entries_) out.push_back(e.message);
  return out;
}

std::vector<std::string> TraceCapture::lines() const {
  std::vector<std::string> out;
  out.reserve(entries_.size());
  for (const Entry& e : entries_)
    out.push_back(traceLine(e.timeNs, e.facility, e.level, e.message));
  return out;
}

// --- TraceRegistry

TraceRegistry& TraceRegistry::instance() {
  static TraceRegistry registry;
  return registry;
}

TraceRegistry::TraceRegistry() : stderrSink_(std::make_unique<StderrSink>()) {
  sink_ = stderrSink_.get();
  if (const char* text = std::getenv("KELTRACE")) {
    environment_ = text;
    try {
      environmentRules_ = parse(environment_);
    } catch (const Exception& e) {
      // Too early to throw: facilities register before main.
      std::fprintf(stderr, "KELTRACE ignored: %s\n", e.what());
    }
  }
}

TraceRegistry::~TraceRegistry() = default;

TraceFacility* TraceRegistry::facility(std::string_view name) const {
  auto it = facilities_.find(name);
  return it == facilities_.end() ? nullptr : it->second;
}

void TraceRegistry::facilityAdd(TraceFacility* facility) {
  bool added = facilities_.emplace(facility->name(), facility).second;
  KEL_ASSERT(added);
  for (const Rule& rule : environmentRules_) apply(rule, *facility);
}

void TraceRegistry::facilityDel(TraceFacility* facility) { facilities_.erase(facility->name()); }

void TraceRegistry::sinkIs(TraceSink* sink) { sink_ = sink ? sink : stderrSink_.get(); }

void TraceRegistry::levelsIs(std::string_view text) {
  std::vector<Rule> rules = parse(text);
  for (const Rule& rule : rules) {
    for (auto& [name, facility] : facilities_) apply(rule, *facility);
  }
}

void TraceRegistry::apply(const Rule& rule, TraceFacility& facility) {
  std::string_view name = facility.name();
  if (rule.prefix ? !name.starts_with(rule.pattern) : name != rule.pattern) return;
  (rule.ring ? facility.ringLevels_ : facility.textLevels_) = rule.levels;
}

std::vector<TraceRegistry::Rule> TraceRegistry::parse(std::string_view text) {
  std::vector<Rule> rules;
  if (text.empty()) return rules;
  size_t i = 0;
  auto fail = [&] {
    throw ParseError("bad trace levels \"" + std::string(text) + "\" at \"" +
                     std::string(text.substr(i)) + "\"");
  };
  auto level = [&] {
    size_t start = i;
    while (isDigit(text, i)) ++i;
    std::string digits(text.substr(start, i - start));
    if (digits.size() > 1) {
      throw RangeError("trace level " + digits + " out of range 0-9");
    }
    return digits[0] - '0';
  };
  for (;;) {
    Rule rule;
    size_t start = i;
    while (i < text.size() && isNameChar(text[i])) ++i;
    rule.pattern = text.substr(start, i - start);
    if (i < text.size() && text[i] == '*') {
      rule.prefix = true;
      ++i;
    }
    if (rule.pattern.empty() && !rule.prefix) fail();
    if (i == text.size() || text[i] != '/') fail();
    ++i;
    if (text.substr(i).starts_with("ring:")) {
      rule.ring = true;
      i += 5;
    }
    while (isDigit(text, i)) {
      size_t item = i;
      int low = level();
      int high = low;
      if (i < text.size() && text[i] == '-') {
        ++i;
        if (!isDigit(text, i)) fail();
        high = level();
        if (high < low) {
          i = item;
          fail();
        }
      }
      for (int l = low; l <= high; ++l) rule.levels |= 1u << l;
      // A comma before a digit continues the list; before a name it starts a rule.
      if (text.substr(i).starts_with(",") && isDigit(text, i + 1)) ++i;
    }
    rules.push_back(rule);
    if (i == text.size()) return rules;
    if (text[i] != ',') fail();
    ++i;
  }
}

void TraceRegistry::dump(std::ostream& os) const {
  struct Item {
    uint64_t ticks;
    const TraceFacility* facility;
    size_t index;
  };
  std::vector<Item> items;
  for (auto& [name, facility] : facilities_) {
    const Ringlog& ring = facility->ringlog();
    for (size_t i = 0; i < ring.size(); ++i) items.push_back({ring.record(i).ticks, facility, i});
  }
  // Stable: equal stamps keep facility order, then ring order.
  std::stable_sort(items.begin(), items.end(),
                   [](const Item& a, const Item& b) { return a.ticks < b.ticks; });
  TraceTimeScale scale;
  for (const Item& item : items) dumpRecord(os, scale, *item.facility, item.index);
}

// --- Text traces

void traceWrite(const TraceFacility& facility, int level, std::string_view message) {
  TraceRegistry::instance().sink().write(facility, level, traceSteadyNs(), message);
}

}  // namespace Kel
