// Texts the platform and the framework read from outside: the toggles file,
// trace level rules (KELTRACE and at run time) and table paths.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Kel/Error.h"
#include "Kel/Strep.h"
#include "Kel/Trace.h"
#include "fuzz/FuzzTarget.h"
#include "platform/Cell/Path.h"
#include "platform/Flipset/Flipset.h"

namespace IpRibFuzz {

namespace {

[[noreturn]] void fault(std::string_view input, const std::string& what) {
  throw FuzzFault(what + " (input " + Kel::quoteStrep(input) + ")");
}

// The toggles as a file would hold them, names escaped as the parser reads them.
std::string togglesText(const Flipset::Toggles& toggles) {
  std::string out = "{";
  for (const auto& [name, on] : toggles) {
    if (out.size() > 1) out += ", ";
    out += '"';
    for (char c : name) {
      switch (c) {
        case '"':
        case '\\':
          out += '\\';
          out += c;
          break;
        case '\b':
          out += "\\b";
          break;
        case '\f':
          out += "\\f";
          break;
        case '\n':
          out += "\\n";
          break;
        case '\r':
          out += "\\r";
          break;
        case '\t':
          out += "\\t";
          break;
        default:
          out += c;
      }
    }
    out += on ? "\": true" : "\": false";
  }
  return out + "}";
}

// A refusal says what is wrong "at offset N", N within the text.
void toggles(std::string_view input) {
  std::string error;
  const std::optional<Flipset::Toggles> t = Flipset::parseToggles(input, error);
  if (!t) {
    const size_t at = error.rfind(" at offset ");
    if (at == std::string::npos || at == 0 || std::stoul(error.substr(at + 11)) > input.size()) {
      fault(input, "refusal without an offset in the text: " + error);
    }
    return;
  }
  const std::string printed = togglesText(*t);
  const std::optional<Flipset::Toggles> again = Flipset::parseToggles(printed, error);
  if (!again || *again != *t || togglesText(*again) != printed) {
    fault(input, "printed toggles " + Kel::quoteStrep(printed) + " read back other: " + error);
  }
}

struct Levels {
  uint32_t text;
  uint32_t ring;
  friend bool operator==(const Levels&, const Levels&) = default;
};

std::vector<Levels> levels() {
  std::vector<Levels> out;
  for (const auto& [name, f] : Kel::TraceRegistry::instance().facilities()) {
    out.push_back({f->textLevels(), f->ringLevels()});
  }
  return out;
}

void levelsIs(const std::vector<Levels>& wanted) {
  size_t i = 0;
  for (const auto& [name, f] : Kel::TraceRegistry::instance().facilities()) {
    for (int l = 0; l < Kel::TraceFacility::levels; ++l) {
      f->textLevelIs(l, (wanted[i].text >> l) & 1u);
      f->ringLevelIs(l, (wanted[i].ring >> l) & 1u);
    }
    ++i;
  }
}

// A refused rule text changes no level; an accepted one sets levels 0 to 9
// only, and applying it again changes nothing more.
void traceLevels(std::string_view input) {
  Kel::TraceRegistry& registry = Kel::TraceRegistry::instance();
  const std::vector<Levels> before = levels();
  try {
    registry.levelsIs(input);
  } catch (const Kel::Exception&) {
    if (levels() != before) fault(input, "refused trace levels changed some levels");
    return;
  }
  const std::vector<Levels> once = levels();
  registry.levelsIs(input);
  const bool idempotent = levels() == once;
  levelsIs(before);
  for (const Levels& l : once) {
    if ((l.text | l.ring) >> Kel::TraceFacility::levels) fault(input, "a level above 9 is on");
  }
  if (!idempotent) fault(input, "trace levels applied twice differ from once");
}

// A normal path is its own normal form: components joined by single "/".
void cellPath(std::string_view input) {
  Kel::String p;
  try {
    p = Cell::path(input);
  } catch (const Kel::ParseError&) {
    if (input.find_first_not_of('/') != std::string_view::npos) {
      fault(input, "a path with a component refused");
    }
    return;
  }
  const std::string_view v = p.view();
  if (v.front() == '/' || v.back() == '/' || v.find("//") != std::string_view::npos ||
      !(Cell::path(v) == p)) {
    fault(input, "normal form " + Kel::quoteStrep(v) + " is not normal");
  }
}

}  // namespace

const std::vector<FuzzTarget>& textTargets() {
  static const std::vector<FuzzTarget> targets = {
      {"toggles", toggles},
      {"trace-levels", traceLevels},
      {"cell-path", cellPath},
  };
  return targets;
}

}  // namespace IpRibFuzz
