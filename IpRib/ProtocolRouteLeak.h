// The data of route leaking between VRFs: the keys that name a VRF side of a
// leak (VrfIdAf) and a leak direction (VrfPairAf), and the entities through
// which leaked routes flow from a source VRF to a destination VRF:
//
//   source mux:   LeakRouteDir (one LeakRoute per leaking route, owned)
//                 LeakRouteListSet -> LeakRouteList (one per destination)
//   registries:   LeakRouteListSetDir (every mux's set, by reference)
//                 LeakRouteListPtrSetDir (every demux's input, by reference)
//   destination:  LeakRouteListPtrSet (every list aimed at it, by reference)
//                 LeakRouteConfig (the chosen LeakRoute per key: the output)
//
// A LeakRoute's attributes are fixed when it is made; a change of its source
// route object is a new LeakRoute, so holders compare pointers to tell "same"
// from "changed". Every collection notifies its reactors at once with the
// element's key when an element is added, replaced or removed; writing the
// element already there notifies nobody. The leakRoute collections (keyed by
// Routing::RouteKey) are hash ordered with seek(), and give their memory
// back when they empty: a LeakRouteDir's is dense (8 bytes an entry plus 9
// to 18 bytes of index), the others open-addressed (9 to 18 bytes an entry,
// for cheap erases); all keep LeakRoutes by 32-bit handle. They hash with a
// seed of their own: they are filled by walking a route list in its order.
// Only the leak reactors (ProtocolRouteLeakSm) call the mutators.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "Kel/Assert.h"
#include "Kel/Collections.h"
#include "Kel/DenseHashTable.h"
#include "Kel/Entity.h"
#include "Kel/Slab.h"
#include "Kel/Strep.h"
#include "platform/Pando/AddressFamily.h"
#include "platform/Routing/Route/Route.h"
#include "platform/Vrf/VrfId.h"

namespace Routing::Protocol {

// ---------------------------------------------------------------- value types

// One side of a leak: a VRF and an address family.
//   Value('Routing::Protocol::VrfIdAf', ** {'vrfId': 3, 'af': ipv4}); str() "(3, ipv4)"
class VrfIdAf {
 public:
  VrfIdAf() = default;
  VrfIdAf(Vrf::VrfIdMap::VrfId vrfId, Pando::AddressFamily af) : vrfId_(vrfId), af_(af) {}
  VrfIdAf(Kel::StrepIt& it, Kel::StrepIt end);

  Vrf::VrfIdMap::VrfId vrfId() const { return vrfId_; }
  Pando::AddressFamily af() const { return af_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const VrfIdAf& o) const { return vrfId_ == o.vrfId_ && af_ == o.af_; }
  bool operator<(const VrfIdAf& o) const {
    return vrfId_ != o.vrfId_ ? vrfId_ < o.vrfId_ : int32_t(af_) < int32_t(o.af_);
  }
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = Vrf::VrfIdMap::invalidVrfId;
  Pando::AddressFamily af_ = Pando::AddressFamily::ipunknown;
};

// One leak direction.
//   Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': 1, 'dstVrf': 2, 'af': ipv6});
//   str() "(1-2, ipv6)"
class VrfPairAf {
 public:
  VrfPairAf() = default;
  VrfPairAf(Vrf::VrfIdMap::VrfId srcVrf, Vrf::VrfIdMap::VrfId dstVrf, Pando::AddressFamily af)
      : srcVrf_(srcVrf), dstVrf_(dstVrf), af_(af) {}
  VrfPairAf(Kel::StrepIt& it, Kel::StrepIt end);

  Vrf::VrfIdMap::VrfId srcVrf() const { return srcVrf_; }
  Vrf::VrfIdMap::VrfId dstVrf() const { return dstVrf_; }
  Pando::AddressFamily af() const { return af_; }

