#pragma once

#include "host/Configuration.h"
#include "host/Corrections.h"
#include "host/IngressSettings.h"
#include "host/Reception.h"
#include "model/Acl.h"
#include "model/Config.h"
#include "model/Pim.h"
#include "model/Rpf.h"
#include "model/Status.h"

namespace pimbsr::host {

/// What a router is given by its host.
struct RouterOptions {
  U32 bsTimeout = Timeouts().bsTimeout;  ///< seconds until the BSR of a zone is given up
  U32 szTimeout = Timeouts().szTimeout;  ///< seconds until a scope zone without a BSR is forgotten
  /// The configuration to follow, all three or none. With it the two numbers above don't count, and the calls
  /// for candidacies, borders and permits are not to be made. ConfigTree makes and writes these.
  Zet::Ptr<Routing::Pim::Bsr::Config> config = nullptr;
  Zet::Ptr<Routing::Pim::Bsr::ClearConfig> clearConfig = nullptr;  ///< with config: commands that clear
  Zet::Ptr<Acl::AclTypeConfig> accessLists = nullptr;              ///< with config: the lists that it names
  /// What a former router knew, to start from; null to start with nothing. Both or none.
  Zet::Ptr<Routing::Pim::Bsr::Status> status = nullptr;
  Zet::Ptr<Routing::Pim::RpCandidateStatus> rpCandidateStatus = nullptr;  ///< with status: what PIM reads
  /// Answers for the neighbors towards BSRs; where it is null, the router's own routes and Hellos do.
  Zet::Ptr<Routing::Pim::PimRpfTable> rpf = nullptr;
  /// What is checked in packets of a real network; nothing by default.
  IngressSettings ingress;
  /// Where the machines depart from RFC 5059, what is corrected around them; nothing by default.
  CorrectionSettings corrections;
  /// Receives what the gate drops of this router's own advertisements; may be null. It outlives the router.
  OwnDropSink* ownDrops = nullptr;
};

}  // namespace pimbsr::host
