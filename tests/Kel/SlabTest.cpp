#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <vector>

#include "Kel/Slab.h"

namespace {

// Blocks over several regions: handles, owner, marks and the walk, and the
// memory of a slab that empties.
TEST(SlabTest, BlocksFindTheirSlabAndHandlesAndAnEmptySlabHoldsNothing) {
  const Kel::Slab::Usage before = Kel::Slab::usage();
  int owner = 0;
  Kel::Slab slab(24, &owner);
  std::vector<void*> blocks;
  for (int i = 0; i < 10000; ++i) blocks.push_back(slab.allocate());  // several regions
  EXPECT_EQ(slab.size(), 10000u);
  EXPECT_EQ(Kel::Slab::usage().requested - before.requested, 240000u);
  EXPECT_GT(Kel::Slab::usage().held - before.held, 240000u) << "the region headers count too";
  std::set<uint32_t> handles;
  for (void* b : blocks) {
    EXPECT_EQ(&Kel::Slab::of(b), &slab);
    EXPECT_EQ(slab.block(slab.handleOf(b)), b);
    handles.insert(slab.handleOf(b));
  }
  EXPECT_EQ(handles.size(), blocks.size());
  EXPECT_EQ(slab.owner(), &owner);

  // Every third block marked; the walk frees the marked ones as it goes.
  for (size_t i = 0; i < blocks.size(); i += 3) Kel::Slab::markIs(blocks[i], true);
  EXPECT_TRUE(Kel::Slab::marked(blocks[3]));
  EXPECT_FALSE(Kel::Slab::marked(blocks[4]));
  std::set<void*> seen;
  slab.forEachMarked([&](void* p) {
    seen.insert(p);
    Kel::Slab::deallocate(p);
  });
  EXPECT_EQ(seen.size(), (blocks.size() + 2) / 3);
  EXPECT_EQ(slab.size(), blocks.size() - seen.size());

  // A freed block is reused, unmarked.
  void* again = slab.allocate();
  EXPECT_TRUE(seen.count(again));
  EXPECT_FALSE(Kel::Slab::marked(again));
  Kel::Slab::deallocate(again);

  for (size_t i = 0; i < blocks.size(); ++i) {
    if (i % 3 != 0) Kel::Slab::deallocate(blocks[i]);
  }
  EXPECT_EQ(slab.size(), 0u);
  EXPECT_EQ(Kel::Slab::usage().requested, before.requested);
  EXPECT_EQ(Kel::Slab::usage().held, before.held) << "every region was given back";
  // And it starts again from nothing.
  Kel::Slab::deallocate(slab.allocate());
}

// Past its first few regions a slab takes huge-page ones, shared by every
// slab: those another slab gave back are carved again, with no mark and no
// block of the first left in them, and each block handed out once. A slab
// kept alive holds the huge page, so that it stays mapped throughout.
TEST(SlabTest, AHugePageRegionGivenBackComesAgainClean) {
  const auto fill = [](Kel::Slab& slab, int n) {
    std::vector<void*> blocks;
    for (int i = 0; i < n; ++i) blocks.push_back(slab.allocate());
    return blocks;
  };
  // Blocks enough for the small regions and a huge-page one or two.
  const int blocks = int((Kel::Slab::smallRegions + 1) * Kel::Slab::regionBytes / 64);
  Kel::Slab keeper(64);
  const std::vector<void*> kept = fill(keeper, blocks);
  std::set<void*> firstBlocks;
  {
    Kel::Slab first(64);
    const std::vector<void*> carved = fill(first, blocks);
    for (void* b : carved) Kel::Slab::markIs(b, true);
    for (void* b : carved) Kel::Slab::deallocate(b);
    firstBlocks.insert(carved.begin(), carved.end());
  }
  Kel::Slab second(64);
  const std::vector<void*> carved = fill(second, blocks);
  const std::set<void*> distinct(carved.begin(), carved.end());
  EXPECT_EQ(distinct.size(), carved.size());
  size_t reused = 0;
  for (void* b : carved) reused += firstBlocks.count(b);
  EXPECT_GT(reused, 0u) << "the first slab's huge-page region was carved again";
  size_t marked = 0;
  second.forEachMarked([&](void*) { ++marked; });
  EXPECT_EQ(marked, 0u);
  for (void* b : carved) Kel::Slab::deallocate(b);
  for (void* b : kept) Kel::Slab::deallocate(b);
}

TEST(SlabDeathTest, ASlabGoesOnlyOnceEmpty) {
  EXPECT_DEATH(
      {
        Kel::Slab slab(16);
        slab.allocate();
      },
      "live_ == 0");
}

}  // namespace