  uint32_t hash(uint32_t seed) const;
  bool operator==(const VrfPairAf& o) const {
    return srcVrf_ == o.srcVrf_ && dstVrf_ == o.dstVrf_ && af_ == o.af_;
  }
  bool operator<(const VrfPairAf& o) const;
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId srcVrf_ = Vrf::VrfIdMap::invalidVrfId;
  Vrf::VrfIdMap::VrfId dstVrf_ = Vrf::VrfIdMap::invalidVrfId;
  Pando::AddressFamily af_ = Pando::AddressFamily::ipunknown;
};

std::string valueToStrep(const VrfIdAf& v);
std::string valueToStrep(const VrfPairAf& v);
// The short forms, str().
std::ostream& operator<<(std::ostream& os, const VrfIdAf& v);
std::ostream& operator<<(std::ostream& os, const VrfPairAf& v);

// ------------------------------------------------------------------- entities

// One route of a source VRF that is to be leaked: the source route itself,
// shared, not copied. Its key is its route's key. LeakRoutes sit in one slab
// (Kel/Slab.h), so that the large tables that refer to them keep 32-bit
// handles (LeakRouteRef) instead of pointers.
class LeakRoute final : public Kel::Entity {
 public:
  LeakRoute(const VrfIdAf& vrfAf, Kel::Ptr<const Routing::Route> route)
      : vrfAf_(vrfAf), route_(std::move(route)) {}
  static void* operator new(std::size_t size) {
    KEL_ASSERT(size == slab().blockSize());
    return slab().allocate();
  }
  static void operator delete(void* p) { Kel::Slab::deallocate(p); }
  const char* typeName() const override { return "Routing::Protocol::LeakRoute"; }

  const VrfIdAf& vrfAf() const { return vrfAf_; }
  const Kel::Ptr<const Routing::Route>& route() const { return route_; }
  const Routing::RouteKey& key() const { return route_->key(); }

  uint32_t handle() const { return slab().handleOf(this); }
  static LeakRoute* of(uint32_t handle) { return static_cast<LeakRoute*>(slab().block(handle)); }

 private:
  // Never destroyed (LeakRoutes may outlive every other static), and made
  // in place, not on the heap.
  static Kel::Slab& slab() {
    alignas(Kel::Slab) static unsigned char place[sizeof(Kel::Slab)];
    static Kel::Slab* const s = new (place) Kel::Slab(sizeof(LeakRoute));
    return *s;
  }

  VrfIdAf vrfAf_;
  Kel::Ptr<const Routing::Route> route_;
};

Kel::Ptr<LeakRoute> leakRouteFactory(const VrfIdAf& vrfAf, Kel::Ptr<const Routing::Route> route);

// A LeakRoute by its handle: half a pointer in a table's slot. It counts
// nothing itself: the table that keeps one holds a reference for it
// (newRef when filed, delRef when dropped).
struct LeakRouteRef {
  uint32_t handle = Kel::Slab::nullHandle;

  static LeakRouteRef of(const LeakRoute* r) { return LeakRouteRef{r->handle()}; }
  LeakRoute* get() const { return LeakRoute::of(handle); }
  LeakRoute* operator->() const { return get(); }
  // Iterating a table gives counted references, as a table of Ptrs would.
  operator Kel::Ptr<const LeakRoute>() const { return Kel::Ptr<const LeakRoute>(get()); }
  bool operator==(const LeakRouteRef&) const = default;
};

namespace detail {

// The leakRoute collections' seed (see the top of this file).
inline constexpr uint32_t leakRouteHashSeed = Kel::collectionHashSeed ^ 0x6c65616bu;

template <class E, auto KeyOf>
struct LeakRouteTraits {
  using Entry = E;
  using Key = Routing::RouteKey;
  static const Routing::RouteKey& key(const Entry& e) { return KeyOf(e); }
  static uint32_t hash(const Routing::RouteKey& k) { return k.hash(leakRouteHashSeed); }
};

inline const Routing::RouteKey& refKey(const LeakRouteRef& r) { return r->key(); }

// A collection of counted references to LeakRoutes by their keys, shared by
// LeakRouteConfig and LeakRouteList; Self notifies `onLeakRoute(key)`.
template <class Self>
class LeakRouteRefs : public Kel::Entity {
  struct Traits : LeakRouteTraits<LeakRouteRef, refKey> {
    static constexpr LeakRouteRef vacant{};
  };

 public:
  // Open-addressed: an erase costs one probe, where a dense table would
  // also move its last entry and look that one up again. A slot is a hash
  // and a handle: 8 bytes.
  using LeakRouteMap = Kel::HashTable<Traits>;
  class Notifiee : public Kel::NotifieeOf<Self> {
   public:
    virtual void onLeakRoute(const Routing::RouteKey&) {}
  };
  ~LeakRouteRefs() override {
    for (const LeakRouteRef& r : leakRoute_) r->delRef();
  }

