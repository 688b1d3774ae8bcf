#pragma once

#include "runtime/Activity.h"
#include "runtime/HashMap.h"
#include "runtime/Notifiee.h"

namespace Zet {

/// Base of every state machine: an object that can be watched, on an activity.
class PIMBSR_API Machine : public Notifier {
 public:
  /// Number of the attribute zetFwkActivity.
  enum : AttributeId { attrZetFwkActivity = -2 };
  /// The descriptor of what every machine has.
  static ZetType const& _fwkType();

  /// The activity that the machine runs on, and what serves it.
  Ptr<ActivityConfig> zetFwkActivity() const { return zetFwkActivity_; }
  Ptr<ActivitySm> zetActivitySm() const { return zetActivitySmFor(zetFwkActivity_); }
  void zetFwkActivityIs(Ptr<ActivityConfig> const& activity) { zetFwkActivity_ = activity; }

  /// Marks the machine and all its reactors as zombies, or takes the marks back: see Reactor.
  void zetDoZombieReactors(bool on) {
    if (on == zetMarkedForDeletion()) return;
    zetMarkedForDeletionIs(on);
    zetForNested([on](Reactor& nested) { nested.zetDoZombieReactors(on); });
  }
  /// Passed on to all nested reactors.
  void hasNotificationActiveIs(bool on) override {
    PtrInterface::hasNotificationActiveIs(on);
    zetForNested([on](Reactor& nested) { nested.hasNotificationActiveIs(on); });
  }
  /// Calls back for each of the machine's own reactors, each collection walked in turn.
  virtual void zetForNested(NestedCall const&) {}

 protected:
  /// A null activity is the standard one.
  explicit Machine(Ptr<ActivityConfig> const& activity)
      : zetFwkActivity_(activity ? activity : ActivityConfig::standard()) {}

 private:
  Ptr<ActivityConfig> zetFwkActivity_;
};

/// The object that a reactor watches; null for no reactor.
template <class R>
auto watchedBy(Ptr<R> const& reactor) -> decltype(reactor->notifier()) {
  return reactor ? reactor->notifier() : nullptr;
}

// What a holder of nested reactors does with them. R has zetStart(object), which binds it, and zetEnd().

/// Takes the reactor of a key out of its collection and ends it; an absent key does nothing.
template <class R, class K>
void delReactor(HashMap<R, K>& reactors, K const& key) {
  if (Ptr<R> gone = reactors.remove(key); gone) gone->zetEnd();
}
/// Ends the only reactor and leaves null; null does nothing.
template <class R>
void delReactor(Ptr<R>& reactor) {
  if (Ptr<R> gone = std::move(reactor); gone) gone->zetEnd();
}

/// Makes a reactor for an object under its key. One that watches another object of the same key goes first.
template <class R, class K, class Holder, class T>
void setReactor(HashMap<R, K>& reactors, Holder* holder, Ptr<T> const& object) {
  Ptr<R> found = reactors.find(object->fwkKey());
  if (found && found->notifier() == object) return;
  if (found) delReactor(reactors, object->fwkKey());
  Ptr<R> made = make<R>(holder, object->fwkKey());
  reactors.insert(made);
  made->zetStart(object);
}
/// Makes the only reactor watch an object; null ends it.
template <class R, class Holder, class T>
void setReactor(Ptr<R>& reactor, Holder* holder, Ptr<T> const& object) {
  if (reactor ? reactor->notifier() == object : !object) return;
  delReactor(reactor);
  if (!object) return;
  reactor = make<R>(holder);
  Ptr<R> made = reactor;
  made->zetStart(object);
}

/// Makes a collection of reactors follow a member that came, changed or went.
template <class R, class K, class Holder, class T>
void syncReactor(HashMap<R, K>& reactors, Holder* holder, K const& key, Ptr<T> const& member) {
  if (member) {
    setReactor(reactors, holder, member);
  } else {
    delReactor(reactors, key);
  }
}

/// Makes a collection of reactors follow a whole collection: `sync` is called for each key of either.
/// `members` gives a walk over the collection.
template <class R, class K, class Members, class Sync>
void syncReactors(HashMap<R, K> const& reactors, Members const& members, Sync const& sync) {
  for (auto at = reactors.iterator(); at; ++at) sync(K(at.key()));
  for (auto at = members(); at; ++at) sync(K(at.key()));
}

}  // namespace Zet
