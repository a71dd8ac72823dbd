#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

#include "Kel/Prefetch.h"

namespace {

TEST(LookaheadTest, EachElementGetsEveryStageInOrderSpacedApart) {
  Kel::Lookahead<int, 3, 2> ahead;
  // (push during which it ran, stage) per element.
  std::map<int, std::vector<std::pair<int, int>>> calls;
  int pushing = 0;
  const auto push = [&](int element) {
    ahead.push(element, [&](int e, int stage) { calls[e].emplace_back(pushing, stage); });
    ++pushing;
  };
  for (int e = 0; e < 10; ++e) push(e);
  for (int e = 0; e < 10; ++e) {
    std::vector<std::pair<int, int>> expected;
    for (int stage = 0; stage < 3 && e + 2 * stage < 10; ++stage) {
      expected.emplace_back(e + 2 * stage, stage);
    }
    EXPECT_EQ(calls[e], expected) << "element " << e;
  }
  // After a jump, the elements pushed before get nothing more.
  calls.clear();
  ahead.clear();
  for (int e = 100; e < 105; ++e) push(e);
  EXPECT_EQ(calls.size(), 5u);
  EXPECT_EQ(calls.begin()->first, 100);
  EXPECT_EQ(calls[100].size(), 3u);
}

}  // namespace
