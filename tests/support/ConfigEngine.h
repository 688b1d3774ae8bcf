#pragma once

#include <string>
#include <vector>

#include "config/ConfigSm.h"
#include "tests/support/Messages.h"
#include "tests/support/TestContext.h"

namespace test {

namespace Bsr = Routing::Pim::Bsr;

/// What an operator writes and its effect in Status: the entities that a host makes, and the machine
/// between them. It must live inside a context.
class ConfigEngine {
 public:
  ConfigEngine();

  /// Makes the machine over Status as it is.
  void start();
  /// Releases it, as a host does before it makes it anew.
  void stop() { machine = nullptr; }

  /// Gives an interface an address; "0.0.0.0" takes it away.
  void address(std::string const& intfName, std::string const& text);

  /// Replaces all rules of a list at once: "permit 239.0.0.0/8", "deny 239.1.0.0/16". The list is made if
  /// need be.
  void rules(std::string const& list, std::vector<std::string> const& texts);
  /// Writes one rule of the version in force.
  void rule(std::string const& list, Zet::U32 sequence, std::string const& text);
  void delRule(std::string const& list, Zet::U32 sequence);

  /// Configures a candidate BSR for a group range or an access list. 256 and 128 leave it waiting.
  Zet::Ptr<Bsr::BsrCandidateGroup> bsrGroup(std::string const& intfName, std::string const& range,
                                            Zet::U16 priority = 64, Zet::U32 hashMaskLen = 30);
  Zet::Ptr<Bsr::BsrCandidateAcl> bsrList(std::string const& intfName, std::string const& list,
                                         Zet::U16 priority = 64, Zet::U32 hashMaskLen = 30);
  Zet::Ptr<Bsr::RpCandidateConfig> rp(std::string const& intfName);
  Zet::Ptr<Bsr::IntfConfig> border(std::string const& intfName);

  /// What Status holds, sorted, joined by "; ".
  std::string timeouts() const;  ///< "bsTimeout szTimeout"
  std::string cbsr() const;      ///< "zone interface address priority/hashMaskLen/bsPeriod"
  std::string crp() const;       ///< "address interface interval: prefix ... | prefix=priority ..."
  std::string borders() const;   ///< "prefix: interface ..."
  std::string permits() const;   ///< "prefix"
  std::string claims() const;    ///< "prefix interface", and the same of access lists
  /// All of these.
  std::string all() const;
  /// A record's group ranges, or senders, joined by ' '; "none" without a record.
  std::string groups(std::string const& list) const;
  std::string senders(std::string const& list) const;

  Zet::U32 bsrCount(std::string const& intfName, std::string const& range) const;
  Zet::U32 rpCount(std::string const& intfName, std::string const& range) const;
  Zet::U32 borderCount(std::string const& intfName, std::string const& range) const;
  Zet::U32 filterCount(std::string const& range) const;

  Zet::Ptr<Bsr::Status> status;
  Zet::Ptr<Bsr::Config> config;
  Zet::Ptr<Bsr::ClearConfig> clear;
  Zet::Ptr<Routing::Pim::Slosh::MessageCounters> counters;
  Zet::Ptr<Ip::SourceIntf::SourceIntfSm> sources;
  Zet::Ptr<Acl::AclTypeConfig> lists;
  Zet::Ptr<Bsr::ConfigSm> machine;

 private:
  Acl::UniqueId write(std::string const& list, std::string const& text);

  Zet::U64 lastId_ = 0;
};

/// A rule as a test writes it down: "permit 239.0.0.0/8".
Acl::IpRuleConfig aclRule(std::string const& text);

/// Base of tests on a running ConfigSm.
class ConfigTest : public ModelTest {
 protected:
  /// Whether a trace of exactly this text was written once since the last call of forget().
  bool tracedOnce(std::string const& text) const { return context.traced(text) == 1; }
  void forget() { context.traces.clear(); }

  ConfigEngine engine;
};

}  // namespace test
