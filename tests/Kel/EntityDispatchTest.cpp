#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Hash.h"
#include "Kel/NestedReactors.h"
#include "Kel/Slab.h"

using Strings = std::vector<std::string>;

namespace {

// Live instances of each test type: a leak or a double free shows here.
template <class T>
struct Live {
  static inline int count = 0;
  Live() { ++count; }
  ~Live() { --count; }
};

struct Name {
  uint32_t v;
  uint32_t hash(uint32_t seed) const { return Kel::Hasher(seed).add(v).result(); }
  bool operator==(const Name&) const = default;
  bool operator<(const Name& o) const { return v < o.v; }
};

class Item final : public Kel::Entity, Live<Item> {
 public:
  class Notifiee : public Kel::NotifieeOf<Item> {
   public:
    virtual void onValue() {}
    virtual void onFiled() {}
  };
  explicit Item(Name key) : key_(key) {}
  const char* typeName() const override { return "Test::Item"; }
  const Name& key() const { return key_; }
  uint32_t value() const { return value_; }
  void valueIs(uint32_t v) { attributeIs(value_, v, &Notifiee::onValue); }
  // In its box; a box tells the item's reactors first when it lets it go.
  bool filed() const { return filed_; }
  void filedIs(bool v) { attributeIs(filed_, v, &Notifiee::onFiled); }

 private:
  Name key_;
  uint32_t value_ = 0;
  bool filed_ = true;
};

// A box: one scalar and a hashed collection of items.
class Box final : public Kel::Entity, Live<Box> {
 public:
  class Notifiee : public Kel::NotifieeOf<Box> {
   public:
    virtual void onLevel() {}
    virtual void onItem(const Name&) {}
  };
  const char* typeName() const override { return "Test::Box"; }
  uint32_t level() const { return level_; }
  void levelIs(uint32_t v) { attributeIs(level_, v, &Notifiee::onLevel); }
  Kel::Ptr<Item> item(Name k) const {
    const auto* e = item_.find(k);
    return e ? *e : nullptr;
  }
  const Kel::HashedPtrMap<Name, Item, &Item::key>& item() const { return item_; }
  Kel::Ptr<Item> itemIs(Name k) {
    if (const auto* e = item_.find(k)) return *e;
    Kel::Ptr<Item> i = *item_.insert(Kel::makePtr<Item>(k)).first;
    notifyKey(&Notifiee::onItem, k);
    return i;
  }
  void itemDel(Name k) {
    std::optional<Kel::Ptr<Item>> gone = item_.extract(k);
    if (!gone) return;
    (*gone)->filedIs(false);
    gone.reset();
    notifyKey(&Notifiee::onItem, k);
  }

 private:
  uint32_t level_ = 0;
  Kel::HashedPtrMap<Name, Item, &Item::key> item_;
};

// A box reactor that logs what it hears, then runs the test's action. The
// action is copied before it runs: it may destroy this probe.
class Probe final : public Box::Notifiee, Live<Probe> {
 public:
  Probe(Box* b, std::string name, Strings* log) : name_(std::move(name)), log_(log) {
    notifierIs(b);
  }
  void onLevel() override {
    log_->push_back(name_ + " level " + std::to_string(notifier()->level()));
    if (auto act = onLevelDo) act();
  }
  void onItem(const Name& k) override {
    log_->push_back(name_ + " item " + std::to_string(k.v) + (notifier()->item(k) ? "+" : "-"));
    if (auto act = onItemDo) act(k);
  }
  void handleNested(const Kel::Entity& e) override {
    const auto* item = dynamic_cast<const Item*>(&e);
    log_->push_back(name_ + " nested " + (item ? std::to_string(item->key().v) : "box"));
    if (auto act = onNestedDo) act();
  }
  std::function<void()> onLevelDo;
  std::function<void(const Name&)> onItemDo;
  std::function<void()> onNestedDo;

