// One command line, split into words, and a cursor that reads it.
//
// `#` starts a comment; words are separated by blanks. Each reader takes the
// next word and either returns its value or throws CommandError naming the
// word (or the end of the line) and what was expected there, so that a
// command parses its whole line before it changes anything.
// Cost: a line is a few short strings; reading is linear in its length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/L3/VrfName.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenAddr.h"
#include "platform/Pando/IpGenPrefix.h"

namespace IpRibAgent {

// A refused line: `word` is the offending word (empty at the end of the line).
class CommandError : public std::runtime_error {
 public:
  CommandError(std::string word, std::string expected)
      : std::runtime_error(format(word, expected)), word_(std::move(word)) {}
  const std::string& word() const { return word_; }

 private:
  static std::string format(const std::string& word, const std::string& expected) {
    return (word.empty() ? std::string("at end of line") : "at '" + word + "'") + ": expected " +
           expected;
  }
  std::string word_;
};

// A next hop as commands write it: ADDRESS or ADDRESS%IFNAME.
struct NextHop {
  Pando::IpGenAddr addr;
  Pando::IntfId intf;
  friend bool operator==(const NextHop&, const NextHop&) = default;
  friend bool operator<(const NextHop& a, const NextHop& b) {
    return a.addr < b.addr || (a.addr == b.addr && a.intf < b.intf);
  }
};

class Line {
 public:
  explicit Line(std::string_view text);

  bool empty() const { return words_.empty(); }
  bool atEnd() const { return next_ == words_.size(); }
  // The next word without taking it; empty at the end.
  std::string_view peek() const;
  // Takes the next word if it is `word`.
  bool accept(std::string_view word);
  // The words from the first up to (not including) the next one.
  std::string consumed() const;

  // Takes the next word, which must be one of `choices`; returns its index.
  size_t keyword(std::initializer_list<std::string_view> choices);
  void expect(std::string_view word) { keyword({word}); }
  // Any word; `what` says what it stands for.
  std::string word(std::string_view what);
  uint64_t number(std::string_view what, uint64_t max);
  double seconds();
  L3::VrfName vrfName();
  Pando::IntfId intf();
  Pando::AddressFamily family();
  Pando::IpGenAddr address();
  Pando::IpGenPrefix prefix();
  NextHop nextHop();
  bool onOff();
  // The rest of the line, as written (for echo).
  std::string rest();
  // The line must end here.
  void end();

  // Refuses the word just taken with `expected`.
  [[noreturn]] void refuseLast(std::string expected) const;

 private:
  const std::string& take(std::string_view what);

  std::vector<std::string> words_;
  size_t next_ = 0;
};

}  // namespace IpRibAgent
