#pragma once

#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "host/Candidacy.h"
#include "sim/Listener.h"
#include "sim/Node.h"

/// The statements of a scenario as data, checked: every number of a router, link or interface is one of the
/// network that the statements before have made, and every value is in its range.
namespace pimbsr::sim {

struct AddLink {
  LinkOptions options;
};

struct AddRouter {
  NodeOptions options;
  bool stopped = false;  ///< it is started later
};

struct AddInterface {
  U32 router = 0;
  U32 link = 0;
  InterfaceOptions options;
};

struct SetCandidateBsr {
  U32 router = 0;
  Lanet::IpGenPrefix zone;
  host::BsrCandidacy candidacy;
};

struct EndCandidateBsr {
  U32 router = 0;
  Lanet::IpGenPrefix zone;
  Lanet::IpGenAddr address;  ///< of the candidacy that ends; unset for any
};

struct SetCandidateRp {
  U32 router = 0;
  std::vector<Lanet::IpGenPrefix> ranges;
  host::RpCandidacy candidacy;
};

struct EndCandidateRp {
  U32 router = 0;
  std::vector<Lanet::IpGenPrefix> ranges;
  Lanet::IpGenAddr address;
};

struct SetBorder {
  U32 router = 0;
  U32 intf = 0;
  Lanet::IpGenPrefix zone;
  bool border = true;
};

struct SetPermit {
  U32 router = 0;
  Lanet::IpGenPrefix senders;
  bool permit = true;
};

/// An access list of a router, whole.
struct SetAccessList {
  U32 router = 0;
  std::string name;
  std::optional<host::AccessList> list;  ///< nothing removes it
};

/// What an access list is used for.
enum class ListRole : U8 { bsr, rp, border, senders };

struct SetListUse {
  U32 router = 0;
  ListRole role = ListRole::bsr;
  std::string list;
  bool on = true;
  std::string intf;        ///< the interface's name; nothing for senders
  host::BsrCandidacy bsr;  ///< for a candidate BSR
  host::RpCandidacy rp;    ///< for a candidate RP
};

struct SetAddress {
  U32 router = 0;
  U32 intf = 0;
  std::optional<Lanet::IpAddr> address;  ///< nothing takes it away
};

struct SetTimers {
  U32 router = 0;
  std::optional<U64> bsTimeout;
  std::optional<U64> szTimeout;
};

struct SetRoute {
  U32 router = 0;
  Lanet::Prefix prefix;
  std::optional<Lanet::IpAddr> via;  ///< nothing removes the route
};

struct SetLink {
  U32 link = 0;
  bool up = true;
};

enum class Life : U8 { stop, crash, start, restart, restartKeeping, restartKeepingZones };

struct SetLife {
  U32 router = 0;
  Life life = Life::start;
};

struct Partition {
  std::set<U32> routers;
};

struct Heal {};

struct SetFaults {
  std::optional<U32> link;  ///< nothing for all links
  Faults faults;
};

/// Packets on one link within a second that end the run; 0 for no limit.
struct SetStormLimit {
  U32 packets = 0;
};

struct SetConvergence {
  double seconds = 0;
};

struct Inject {
  U32 link = 0;
  std::vector<U8> packet;
};

struct LetRun {
  double until = 0;  ///< seconds since the start
};

enum class View : U8 { bsr, rpSet, neighbors, counters, states, packets };

struct Show {
  View view = View::bsr;
  std::vector<U32> routers;  ///< empty for all
};

struct ShowRp {
  U32 router = 0;
  Lanet::IpAddr group;
};

struct SetReport {
  Kinds kinds = 0;
  bool on = true;
};

/// Which corrections routers use from now on.
struct SetCorrections {
  std::vector<U32> routers;  ///< empty for all, those to come included
  host::CorrectionSettings settings;
};

/// What routers check in packets from now on.
struct SetChecks {
  std::vector<U32> routers;      ///< empty for all, those to come included
  host::IngressSettings checks;  ///< without bounds
};

/// Sets bounds of routers from now on, one after the other; the other bounds stay.
struct SetLimits {
  struct Value {
    U32 host::IngressSettings::*limit;
    U32 value;  ///< 0 for no bound
  };
  std::vector<U32> routers;  ///< empty for all, those to come included
  std::vector<Value> values;
};

using Action =
    std::variant<AddLink, AddRouter, AddInterface, SetCandidateBsr, EndCandidateBsr, SetCandidateRp,
                 EndCandidateRp, SetBorder, SetPermit, SetAccessList, SetListUse, SetAddress, SetTimers,
                 SetRoute, SetLink, SetLife, Partition, Heal, SetFaults, SetConvergence, SetStormLimit,
                 Inject, LetRun, Show, ShowRp, SetReport, SetCorrections, SetChecks, SetLimits>;

struct Statement {
  Action action;
  std::optional<double> at;  ///< seconds since the start; nothing for at once
  std::string text;          ///< as it was read, without `at` and its time
  U32 line = 0;              ///< from 1
};

/// What is reported unless a scenario says otherwise.
inline constexpr Kinds usualKinds = elections | rps | drops | commands;

}  // namespace pimbsr::sim
