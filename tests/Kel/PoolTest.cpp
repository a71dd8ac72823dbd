#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <vector>

#include "Kel/Pool.h"
#include "Kel/Ptr.h"

namespace {

struct Small final : Kel::PtrInterface {
  char bytes[20];  // 32 bytes with the vptr and count: one 32-byte block
};

TEST(PoolTest, BlocksAreCountedByRequestAndReusedWithinTheirClass) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "sanitizer builds take every block from the heap";
#endif
  const Kel::Pool::Usage before = Kel::Pool::usage();
  const size_t live40 = Kel::Pool::liveBlocks(40);
  void* a = Kel::Pool::allocate(33);
  void* b = Kel::Pool::allocate(40);
  EXPECT_NE(a, b);
  EXPECT_EQ(Kel::Pool::liveBlocks(40), live40 + 2) << "33 and 40 bytes share the 40-byte class";
  EXPECT_EQ(Kel::Pool::usage().requested - before.requested, 73u);
  EXPECT_EQ(Kel::Pool::usage().held - before.held, 80u);

  Kel::Pool::deallocate(a, 33);
  EXPECT_EQ(Kel::Pool::allocate(39), a) << "the freed block comes back first";
  Kel::Pool::deallocate(a, 39);
  Kel::Pool::deallocate(b, 40);
  EXPECT_EQ(Kel::Pool::usage().requested, before.requested);
  EXPECT_EQ(Kel::Pool::usage().held, before.held);

  // Every block freed in a class is used again before a new one is carved.
  void* freed[3];
  for (void*& p : freed) p = Kel::Pool::allocate(24);
  for (void* p : freed) Kel::Pool::deallocate(p, 24);
  std::set<void*> again;
  for (int i = 0; i < 3; ++i) again.insert(Kel::Pool::allocate(24));
  EXPECT_EQ(again, std::set<void*>(std::begin(freed), std::end(freed)));
  for (void* p : again) Kel::Pool::deallocate(p, 24);

  void* large = Kel::Pool::allocate(Kel::Pool::largest + 1);
  EXPECT_EQ(Kel::Pool::usage().held, before.held) << "large blocks come from the heap";
  Kel::Pool::deallocate(large, Kel::Pool::largest + 1);
}

TEST(PoolTest, ReferenceCountedObjectsLiveInThePool) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "sanitizer builds take every block from the heap";
#endif
  static_assert(sizeof(Small) == 32);
  const size_t before = Kel::Pool::liveBlocks(32);
  std::vector<Kel::Ptr<Small>> many;
  for (int i = 0; i < 5000; ++i) many.push_back(Kel::makePtr<Small>());  // spans chunks
  EXPECT_EQ(Kel::Pool::liveBlocks(32), before + 5000);
  many.clear();
  EXPECT_EQ(Kel::Pool::liveBlocks(32), before);
}

}  // namespace
