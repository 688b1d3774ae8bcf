#pragma once

#include <vector>

#include "host/Configuration.h"
#include "model/Acl.h"
#include "model/Config.h"
#include "runtime/Context.h"

namespace pimbsr::host {

/// The configuration entities that a router's configuration machine reads, and what was last applied to them.
class PIMBSR_API ConfigTree {
 public:
  /// Entities with all defaults.
  ConfigTree();

  /// What RouterOptions::config takes; never null.
  Zet::Ptr<Routing::Pim::Bsr::Config> config() const { return config_; }
  /// What RouterOptions::clearConfig takes; never null.
  Zet::Ptr<Routing::Pim::Bsr::ClearConfig> clearConfig() const { return clearConfig_; }
  /// What RouterOptions::accessLists takes; never null.
  Zet::Ptr<Acl::AclTypeConfig> accessLists() const { return accessLists_; }
  /// What is applied; at first all defaults.
  Configuration const& applied() const { return applied_; }

  /// Checks a configuration, and if it has no error, writes what differs from what is applied: what is gone
  /// first, so that a range that moves to another interface is released before it is claimed, then what
  /// changed, then what is new. With an error nothing is written. Returns the errors. Machines that read
  /// these entities run within the call, in the context given.
  std::vector<ConfigError> apply(Zet::Context& context, Configuration const& wanted);

 private:
  Configuration withoutReread(Configuration const& wanted) const;
  void release(Configuration const& wanted);
  void writeTimers(Configuration const& wanted);
  void writeLists(Configuration const& wanted);
  void writeBsrs(Configuration const& wanted);
  void writeRps(Configuration const& wanted);
  void writeBorders(Configuration const& wanted);
  void dropLists(Configuration const& wanted);
  void writeList(std::string const& name, AccessList const& list);

  Zet::Ptr<Routing::Pim::Bsr::Config> config_;
  Zet::Ptr<Routing::Pim::Bsr::ClearConfig> clearConfig_;
  Zet::Ptr<Acl::AclTypeConfig> accessLists_;
  Configuration applied_;
  Zet::U64 lastRuleId_ = 0;
};

}  // namespace pimbsr::host
