#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Observer.h"
#include "host/Reception.h"
#include "view/Kinds.h"

namespace pimbsr::agent {

using Zet::U64;
using Zet::U8;

using view::CauseKind;
using HistoryKind = view::EventKind;

/// The cause of a change.
struct Cause {
  CauseKind kind = CauseKind::start;
  std::string intf;                                       ///< with message: incoming interface
  host::MessageKind message = host::MessageKind::notPim;  ///< with message: its kind
  Lanet::IpGenAddr sender;                                ///< with message: its source

  bool operator==(Cause const&) const = default;
};

/// How many RPs of a set changed.
struct RpCounts {
  U64 added = 0;
  U64 updated = 0;
  U64 kept = 0;
  U64 removed = 0;
  U64 expired = 0;

  U64 sum() const { return added + updated + kept + removed + expired; }
  bool operator==(RpCounts const&) const = default;
};

/// How many RPs an entry for several names.
inline constexpr std::size_t maxNamedRps = 4;

/// One change of the learned state, or several of the same kind. Members that its kind doesn't name are at
/// their defaults; the expiry time of a view is not set.
struct HistoryEntry {
  double time = 0;  ///< of the last change, on the agent's clock, which starts as the wall clock: seconds
                    ///< since 1970
  HistoryKind kind = HistoryKind::zoneForgotten;
  Cause cause;
  Lanet::IpGenPrefix zone;
  host::BsrView bsr;        ///< with the kinds of the BSR; as it was last where it was lost
  host::BsrView formerBsr;  ///< with bsrChanged
  bool own = false;         ///< with the kinds of the BSR: it is, or was, this router
  bool formerOwn = false;   ///< with bsrChanged: the former one was this router
  host::RpView rp;          ///< with the kinds of one RP; as it was last where it is gone
  host::RpView formerRp;    ///< with rpUpdated
  RpCounts rps;             ///< with rpSetChanged
  /// With rpSetChanged: the first RPs that changed, each once; at most `maxNamedRps`.
  std::vector<Lanet::IpGenAddr> firstRps;
  bool moreRps = false;         ///< with rpSetChanged: others changed than `firstRps`
  std::string state;            ///< with candidateState, as RFC 5059 names it; "-" for the end of a candidacy
  std::string formerState;      ///< with candidateState; "-" for a new one
  std::optional<bool> orderly;  ///< with agentStarted: the run before ended in order; nothing for the first

  U64 count = 1;         ///< how many changes the entry stands for; this is the last of them
  double firstTime = 0;  ///< of the first of them, if there are several
  U64 id = 0;            ///< in the history and its file; 0 outside of one

  /// Whether it touches what decides which RP serves a group: RPs, or the hash mask length.
  bool isOfRpSet() const {
    bool isOfRp = kind >= HistoryKind::rpAdded && kind <= HistoryKind::rpExpired;
    bool isOfHash = kind == HistoryKind::bsrChanged && bsr.hashMaskLen != formerBsr.hashMaskLen;
    return isOfRp || isOfHash || kind == HistoryKind::rpSetChanged;
  }
};

}  // namespace pimbsr::agent