  // In hash order; seek() resumes at a key.
  const LeakRouteMap& leakRoute() const { return leakRoute_; }
  Kel::Ptr<const LeakRoute> leakRoute(const Routing::RouteKey& k) const {
    const LeakRouteRef* r = leakRoute_.find(k);
    return r ? *r : Kel::Ptr<const LeakRoute>();
  }
  uint32_t leakRoutes() const { return leakRoute_.size(); }

  // Files `r` under its key: adds, replaces, or leaves the same one as it is.
  void leakRouteIs(const Kel::Ptr<const LeakRoute>& r) {
    KEL_ASSERT(r);
    const LeakRouteRef ref = LeakRouteRef::of(r.ptr());
    const auto [slot, added] = leakRoute_.insertWith(r->key(), [&] { return ref; });
    // A replaced one dies once the reactors have heard.
    Kel::Ptr<const LeakRoute> old;
    if (!added) {
      if (*slot == ref) return;
      old = *slot;
      (*slot)->delRef();
      *slot = ref;
    }
    r->newRef();
    notifyKey(&Notifiee::onLeakRoute, r->key());
  }
  void leakRouteDel(const Routing::RouteKey& k) {
    const LeakRouteRef* r = leakRoute_.find(k);
    if (r == nullptr) return;
    // The table's reference passes to `old`, which lets go once the
    // reactors have heard.
    const Kel::Ptr<const LeakRoute> old = *r;
    (*r)->delRef();
    leakRoute_.erase(k);
    notifyKey(&Notifiee::onLeakRoute, k);
  }
  void leakRouteDelAll() {
    while (leakRoute_.size() != 0) leakRouteDel((*leakRoute_.begin())->key());
  }

  // Look-ahead for a pass about to file a key here (Kel/Prefetch.h): starts
  // loading the index slot where the key of leak hash `h` (hashOf) goes,
  // and asks the reactors to do the same for what they will write. Each
  // later call forgets `h`. Changes nothing.
  uint32_t hashOf(const Routing::RouteKey& k) const { return leakRoute_.hashOf(k); }
  void readAhead(uint32_t h) const {
    leakRoute_.prefetch(h);
    readAheadHash_ = h;
    readAheadReactors(Kel::Entity::reactorListSteps);
  }
  // What readAhead was last asked for: the reactors' readAhead reads it.
  uint32_t readAheadHash() const { return readAheadHash_; }

 private:
  LeakRouteMap leakRoute_;
  mutable uint32_t readAheadHash_ = 0;
};

// A small map of counted references keyed by KeyOf of the element, that
// tells whether a change was made (the entities below notify on it).
template <class K, class V, auto KeyOf>
class RefMap {
 public:
  using Map = Kel::HashedPtrMap<K, V, KeyOf>;
  const Map& map() const { return map_; }
  Kel::Ptr<V> get(const K& k) const {
    const Kel::Ptr<V>* v = map_.find(k);
    return v ? *v : nullptr;
  }
  uint32_t size() const { return map_.size(); }
  // False when `v` was there already.
  bool put(const Kel::Ptr<V>& v) {
    KEL_ASSERT(v);
    const auto [slot, added] = map_.insert(Kel::Ptr<V>(v));
    if (added) return true;
    if (*slot == v) return false;
    *slot = v;
    return true;
  }
  // The element removed, null when none.
  Kel::Ptr<V> take(const K& k) {
    std::optional<Kel::Ptr<V>> v = map_.extract(k);
    return v ? *v : nullptr;
  }
  K firstKey() const { return std::invoke(KeyOf, **map_.begin()); }

 private:
  Map map_;
};

}  // namespace detail

// One LeakRoute per route of a source VRF that currently leaks; creates and
// owns them. Beside each entry it keeps its owner's note of the destination
// VRF the route is filed under now (the mux's oldLeakTo), so that the note
// costs no table of its own.
class LeakRouteDir final : public Kel::Entity {
 public:
  // 8 bytes: the LeakRoute, counted, and the note.
  struct Entry {
    LeakRouteRef leakRoute;
    Vrf::VrfIdMap::VrfId leakTo;
  };