 private:
  std::string name_;
  Strings* log_;
};

class ItemProbe final : public Item::Notifiee, Live<ItemProbe> {
 public:
  explicit ItemProbe(Item* i, Strings* log = nullptr) : log_(log) { notifierIs(i); }
  void onValue() override {
    if (log_) log_->push_back("item " + std::to_string(notifier()->value()));
    if (auto act = onValueDo) act();
  }
  std::function<void()> onValueDo;

 private:
  Strings* log_;
};

class EntityDispatchTest : public ::testing::Test {
 protected:
  void TearDown() override {
    probes_.clear();
    box_ = nullptr;
    EXPECT_EQ(Live<Box>::count, 0);
    EXPECT_EQ(Live<Item>::count, 0);
    EXPECT_EQ(Live<Probe>::count, 0);
    EXPECT_EQ(Live<ItemProbe>::count, 0);
  }
  Probe& bind(const std::string& name) {
    return *(probes_[name] = Kel::makePtr<Probe>(box_.ptr(), name, &log_));
  }

  Kel::Ptr<Box> box_ = Kel::makePtr<Box>();
  Strings log_;
  std::map<std::string, Kel::Ptr<Probe>> probes_;
};

TEST_F(EntityDispatchTest, RealChangesOnlyInBindingOrder) {
  bind("c");
  bind("a");
  bind("b");
  box_->levelIs(0);
  box_->levelIs(3);
  box_->levelIs(3);
  box_->itemIs({1});
  box_->itemIs({1});
  box_->itemDel({1});
  box_->itemDel({1});
  EXPECT_EQ(log_, (Strings{"c level 3", "a level 3", "b level 3", "c item 1+", "a item 1+",
                           "b item 1+", "c item 1-", "a item 1-", "b item 1-"}));
}

// The count of dispatches moves on every change heard, and on no other:
// callers rely on an unchanged count meaning that no reactor ran.
TEST_F(EntityDispatchTest, DispatchesCountChangesThatReactorsHear) {
  const uint64_t start = Kel::Entity::dispatches();
  box_->levelIs(1);  // no reactor yet
  box_->itemIs({1});
  EXPECT_EQ(Kel::Entity::dispatches(), start);
  bind("a");
  box_->levelIs(1);  // no change
  EXPECT_EQ(Kel::Entity::dispatches(), start);
  box_->levelIs(2);
  box_->itemIs({2});
  EXPECT_EQ(Kel::Entity::dispatches(), start + 2);
}

TEST_F(EntityDispatchTest, HandlersUnbindOthersThemselvesAndBindNewOnes) {
  bind("a").onLevelDo = [this] {
    probes_.erase("c");
    if (!probes_.count("e")) bind("e");
  };
  bind("b").onLevelDo = [this] { probes_.erase("b"); };
  bind("c");
  bind("d");
  box_->levelIs(1);
  EXPECT_EQ(log_, (Strings{"a level 1", "b level 1", "d level 1"}));
  EXPECT_EQ(box_->notifieeCount(), 3u);
  EXPECT_EQ(Live<Probe>::count, 3);
  log_.clear();
  box_->levelIs(2);
  EXPECT_EQ(log_, (Strings{"a level 2", "d level 2", "e level 2"}));
}

TEST_F(EntityDispatchTest, NestedChangesReachEveryReactorOnceWithTheCurrentValue) {
  bind("a").onLevelDo = [this] {
    if (box_->level() == 1) bind("c");  // hears the nested changes, not this one
    if (box_->level() < 5) box_->levelIs(box_->level() + 1);
  };
  bind("b");
  box_->levelIs(1);
  EXPECT_EQ(log_, (Strings{"a level 1", "a level 2", "a level 3", "a level 4", "a level 5",
                           "b level 5", "c level 5", "b level 5", "c level 5", "b level 5",
                           "c level 5", "b level 5", "c level 5", "b level 5"}));
}

TEST_F(EntityDispatchTest, HandlerDeletesTheElementItHearsAbout) {
  bind("x").onItemDo = [this](const Name& k) { box_->itemDel(k); };
  bind("y");
  box_->itemIs({9});
  EXPECT_EQ(log_, (Strings{"x item 9+", "x item 9-", "y item 9-", "y item 9-"}));
  EXPECT_EQ(Live<Item>::count, 0);
}

TEST_F(EntityDispatchTest, HandlerDropsEveryReferenceToTheNotifyingItem) {
  Item* item = box_->itemIs({7}).ptr();
  auto first = Kel::makePtr<ItemProbe>(item);
  auto second = Kel::makePtr<ItemProbe>(item);
  first->onValueDo = [&] {
    box_->itemDel({7});
    second = nullptr;
    first = nullptr;
  };
  item->valueIs(5);
  EXPECT_EQ(Live<Item>::count, 0);
  EXPECT_EQ(Live<ItemProbe>::count, 0);
}

TEST_F(EntityDispatchTest, AHandlerThatThrowsLeavesTheEntityAsItWas) {
  bind("a").onLevelDo = [] { throw std::runtime_error("bad value"); };
  bind("b");
  Item* item = box_->itemIs({4}).ptr();
  auto probe = Kel::makePtr<ItemProbe>(item);
  probe->onValueDo = [] { throw std::runtime_error("bad value"); };
  EXPECT_THROW(box_->levelIs(1), std::runtime_error);
  EXPECT_THROW(item->valueIs(1), std::runtime_error);
  // The next change is dispatched as usual, and nothing is kept alive.
  log_.clear();
  probes_["a"]->onLevelDo = nullptr;
  box_->levelIs(2);
  EXPECT_EQ(log_, (Strings{"a level 2", "b level 2"}));
  probe = nullptr;
  box_->itemDel({4});
  EXPECT_EQ(Live<Item>::count, 0);
}

TEST_F(EntityDispatchTest, HandlerDropsTheLastReferenceToTheEntity) {
  bind("a").onLevelDo = [this] {
    box_ = nullptr;
    probes_.clear();
  };
  bind("b");
  Box* box = box_.ptr();
  box->levelIs(4);
  EXPECT_EQ(log_, Strings{"a level 4"});
  EXPECT_EQ(Live<Box>::count, 0);
}

// Watches a box and, through nested reactors, each of its items.
class BoxWatcher final : public Box::Notifiee, Live<BoxWatcher> {
 public:
  class KelItem final : public Item::Notifiee, Live<KelItem> {
   public:
    KelItem(Item* i, BoxWatcher* owner) : owner_(owner) { notifierIs(i); }
    const Name& key() const { return notifier()->key(); }
    void onValue() override { owner_->log.push_back("value " + std::to_string(key().v)); }
    void handleDel() override {
      owner_->log.push_back("del " + std::to_string(key().v) + " live " +
                            std::to_string(Live<KelItem>::count));
    }

