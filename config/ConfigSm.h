#pragma once

/// The machine that turns configuration into Status, one per router.
///
/// It reads Config, ClearConfig, the IP access lists and the addresses of interfaces, and writes the
/// timeouts, the borders, this router's candidates and the filter of advertisements. The protocol's machines
/// react to these entries of Status and never read the configuration themselves.
///
///   Config.holdTime, szTimeout   -> Status.bsTimeout, szTimeout      ConfigSm.cpp
///   Config.crpFilterAcl          -> Status.crpPermit                 CrpFilter.cpp
///   Config.bsrCandidateConfig    -> Status.cbsr, zoneGroup, zoneAcl  BsrCandidateReconciler.cpp
///   Config.rpCandidateConfig     -> Status.crp                       RpCandidateReconciler.cpp
///   Config.intfConfig            -> Status.bsBorder                  BorderReconciler.cpp
///   access lists                 -> the prefixes that they permit    AclReconciler.cpp, AclToPrefix.cpp
///   ClearConfig.countersCount    -> PIM's message counters are cleared
///
///   not initialized --construction--> initialized, for good
///
/// A prefix may have several reasons to be in Status: its own entry in the configuration and any number of
/// access lists. They are counted per interface, and the entry goes with the last of them. Two interfaces
/// must not claim one group range or one access list for a candidate BSR: the second claim ends the process.
/// A range that moves is therefore taken away from one interface before it is given to the other.
///
/// Status outlives the machine, and its counts and its records of access lists don't. At a start over a
/// Status that holds entries already, those that the configuration doesn't explain are removed
/// (RestartScrub.cpp) before the reactors on the configuration add what is missing. Claims are not part of
/// that: a host empties Status.zoneGroup and Status.zoneAcl before it makes the machine anew.
///
/// It has no timer. IPv4 alone is served: another Status.af at construction ends the process.
#include "config/ConfigSm.zet.h"
