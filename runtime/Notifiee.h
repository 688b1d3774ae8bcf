#pragma once

#include <functional>

#include "runtime/Activity.h"
#include "runtime/Context.h"
#include "runtime/ListRaw.h"

namespace Zet {

class Notifier;

class Reactor;
/// What is called with each nested reactor.
using NestedCall = std::function<void(Reactor&)>;

/// Base of everything that reacts: the notifiees of entities and of timers.
class PIMBSR_API Reactor : public PtrInterface {
 public:
  /// Sets or clears the zombie mark of this reactor and of all reactors nested in it; no effect where it is
  /// so already. A zombie's onFoo forms do nothing, which keeps a machine in destruction from reacting to
  /// what its own destruction changes.
  void zetDoZombieReactors(bool on);
  /// Passed on to all nested reactors.
  void hasNotificationActiveIs(bool on) override;
  /// Calls back for each reactor nested directly in this one, each collection walked in turn.
  virtual void zetForNested(NestedCall const&) {}

  /// Hears that the handler of an attribute raised; the runtime has traced and counted it already.
  virtual void onNotificationException(AttributeId) {}

  /// Serves the pending attribute, if there is one, by the same onFoo that a setter calls.
  virtual void handleNotification(ActivityConfig* config);
  /// Hands the notification that is being delivered on to an activity: this reactor hears of the same
  /// attribute again when that serves. Outside of any notification it stands for all attributes.
  void redispatch(ActivitySm* activity);
  /// What redispatch() has left to serve: an attribute, allAttributes where it is several, or noAttribute.
  AttributeId pendingAttribute() const { return pending_; }

 protected:
  Reactor() = default;

  /// Calls the onFoo of one attribute, or of all for -1; the keyless form for a collection.
  virtual void zetDispatch(AttributeId) {}

 private:
  AttributeId pending_ = noAttribute;
};

/// Marks that a named failure is expected here: it wraps each call of a notifiee.
class PIMBSR_API Expect {
 public:
  /// Becomes the innermost scope of this thread, for the delivery of that attribute.
  explicit Expect(AttributeId id) : id_(id), outer_(innermost_) { innermost_ = this; }
  ~Expect() { innermost_ = outer_; }
  Expect(Expect const&) = delete;
  Expect& operator=(Expect const&) = delete;

  /// The attribute that is being delivered.
  AttributeId id() const { return id_; }
  /// The scope around this one; null for none.
  Expect const* outer() const { return outer_; }
  /// The innermost scope that exists now, or null outside any notification.
  static Expect const* innermost() { return innermost_; }

 private:
  AttributeId id_;
  Expect const* outer_;
  [[gnu::tls_model("initial-exec")]] static thread_local constinit Expect const* innermost_;
};

/// Reports an exception in flight that a reactor's handler let out: trace, count, onNotificationException. No
/// exception gets out, that of onNotificationException itself included.
PIMBSR_API void reportNotificationException(Reactor& reactor, AttributeId attribute);

/// Calls one reactor: no exception gets out.
template <class Call>
void deliver(Reactor& reactor, AttributeId attribute, Call const& call) {
  Expect expect(attribute);
  try {
    call();
  } catch (...) {
    reportNotificationException(reactor, attribute);
  }
}

/// Base of a watcher of one notifier. It is in the notifier's list in order of attachment, and counts the
/// notifier unless its reference is weak; the notifier doesn't count it.
class PIMBSR_API NotifieeBase : public Reactor, public ListRawLink<NotifieeBase> {
 public:
  /// Whether it is in its notifier's list, and so is notified of changes.
  bool isRegisteredNotifiee() const { return registered_; }
  /// Whether it is in the list of that notifier.
  bool isRegisteredWith(Notifier const& notifier) const { return registered_ && notifier_ == &notifier; }
  /// Takes the notifiee out of the notifier's list or puts it back at its end; it stays attached meanwhile.
  /// One that is both weak and out of the list doesn't learn of its notifier's end, and must be detached by
  /// its owner.
  void isRegisteredNotifieeIs(bool on);
  /// Whether it doesn't count its notifier; false at first.
  bool isWeakReference() const { return weak_; }
  /// Takes or drops the reference to the present notifier, which ends if that was the last one.
  void isWeakReferenceIs(bool weak);

  /// The notifier is at its end and goes on being readable for the length of this call. Only weak notifiees
  /// live to hear it; they are detached afterwards.
  virtual void onZeroReferences() {}

 protected:
  NotifieeBase() = default;
  ~NotifieeBase() override { attach(nullptr); }

  /// Detaches from the former notifier and attaches to `notifier`, which may be null.
  void attach(Notifier const* notifier);
  /// What it is attached to; null for nothing.
  Notifier const* attached() const { return notifier_; }

 private:
  friend class Notifier;

  Notifier const* notifier_ = nullptr;
  bool registered_ = false;
  bool weak_ = false;
};

/// Base of everything that can be watched.
class PIMBSR_API Notifier : public PtrInterface {
 public:
  /// Those that watch one notifier, in order of attachment.
  using Notifiees = ListRaw<NotifieeBase>;
  Notifiees const& zetNotifiees() const { return notifiees_; }

 protected:
  Notifier() = default;
  ~Notifier() override;
  void handleZeroRef() override;

 private:
  friend class NotifieeBase;
  mutable Notifiees notifiees_;
};

/// Calls `On`, a member of a notifiee class, on each notifiee of the present list. One that was
/// detached by another earlier in the walk isn't called.
template <auto On, class N, class... Args>
void notifyAll(Notifier const& notifier, AttributeId attribute, Args const&... args) {
  using Walk = SnapshotIterator<Notifier::Notifiees>;
  for (Walk at(notifier.zetNotifiees()); at; ++at) {
    if (!at->isRegisteredWith(notifier)) continue;
    deliver(*at, attribute, [&] { (static_cast<N&>(*at).*On)(args...); });
  }
}

template <class N>
N zetNotifieeOf(void (N::*)());
template <class N, class A>
N zetNotifieeOf(void (N::*)(A));

/// Notifies the notifiees of a change; one comparison where there are none.
template <auto On, class... Args>
void notify(Notifier const& notifier, AttributeId attribute, Args const&... args) {
  if (notifier.zetNotifiees().empty()) return;
  notifyAll<On, decltype(zetNotifieeOf(On))>(notifier, attribute, args...);
}

/// The typed attachment of a watcher of a constant C.
template <class C>
class NotifieeConstOf : public NotifieeBase {
 public:
  /// What it watches; null for nothing.
  Ptr<C const> notifier() const { return static_cast<C const*>(attached()); }
  /// Watches another object, at the end of its list, and leaves the former one; null is none, and the present
  /// one no change.
  virtual void notifierIs(Ptr<C const> const& notifier) { attach(notifier.ptr()); }
};

/// The typed attachment of a watcher that may write what it watches.
template <class C, class NotifieeConst>
class NotifieeOf : public NotifieeConst {
 public:
  /// What it watches, to be written; null for nothing.
  Ptr<C> notifier() const { return const_cast<C*>(NotifieeConst::notifier().ptr()); }
  /// Watches another object, as the same of NotifieeConst does.
  void notifierIs(Ptr<C> const& notifier) {
    NotifieeConst& self = *this;  // a reactor with nested ones does more than attach
    self.notifierIs(notifier);
  }
};

}  // namespace Zet
