#include <gtest/gtest.h>

#include <csignal>

#include "Kel/Assert.h"

namespace {

void checkPositive(int value) { KEL_ASSERT(value > 0); }

TEST(AssertDeathTest, AbortsNamingExpressionModuleAndFunction) {
  checkPositive(1);
  EXPECT_EXIT(
      checkPositive(-3), ::testing::KilledBySignal(SIGABRT),
      "^Assertion failed: \"value > 0\" in module AssertDeathTest, function checkPositive\n");
}

TEST(AssertDeathTest, TheModuleIsTheFileNameUpToItsFirstDot) {
  EXPECT_DEATH(Kel::assertionFailed("x", "IpRib/sub/ProtocolRootSm.tac.cpp", "f"),
               "^Assertion failed: \"x\" in module ProtocolRootSm, function f\n");
  EXPECT_DEATH(Kel::assertionFailed("y", "Bare.h", "g"),
               "^Assertion failed: \"y\" in module Bare, function g\n");
}

}  // namespace