   private:
    BoxWatcher* owner_;
  };

  explicit BoxWatcher(Box* b) : items(this) {
    notifierIs(b);
    for (const auto& i : b->item()) add(i.ptr());
  }
  void onItem(const Name& k) override {
    if (auto i = notifier()->item(k)) {
      add(i.ptr());
    } else {
      items.erase(k);
    }
  }
  void add(Item* i) { items.insert(Kel::makePtr<KelItem>(i, this)); }

  Kel::NestedReactors<Name, KelItem> items;
  Strings log;
};

TEST_F(EntityDispatchTest, NestedReactorsFollowTheCollectionAndTheParentsActiveState) {
  box_->itemIs({1});
  box_->itemIs({2});
  auto w = Kel::makePtr<BoxWatcher>(box_.ptr());
  ASSERT_EQ(w->items.size(), 2u);
  box_->item({1})->valueIs(10);

  w->hasNotificationActiveIs(false);
  EXPECT_FALSE(w->items.find({1})->hasNotificationActive());
  box_->item({2})->valueIs(5);
  box_->itemIs({3});  // unheard: the parent is off
  EXPECT_EQ(w->items.size(), 2u);
  w->add(box_->item({3}).ptr());
  EXPECT_FALSE(w->items.find({3})->hasNotificationActive()) << "inherits the parent's state";
  box_->item({3})->valueIs(1);

  w->hasNotificationActiveIs(true);
  box_->item({3})->valueIs(2);
  w->items.find({1})->hasNotificationActiveIs(false);
  box_->item({1})->valueIs(11);
  box_->itemDel({2});
  box_->itemDel({2});
  EXPECT_EQ(w->log, (Strings{"value 1", "value 3", "del 2 live 3"}));
  EXPECT_EQ(w->items.find({2}), nullptr);
  EXPECT_EQ(Live<BoxWatcher::KelItem>::count, 2);

  w->log.clear();
  Strings dels;  // in the collection's order, each before its reactor goes
  int live = 2;
  for (const auto& r : w->items) {
    dels.push_back("del " + std::to_string(r->key().v) + " live " + std::to_string(live--));
  }
  w->items.clear();
  EXPECT_EQ(w->log, dels);
  EXPECT_EQ(Live<BoxWatcher::KelItem>::count, 0);
  w = nullptr;
  EXPECT_EQ(Live<BoxWatcher>::count, 0);
}

TEST_F(EntityDispatchTest, DroppingATreeWithReactorsLeaksNothing) {
  for (const bool boxFirst : {true, false}) {
    SCOPED_TRACE(boxFirst ? "box dropped first" : "watcher dropped first");
    box_ = Kel::makePtr<Box>();
    for (uint32_t k = 0; k < 50; ++k) box_->itemIs({k});
    auto w = Kel::makePtr<BoxWatcher>(box_.ptr());
    auto p = Kel::makePtr<ItemProbe>(box_->item({3}).ptr());
    for (uint32_t k = 0; k < 50; k += 5) box_->itemDel({k});
    EXPECT_EQ(w->items.size(), 40u);
    EXPECT_EQ(Live<BoxWatcher::KelItem>::count, 40);
    if (boxFirst) {
      box_ = nullptr;
      EXPECT_EQ(Live<Box>::count, 1) << "the watcher holds it";
    }
    w = nullptr;
    p = nullptr;
    box_ = nullptr;
    EXPECT_EQ(Live<Box>::count, 0);
    EXPECT_EQ(Live<Item>::count, 0);
    EXPECT_EQ(Live<BoxWatcher>::count, 0);
    EXPECT_EQ(Live<BoxWatcher::KelItem>::count, 0);
    EXPECT_EQ(Live<ItemProbe>::count, 0);
  }
}

// Watches a box and each item through reactors kept in a slab, reached
// through their items; an item's reactor leaves when the item is let go.
class SlabWatcher final : public Box::Notifiee, Live<SlabWatcher> {
 public:
  class KelItem final : public Item::Notifiee, Live<KelItem> {
   public:
    explicit KelItem(Item* i) { notifierIs(i); }
    static void* operator new(std::size_t size, Kel::Slab& slab) {
      return Kel::NestedReactorSlab<KelItem>::slabAllocate(size, slab);
    }
    static void operator delete(void* p) { Kel::Slab::deallocate(p); }
    static void operator delete(void* p, Kel::Slab&) { Kel::Slab::deallocate(p); }

