// The shared body of the platform's interface status, IPv4 (Ip::) and IPv6
// (Ip6::) alike:
//   IntfStatusBase<Self>: one interface (key intfId) with its dpRoutingEnabled
//     flag and its address;
//   ChildStatusMap<K, V, KeyOf>: an entity holding one hashed collection of
//     child entities, keyed by `KeyOf` read off the child.
// The concrete classes give the collection its names (ipIntfStatusIs, ...)
// through one-line forwarders and pass their own Notifiee handler, so each
// family notifies with its own typed handler.
//
// Every change notifies at once, after the change, with the element key;
// writing what is already there notifies nobody. Look-ups and changes cost
// one hash look-up; collections iterate in hash order (Kel::HashTable).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "Kel/Collections.h"
#include "Kel/Entity.h"
#include "Kel/Error.h"
#include "platform/Pando/IntfId.h"
#include "platform/Pando/IpGenPrefix.h"

namespace Ip::detail {

// `Self` is the concrete entity (CRTP), so that its reactors are NotifieeOf<Self>.
template <class Self>
class IntfStatusBase : public Kel::Entity {
 public:
  class Notifiee : public Kel::NotifieeOf<Self> {
   public:
    virtual void onDpRoutingEnabled() {}
    virtual void onAddr() {}
  };
  explicit IntfStatusBase(const Pando::IntfId& intfId) : intfId_(intfId) {}

  const Pando::IntfId& intfId() const { return intfId_; }
  // Whether the data plane routes on this interface.
  bool dpRoutingEnabled() const { return dpRoutingEnabled_; }
  void dpRoutingEnabledIs(bool v) {
    attributeIs(dpRoutingEnabled_, v, &Notifiee::onDpRoutingEnabled);
  }
  // The interface's address; empty when it has none.
  const Pando::IpGenPrefix& addr() const { return addr_; }
  void addrIs(const Pando::IpGenPrefix& a) { attributeIs(addr_, a, &Notifiee::onAddr); }

 private:
  Pando::IntfId intfId_;
  bool dpRoutingEnabled_ = false;
  Pando::IpGenPrefix addr_;
};

template <class K, class V, auto KeyOf>
class ChildStatusMap : public Kel::Entity {
 public:
  using Map = Kel::HashedPtrMap<K, V, KeyOf>;

 protected:
  const Map& children() const { return children_; }
  Kel::Ptr<V> child(const K& k) const {
    const Kel::Ptr<V>* e = children_.find(k);
    return e ? *e : nullptr;
  }
  bool childHas(const K& k) const { return children_.find(k) != nullptr; }
  uint32_t childSize() const { return children_.size(); }

  // Returns the child for `k`, creating (and announcing) an empty one when absent.
  template <class N>
  Kel::Ptr<V> childIs(const K& k, void (N::*onChild)(const K&)) {
    if (const Kel::Ptr<V>* e = children_.find(k)) return *e;
    Kel::Ptr<V> v = *children_.insert(Kel::makePtr<V>(k)).first;
    notifyKey(onChild, k);
    return v;
  }
  // Files `v` under its own key, replacing any other child there. `mutator`
  // names the caller in the null-argument error.
  template <class N>
  void childIs(Kel::Ptr<V> v, void (N::*onChild)(const K&), const char* mutator) {
    if (!v) {
      throw Kel::NullArgumentError(std::string(typeName()) + "::" + mutator + ": null argument");
    }
    const K k = std::invoke(KeyOf, *v);
    if (Kel::Ptr<V>* e = children_.find(k)) {
      if (*e == v) return;
      *e = std::move(v);  // same key, same place
    } else {
      children_.insert(std::move(v));
    }
    notifyKey(onChild, k);
  }
  template <class N>
  void childDel(const K& k, void (N::*onChild)(const K&)) {
    if (children_.erase(k)) notifyKey(onChild, k);
  }
  template <class N>
  void childDelAll(void (N::*onChild)(const K&)) {
    while (!children_.empty()) {
      const K k = std::invoke(KeyOf, **children_.begin());
      children_.erase(k);
      notifyKey(onChild, k);
    }
  }

 private:
  Map children_;
};

}  // namespace Ip::detail
