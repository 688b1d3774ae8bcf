#include "runtime/Notifiee.h"

#include <exception>
#include <utility>

#include "runtime/Trace.h"

namespace Zet {

static TraceSource const trace("Zet", "Notifiee");

thread_local constinit Expect const* Expect::innermost_ = nullptr;

void Reactor::zetDoZombieReactors(bool on) {
  if (on == zetMarkedForDeletion()) return;
  zetMarkedForDeletionIs(on);
  zetForNested([on](Reactor& nested) { nested.zetDoZombieReactors(on); });
}

void Reactor::hasNotificationActiveIs(bool on) {
  PtrInterface::hasNotificationActiveIs(on);
  zetForNested([on](Reactor& nested) { nested.hasNotificationActiveIs(on); });
}

void Reactor::handleNotification(ActivityConfig*) {
  AttributeId attribute = std::exchange(pending_, noAttribute);
  if (attribute != noAttribute) deliver(*this, attribute, [&] { zetDispatch(attribute); });
}

void Reactor::redispatch(ActivitySm* activity) {
  Expect const* delivery = Expect::innermost();
  AttributeId const attribute = delivery != nullptr ? delivery->id() : allAttributes;
  bool waits = pending_ != noAttribute;
  pending_ = waits && pending_ != attribute ? allAttributes : attribute;
  if (!waits) activity->enqueue(this);
}

// Rethrows to learn the type: a catch-all handler knows only that something was thrown.
static std::string textInFlight() {
  try {
    throw;
  } catch (std::exception const& e) {
    return e.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

static void countException(char const* place, AttributeId attribute) {
  Context::current().notificationExceptionsInc();
  ZET_TRACE(trace, 1,
            "Exception from the " << place << " of attribute " << attribute << ": " << textInFlight());
}

void reportNotificationException(Reactor& reactor, AttributeId attribute) {
  countException("handler", attribute);
  try {
    reactor.onNotificationException(attribute);
  } catch (...) {
    countException("onNotificationException", attribute);
  }
}

void NotifieeBase::attach(Notifier const* notifier) {
  if (notifier == notifier_) return;
  Notifier const* former = std::exchange(notifier_, notifier);
  // The lists change before the references do: the former notifier may be destroyed by the drop of its last
  // one, and must not find this notifiee in its list any more.
  if (registered_) former->notifiees_.remove(this);
  registered_ = notifier != nullptr;
  if (registered_) notifier->notifiees_.insert(this);
  if (weak_) return;
  if (notifier != nullptr) notifier->newRef();
  if (former != nullptr) former->deleteRef();
}

void NotifieeBase::isRegisteredNotifieeIs(bool on) {
  if (notifier_ == nullptr || on == registered_) return;
  registered_ = on;
  if (on) {
    notifier_->notifiees_.insert(this);
  } else {
    notifier_->notifiees_.remove(this);
  }
}

void NotifieeBase::isWeakReferenceIs(bool weak) {
  if (weak == weak_) return;
  weak_ = weak;
  if (notifier_ == nullptr) return;
  if (weak) {
    notifier_->deleteRef();
  } else {
    notifier_->newRef();
  }
}

// Only weak notifiees are left here; they don't count the notifier, so that they must be detached.
Notifier::~Notifier() {
  while (NotifieeBase* at = notifiees_.front()) at->attach(nullptr);
}

void Notifier::handleZeroRef() {
  // The held bit keeps references that notifiees take and drop meanwhile from releasing the object again.
  mark(heldBit, true);
  for (SnapshotIterator<Notifiees> at(notifiees_); at; ++at) {
    if (!at->isRegisteredWith(*this)) continue;
    deliver(*at, allAttributes, [&] { at->onZeroReferences(); });
  }
  delete this;
}

}  // namespace Zet
