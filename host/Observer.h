#pragma once

#include <vector>

#include "host/RpView.h"
#include "model/Lanet.h"
#include "model/Status.h"
#include "runtime/Export.h"
#include "runtime/Ptr.h"

namespace Routing::Pim::Bsr {
class PimBsrSm;
}

namespace pimbsr::host {

class Router;

/// The BSR of a zone, as a value that outlives its entry.
struct BsrView {
  Lanet::IpGenAddr address;  ///< which the BSR claims
  U16 priority = 0;          ///< higher wins
  U32 hashMaskLen = 0;       ///< bits of a group address that the hash is made of (RFC 7761 section 4.7.2)
  double expiryTime = 0;     ///< when it is given up unless it is heard again, on the clock of Zet::now()

  /// Whether both say the same of the election; the expiry time is no part of that.
  bool sameElection(BsrView const& other) const {
    return address == other.address && priority == other.priority && hashMaskLen == other.hashMaskLen;
  }
};

/// The values of an entry as they are now.
PIMBSR_API BsrView viewOf(Routing::Pim::Bsr::ElectedBsrStatus const& entry);

/// What has changed.
enum class ChangeKind : U8 {
  bsrElected,    ///< a zone has a BSR and had none
  bsrChanged,    ///< the BSR of a zone is another, or announces another priority or hash mask length
  bsrLost,       ///< a zone has no BSR any more
  rpAdded,       ///< an RP has come into the set of a zone
  rpUpdated,     ///< an RP has another priority, holdtime or mode
  rpKept,        ///< an election cleared the set of an RP, which stays in use (HoldOver)
  rpRemoved,     ///< an RP was withdrawn, or its set was cleared
  rpExpired,     ///< an RP was not named for its holdtime
  zoneForgotten  ///< the zone has no BSR and no machine any more; RPs of it may remain until they expire
};

/// One change of what a router has learned.
struct Change {
  ChangeKind kind = ChangeKind::zoneForgotten;  ///< which of the members below hold something
  Lanet::IpGenPrefix zone;                      ///< where it has changed
  BsrView bsr;        ///< with the kinds of the BSR; as it was last where it was lost
  BsrView formerBsr;  ///< with bsrChanged
  RpView rp;          ///< with the kinds of RPs; as it was last where it went
  RpView formerRp;    ///< with rpUpdated
};

/// Puts changes of one kind in a row into the order of zone, range and address: they come in that of the
/// engine's collections, which means nothing to an operator.
PIMBSR_API void sortByAddress(std::vector<Change>& changes);

class KeptRps;

/// Hears of changes, inside the call into the router that made them. It must not call back into the router
/// nor write to the status tree.
class PIMBSR_API ChangeSink {
 public:
  virtual ~ChangeSink() = default;
  /// One change; the reference is valid within the call.
  virtual void onChange(Change const& change) = 0;
};

/// Watches a status tree and reports each change once it is complete.
///
/// The machines write an entry attribute by attribute and its expiry last, so a change is reported when the
/// expiry is written, or at the latest by flush(). It takes entries that exist when it is made as known, and
/// doesn't report them. The observer writes nothing.
///
/// An RP that goes while a message is in hand, or before its time, was removed; one that goes otherwise has
/// expired. One that an election removes and that stays in use is kept, and its end is reported apart. Time
/// alone doesn't show it: a host that serves its timers late may receive the withdrawal of an RP whose time
/// is already over.
class PIMBSR_API Observer {
 public:
  /// Observes a router and what it keeps of former BSRs. Router and sink outlive the observer.
  Observer(Router& router, ChangeSink& sink);
  /// Observes machines that a host has made by itself. The sink outlives the observer, and so do the RPs that
  /// are kept of former BSRs, null for none. The status tree is held; the root machine is not, and may end
  /// first.
  Observer(Zet::Ptr<Routing::Pim::Bsr::Status const> const& status,
           Zet::Ptr<Routing::Pim::Bsr::PimBsrSm const> const& root, ChangeSink& sink,
           KeptRps* kept = nullptr);
  ~Observer();
  Observer(Observer const&) = delete;
  Observer& operator=(Observer const&) = delete;

  /// To be called before a message is handed to the router: it is in hand until flush().
  void messageInHand();
  /// To be called after each message and each advance of the timers: reports what is complete by now, since
  /// the event is over.
  void flush();

 private:
  class Tree;
  class Machines;
  Zet::Ptr<Tree> tree_;
  Zet::Ptr<Machines> machines_;
};

}  // namespace pimbsr::host
