// Routing::AnswerOverride: answers of the RIB library that a test or an
// agent's configuration sets against their defaults, by key (a protocol
// number, or the (rib, address family, protocol name) of a table).
//
// answer() gives the set answer or the default; O(log n) in the answers set.
// One thread, like the rest of the agent. Decided here: the overrides are
// process state of the library, as a RIB library's configuration is.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <tuple>

namespace Routing {

template <class Key>
class AnswerOverride {
 public:
  // The set answer, else `fallback`.
  bool answer(const Key& k, bool fallback) const {
    const auto it = answer_.find(k);
    return it == answer_.end() ? fallback : it->second;
  }
  void answerIs(const Key& k, bool answer) { answer_[k] = answer; }
  void reset() { answer_.clear(); }

 private:
  std::map<Key, bool> answer_;
};

// The key of a table: (rib, address family, protocol name).
using TableKey = std::tuple<std::string, std::string, std::string>;
inline TableKey tableKey(std::string_view rib, std::string_view af, std::string_view protocol) {
  return {std::string(rib), std::string(af), std::string(protocol)};
}

}  // namespace Routing