 private:
  static const Routing::RouteKey& entryKey(const Entry& e) { return e.leakRoute->key(); }
  using Traits = detail::LeakRouteTraits<Entry, entryKey>;

 public:
  using LeakRouteMap = Kel::DenseHashTable<Traits>;
  class Notifiee : public Kel::NotifieeOf<LeakRouteDir> {
   public:
    virtual void onLeakRoute(const Routing::RouteKey&) {}
  };
  ~LeakRouteDir() override;
  const char* typeName() const override { return "Routing::Protocol::LeakRouteDir"; }

  const LeakRouteMap& leakRoute() const { return leakRoute_; }
  Kel::Ptr<LeakRoute> leakRoute(const Routing::RouteKey& k) const {
    const Entry* e = leakRoute_.find(k);
    return e ? Kel::Ptr<LeakRoute>(e->leakRoute.get()) : nullptr;
  }
  uint32_t leakRoutes() const { return leakRoute_.size(); }
  // Creates the LeakRoute of `route`; none may be filed under its key.
  Kel::Ptr<LeakRoute> leakRouteIs(const VrfIdAf& vrfAf,
                                  const Kel::Ptr<const Routing::Route>& route);
  void leakRouteDel(const Routing::RouteKey& k);
  void leakRouteDelAll();

  // Makes room for `n` routes, so that filing that many grows nothing.
  void reserve(uint32_t n) { leakRoute_.reserve(n); }

  // The owner's note: invalidVrfId when the key has none (or no entry).
  Vrf::VrfIdMap::VrfId leakTo(const Routing::RouteKey& k) const {
    const Entry* e = leakRoute_.find(k);
    return e ? e->leakTo : Vrf::VrfIdMap::invalidVrfId;
  }
  // Notes `vrfId` beside the entry of `k`, which must exist.
  void leakToIs(const Routing::RouteKey& k, Vrf::VrfIdMap::VrfId vrfId);

 private:
  LeakRouteMap leakRoute_;
};

Kel::Ptr<LeakRouteDir> leakRouteDirFactory();

// The output of the leak for one destination VRF and family: the one route
// chosen for each key among all routes leaked into it.
class LeakRouteConfig final : public detail::LeakRouteRefs<LeakRouteConfig> {
 public:
  explicit LeakRouteConfig(const VrfIdAf& vrfAf) : vrfAf_(vrfAf) {}
  const char* typeName() const override { return "Routing::Protocol::LeakRouteConfig"; }
  const VrfIdAf& vrfAf() const { return vrfAf_; }

 private:
  VrfIdAf vrfAf_;
};

Kel::Ptr<LeakRouteConfig> leakRouteConfigFactory(const VrfIdAf& vrfAf);

// The routes one source VRF leaks into one destination VRF; the references
// point into the source's LeakRouteDir.
class LeakRouteList final : public detail::LeakRouteRefs<LeakRouteList> {
 public:
  explicit LeakRouteList(const VrfPairAf& vrfAf) : vrfAf_(vrfAf) {}
  const char* typeName() const override { return "Routing::Protocol::LeakRouteList"; }
  const VrfPairAf& vrfAf() const { return vrfAf_; }

 private:
  VrfPairAf vrfAf_;
};

Kel::Ptr<LeakRouteList> leakRouteListFactory(const VrfPairAf& vrfAf);

// One list per destination fed by one source VRF and family; creates and
// owns them. Every key has the set's source VRF and family, and a
// destination other than the source (asserted).
class LeakRouteListSet final : public Kel::Entity {
 public:
  using Lists = detail::RefMap<VrfPairAf, LeakRouteList, &LeakRouteList::vrfAf>;
  class Notifiee : public Kel::NotifieeOf<LeakRouteListSet> {
   public:
    virtual void onLeakRouteList(const VrfPairAf&) {}
  };
  explicit LeakRouteListSet(const VrfIdAf& vrfAf) : vrfAf_(vrfAf) {}
  const char* typeName() const override { return "Routing::Protocol::LeakRouteListSet"; }