    void onValue() override {
      owner()->log.push_back("value " + std::to_string(notifier()->key().v));
    }
    void onFiled() override {
      if (!notifier()->filed()) owner()->items.erase(this);
    }
    void handleDel() override {
      owner()->log.push_back("del " + std::to_string(notifier()->key().v));
      // A second erase from inside handleDel changes nothing.
      owner()->items.erase(this);
      if (owner()->erasePartners) owner()->erase(notifier()->key().v ^ 1);
    }
    void readAhead(int step) const override {
      owner()->log.push_back("ahead " + std::to_string(notifier()->key().v) + " step " +
                             std::to_string(step));
    }
    static constexpr int dropSteps = 2;
    void readAheadDrop(int step) const {
      owner()->log.push_back("drop ahead " + std::to_string(notifier()->key().v) + " step " +
                             std::to_string(step));
    }

   private:
    SlabWatcher* owner() const {
      return static_cast<SlabWatcher*>(Kel::NestedReactorSlab<KelItem>::owner(this));
    }
  };

  explicit SlabWatcher(Box* b) : items(this) {
    notifierIs(b);
    for (const auto& i : b->item()) items.make(i.ptr());
  }
  void onItem(const Name& k) override {
    if (auto i = notifier()->item(k)) {
      items.make(i.ptr());
    } else {
      log.push_back("box lost " + std::to_string(k.v));
    }
  }

