#include "platform/Flipset/Flipset.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

namespace Flipset {

namespace {

struct Default {
  std::string_view name;
  bool on;
};
constexpr Default defaults[] = {
    {"StaticRouteMetric", true},
    {"PacedViaMetricSweep", false},
    {"SingleRouteReactor", false},
    {"DeferredViaFilingStamp", false},
};

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::optional<Toggles> parse(std::string& error) {
    Toggles toggles;
    skipSpace();
    if (!consume('{')) return fail(error, "expected '{'");
    skipSpace();
    if (!consume('}')) {
      for (;;) {
        skipSpace();
        std::string name;
        if (!string(name)) return fail(error, what_);
        skipSpace();
        if (!consume(':')) return fail(error, "expected ':'");
        skipSpace();
        bool value;
        if (text_.substr(pos_).starts_with("true")) {
          value = true;
          pos_ += 4;
        } else if (text_.substr(pos_).starts_with("false")) {
          value = false;
          pos_ += 5;
        } else {
          return fail(error, "expected true or false");
        }
        toggles.insert_or_assign(std::move(name), value);
        skipSpace();
        if (consume('}')) break;
        if (!consume(',')) return fail(error, "expected ',' or '}'");
      }
    }
    skipSpace();
    if (pos_ != text_.size()) return fail(error, "unexpected text after the object");
    return toggles;
  }

 private:
  void skipSpace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' ||
                                   text_[pos_] == '\n' || text_[pos_] == '\r')) {
      ++pos_;
    }
  }
  bool consume(char c) {
    if (pos_ < text_.size() && text_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }
  // A double-quoted string with the escapes \" \\ \/ \b \f \n \r \t.
  bool string(std::string& out) {
    if (!consume('"')) return what("expected a quoted toggle name");
    while (pos_ < text_.size()) {
      const char c = text_[pos_++];
      if (c == '"') return true;
      if (uint8_t(c) < 0x20) return what("control character in a string");
      if (c != '\\') {
        out += c;
        continue;
      }
      if (pos_ == text_.size()) break;
      switch (text_[pos_++]) {
        case '"':
          out += '"';
          break;
        case '\\':
          out += '\\';
          break;
        case '/':
          out += '/';
          break;
        case 'b':
          out += '\b';
          break;
        case 'f':
          out += '\f';
          break;
        case 'n':
          out += '\n';
          break;
        case 'r':
          out += '\r';
          break;
        case 't':
          out += '\t';
          break;
        default:
          --pos_;
          return what("unsupported escape in a string");
      }
    }
    return what("unterminated string");
  }
  bool what(const char* w) {
    what_ = w;
    return false;
  }
  std::nullopt_t fail(std::string& error, const char* w) {
    error = std::string(w) + " at offset " + std::to_string(pos_);
    return std::nullopt;
  }

  std::string_view text_;
  size_t pos_ = 0;
  const char* what_ = "";
};

// The file's values and the overrides; empty until the first call.
std::optional<Toggles>& cache() {
  static std::optional<Toggles> toggles;
  return toggles;
}

// The toggles file to read, or empty when there is none.
std::string togglesPath() {
  if (const char* env = std::getenv("IPRIB_TOGGLES")) return env;
  for (const char* path : {"IpRib.json", "/etc/IpRib.json"}) {
    if (std::ifstream(path).good()) return path;
  }
  return {};
}

Toggles load() {
  const std::string path = togglesPath();
  if (path.empty()) return {};
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    // Only a path named by IPRIB_TOGGLES can be missing here.
    std::cerr << "Flipset: " << path << ": cannot be read; toggles file ignored" << std::endl;
    return {};
  }
  std::ostringstream text;
  text << in.rdbuf();
  std::string error;
  std::optional<Toggles> toggles = parseToggles(text.str(), error);
  if (!toggles) {
    std::cerr << "Flipset: " << path << ": " << error << "; toggles file ignored" << std::endl;
    return {};
  }
  return std::move(*toggles);
}

Toggles& toggles() {
  std::optional<Toggles>& c = cache();
  if (!c) c = load();
  return *c;
}

}  // namespace

std::optional<Toggles> parseToggles(std::string_view text, std::string& error) {
  return Parser(text).parse(error);
}

bool getToggleState(std::string_view name) {
  const Toggles& t = toggles();
  if (auto it = t.find(name); it != t.end()) return it->second;
  for (const Default& d : defaults) {
    if (d.name == name) return d.on;
  }
  return false;
}

namespace {
uint64_t version = 0;
}  // namespace

void toggleStateIs(std::string_view name, bool on) {
  toggles().insert_or_assign(std::string(name), on);
  ++version;
}

void reloadToggles() {
  cache().reset();
  ++version;
}

uint64_t togglesVersion() { return version; }

}  // namespace Flipset