  const VrfIdAf& vrfAf() const { return vrfAf_; }
  const Lists::Map& leakRouteList() const { return lists_.map(); }
  Kel::Ptr<LeakRouteList> leakRouteList(const VrfPairAf& k) const { return lists_.get(k); }
  uint32_t leakRouteLists() const { return lists_.size(); }
  // Creates and returns a new, empty list; none may be under `k`.
  Kel::Ptr<LeakRouteList> leakRouteListIs(const VrfPairAf& k);
  void leakRouteListDel(const VrfPairAf& k);
  void leakRouteListDelAll();

 private:
  VrfIdAf vrfAf_;
  Lists lists_;
};

Kel::Ptr<LeakRouteListSet> leakRouteListSetFactory(const VrfIdAf& vrfAf);

// Every mux's output set, by reference, keyed by the set's vrfAf.
class LeakRouteListSetDir final : public Kel::Entity {
 public:
  using Sets = detail::RefMap<VrfIdAf, LeakRouteListSet, &LeakRouteListSet::vrfAf>;
  class Notifiee : public Kel::NotifieeOf<LeakRouteListSetDir> {
   public:
    virtual void onLrlSet(const VrfIdAf&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::LeakRouteListSetDir"; }

  const Sets::Map& lrlSet() const { return sets_.map(); }
  Kel::Ptr<LeakRouteListSet> lrlSet(const VrfIdAf& k) const { return sets_.get(k); }
  uint32_t lrlSets() const { return sets_.size(); }
  void lrlSetIs(const Kel::Ptr<LeakRouteListSet>& s);
  void lrlSetDel(const VrfIdAf& k);
  void lrlSetDelAll();

 private:
  Sets sets_;
};

Kel::Ptr<LeakRouteListSetDir> leakRouteListSetDirFactory();

// Every list, of any source, aimed at one destination VRF and family, by
// reference, keyed by the list's vrfAf. Every key has the set's destination
// VRF and family (asserted).
class LeakRouteListPtrSet final : public Kel::Entity {
 public:
  using Lists = detail::RefMap<VrfPairAf, const LeakRouteList, &LeakRouteList::vrfAf>;
  class Notifiee : public Kel::NotifieeOf<LeakRouteListPtrSet> {
   public:
    virtual void onLeakRouteList(const VrfPairAf&) {}
  };
  explicit LeakRouteListPtrSet(const VrfIdAf& vrfAf) : vrfAf_(vrfAf) {}
  const char* typeName() const override { return "Routing::Protocol::LeakRouteListPtrSet"; }

  const VrfIdAf& vrfAf() const { return vrfAf_; }
  const Lists::Map& leakRouteList() const { return lists_.map(); }
  Kel::Ptr<const LeakRouteList> leakRouteList(const VrfPairAf& k) const { return lists_.get(k); }
  uint32_t leakRouteLists() const { return lists_.size(); }
  void leakRouteListIs(const Kel::Ptr<const LeakRouteList>& l);
  void leakRouteListDel(const VrfPairAf& k);
  void leakRouteListDelAll();

 private:
  VrfIdAf vrfAf_;
  Lists lists_;
};

Kel::Ptr<LeakRouteListPtrSet> leakRouteListPtrSetFactory(const VrfIdAf& vrfAf);

// Every demux's input set, by reference, keyed by the set's vrfAf.
class LeakRouteListPtrSetDir final : public Kel::Entity {
 public:
  using Sets = detail::RefMap<VrfIdAf, LeakRouteListPtrSet, &LeakRouteListPtrSet::vrfAf>;
  class Notifiee : public Kel::NotifieeOf<LeakRouteListPtrSetDir> {
   public:
    virtual void onLrlpSet(const VrfIdAf&) {}
  };
  const char* typeName() const override { return "Routing::Protocol::LeakRouteListPtrSetDir"; }

  const Sets::Map& lrlpSet() const { return sets_.map(); }
  Kel::Ptr<LeakRouteListPtrSet> lrlpSet(const VrfIdAf& k) const { return sets_.get(k); }
  uint32_t lrlpSets() const { return sets_.size(); }
  void lrlpSetIs(const Kel::Ptr<LeakRouteListPtrSet>& s);
  void lrlpSetDel(const VrfIdAf& k);
  void lrlpSetDelAll();

 private:
  Sets sets_;
};

Kel::Ptr<LeakRouteListPtrSetDir> leakRouteListPtrSetDirFactory();

}  // namespace Routing::Protocol