  // The reactor of item `v`, if any, dropped.
  void erase(uint32_t v) {
    KelItem* found = nullptr;
    items.forEach([&](KelItem* r) {
      if (r->notifier()->key().v == v) found = r;
    });
    if (found) items.erase(found);
  }

  Kel::NestedReactorSlab<KelItem> items;
  Strings log;
  bool erasePartners = false;  // a reactor leaving takes its item's partner's (v ^ 1) along
};

TEST_F(EntityDispatchTest, SlabReactorsLeaveWithTheirItemsAndFollowTheParent) {
  box_->itemIs({1});
  auto w = Kel::makePtr<SlabWatcher>(box_.ptr());
  box_->itemIs({2});
  box_->itemIs({3});
  EXPECT_EQ(w->items.size(), 3u);
  box_->itemDel({2});
  EXPECT_EQ(w->log, (Strings{"del 2", "box lost 2"})) << "the item's reactor hears first";
  EXPECT_EQ(w->items.size(), 2u);
  EXPECT_EQ(Live<SlabWatcher::KelItem>::count, 2);

  w->log.clear();
  w->hasNotificationActiveIs(false);
  box_->item({1})->valueIs(7);
  w->items.make(box_->itemIs({4}).ptr());
  box_->item({4})->valueIs(3);
  EXPECT_EQ(w->log, Strings{}) << "a reactor made while the parent is off is off";
  w->hasNotificationActiveIs(true);
  box_->item({4})->valueIs(1);
  EXPECT_EQ(w->log, Strings{"value 4"});

  w->log.clear();
  w->items.clear();
  std::sort(w->log.begin(), w->log.end());
  // The first reactor is two places behind the walk's end: asked one drop step.
  EXPECT_EQ(w->log, (Strings{"del 1", "del 3", "del 4", "drop ahead 1 step 0"}));
  EXPECT_TRUE(w->items.empty());
  EXPECT_EQ(Live<SlabWatcher::KelItem>::count, 0);
  w = nullptr;
  EXPECT_EQ(Live<SlabWatcher>::count, 0);
}

TEST_F(EntityDispatchTest, ClearingASlabDropsEachReactorOnceThoughOneTakesAnotherAlong) {
  // More reactors than the clear's look-behind, so that a partner may be
  // still ahead of the walk, or already seen and waiting to be dropped.
  constexpr uint32_t count = 40;
  for (uint32_t v = 0; v < count; ++v) box_->itemIs({v});
  auto w = Kel::makePtr<SlabWatcher>(box_.ptr());
  w->erasePartners = true;
  w->items.clear();
  std::erase_if(w->log, [](const std::string& line) { return line.starts_with("drop ahead"); });
  std::sort(w->log.begin(), w->log.end());
  Strings expected;
  for (uint32_t v = 0; v < count; ++v) expected.push_back("del " + std::to_string(v));
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(w->log, expected);
  EXPECT_TRUE(w->items.empty());
  EXPECT_EQ(Live<SlabWatcher::KelItem>::count, 0);
  w = nullptr;
}

// Each reactor is asked for its drop steps in order, all before it goes; only
// the last few, dropped when the walk has ended, may miss some.
TEST_F(EntityDispatchTest, ClearingASlabReadsEachReactorAheadInStepsBeforeDroppingIt) {
  constexpr uint32_t count = 40, lead = 8;
  for (uint32_t v = 0; v < count; ++v) box_->itemIs({v});
  auto w = Kel::makePtr<SlabWatcher>(box_.ptr());
  w->items.clear();
  std::map<uint32_t, std::vector<int>> steps;
  std::set<uint32_t> dropped;
  for (const std::string& line : w->log) {
    uint32_t v = 0;
    int step = 0;
    if (std::sscanf(line.c_str(), "drop ahead %u step %d", &v, &step) == 2) {
      EXPECT_FALSE(dropped.count(v)) << "asked after it went: " << line;
      steps[v].push_back(step);
    } else {
      ASSERT_EQ(std::sscanf(line.c_str(), "del %u", &v), 1) << line;
      dropped.insert(v);
    }
  }
  EXPECT_EQ(dropped.size(), count);
  uint32_t complete = 0;
  for (const auto& [v, got] : steps) {
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i], int(i)) << "item " << v;
    complete += got.size() == size_t(SlabWatcher::KelItem::dropSteps);
  }
  EXPECT_GE(complete, count - lead);
  w = nullptr;
}

TEST_F(EntityDispatchTest, ReadAheadReachesActiveReactorsAfterTheListSteps) {
  box_->itemIs({1});
  box_->itemIs({2});
  auto w = Kel::makePtr<SlabWatcher>(box_.ptr());
  const Item& alone = *box_->item({1});  // one reactor, kept inline
  Item& shared = *box_->item({2});
  auto other = Kel::makePtr<ItemProbe>(&shared);  // a second: a reactor list
  for (int step = 0; step < Kel::Entity::reactorListSteps + 2; ++step) {
    alone.readAheadReactors(step);
    shared.readAheadReactors(step);
  }
  EXPECT_EQ(w->log,
            (Strings{"ahead 1 step 0", "ahead 2 step 0", "ahead 1 step 1", "ahead 2 step 1"}));
  w->log.clear();
  w->hasNotificationActiveIs(false);
  shared.readAheadReactors(Kel::Entity::reactorListSteps);
  EXPECT_TRUE(w->log.empty()) << "an inactive reactor is not asked";
  box_->itemIs({9})->readAheadReactors(Kel::Entity::reactorListSteps);  // no reactor: nothing
  other = nullptr;
  w = nullptr;
}

TEST_F(EntityDispatchTest, LinkedEntitiesPassTheirChangesUpInTheLinksPlace) {
  const Kel::Ptr<Box> outer = Kel::makePtr<Box>();
  const auto outerProbe = Kel::makePtr<Probe>(outer.ptr(), "outer", &log_);
  const Kel::Ptr<Item> item = box_->itemIs({1});
  bind("a");
  const auto before = Kel::makePtr<ItemProbe>(item.ptr(), &log_);
  item->nestedParentIs(box_.ptr());
  const auto after = Kel::makePtr<ItemProbe>(item.ptr(), &log_);
  box_->nestedParentIs(outer.ptr());
  EXPECT_EQ(item->nestedParent(), box_.ptr());
  EXPECT_EQ(item->notifieeCount(), 2u) << "a link is no reactor";
  item->valueIs(5);
  EXPECT_EQ(log_, (Strings{"item 5", "a nested 1", "outer nested box", "item 5"}));

  log_.clear();
  box_->levelIs(2);  // the box's own change goes up too
  EXPECT_EQ(log_, (Strings{"a level 2", "outer nested box"}));

  // A handler may unlink the child it hears about; inactive reactors hear nothing.
  log_.clear();
  probes_["a"]->onNestedDo = [&] { item->nestedParentIs(nullptr); };
  outerProbe->hasNotificationActiveIs(false);
  item->valueIs(6);
  item->valueIs(7);
  EXPECT_EQ(log_, (Strings{"item 6", "a nested 1", "item 6", "item 7", "item 7"}));
  EXPECT_EQ(item->nestedParent(), nullptr);

  // Alone on an entity, a link takes the reactor's word.
  log_.clear();
  const Kel::Ptr<Item> bare = box_->itemIs({2});
  log_.clear();
  bare->nestedParentIs(box_.ptr());
  EXPECT_EQ(bare->notifieeCount(), 0u);
  bare->valueIs(1);
  bare->nestedParentIs(nullptr);
  bare->valueIs(2);
  EXPECT_EQ(log_, (Strings{"a nested 2"}));
  box_->nestedParentIs(nullptr);
}

}  // namespace
