// The reactors of ConfigSm on access lists: they keep the record of each list in use equal to what its rules
// permit, and report each prefix that is added or removed to every user of the list.
//
// A list is read anew as a whole whenever a rule of it changes. It is read over all addresses while it
// filters advertisements, which fills the record's senders, and else over the group addresses, which fills
// its group ranges; the set of the other reading doesn't change meanwhile.

#include <algorithm>
#include <vector>

#include "config/AclToPrefix.h"
#include "config/ConfigSm.h"
#include "runtime/Assert.h"
#include "runtime/Trace.h"

namespace Routing::Pim::Bsr {

using AclPrefix::AclToPrefix;
using Lanet::IpGenPrefix;
using Lanet::IpGenPrefixSet;
using Zet::Ptr;
using Zet::String8;

static Zet::TraceSource const trace("Pim::Bsr::Config", "ConfigSm");

// Reading a list --------------------------------------------------------------------------------------

struct Rule {
  U32 sequence;
  Acl::UniqueId id;
};

/// The rules of the version in force, in the order in which they act.
static std::vector<Rule> rulesOf(Acl::AclConfig const& list) {
  std::vector<Rule> rules;
  Ptr<Acl::AclSubConfig> version = list.currCfg();
  if (!version) return rules;
  rules.reserve(version->ruleBySequenceCount());
  for (auto at = version->ruleBySequenceIterator(); at; ++at) rules.push_back({at.key(), at->value});
  std::sort(rules.begin(), rules.end(), [](Rule a, Rule b) { return a.sequence < b.sequence; });
  return rules;
}

struct Evaluation {
  Zet::S32 mode = AclToPrefix::groupMode;
  IpGenPrefixSet prefixes;
};

static Evaluation evaluate(ConfigSm const& machine, String8 const& aclName) {
  AclToPrefix reader;
  Ptr<Acl::AclConfig> list = machine.ipAclConfig()->acl(aclName);
  if (machine.config()->crpFilterAcl(aclName)) reader.unicastModeIs();
  if (list) {
    for (Rule const& rule : rulesOf(*list)) reader.handleRule(list->ipRuleById(rule.id));
  }
  Evaluation result{reader.mode(), {}};
  reader.PermittedPrefixes(result.prefixes);
  return result;
}

// The two sets of a record, with the words of their traces --------------------------------------------

struct GroupRanges {
  static constexpr char const* noun = "group";
  static constexpr char const* target = " to bsrConfigAcl";
  static constexpr char const* loaded = " to BsrConfigAcl object for acl ";
  static auto walk(BsrConfigAcl const& record) { return record.grpPrefixIterator(); }
  static void add(BsrConfigAcl& record, IpGenPrefix const& prefix) { record.grpPrefixIs(prefix, true); }
  static void del(BsrConfigAcl& record, IpGenPrefix const& prefix) { record.grpPrefixDel(prefix); }
};

struct Senders {
  static constexpr char const* noun = "prefix";
  static constexpr char const* target = " to bsrConfigAcl unicast set";
  static constexpr char const* loaded = " to BsrConfigAcl object unicast prefix set for acl ";
  static auto walk(BsrConfigAcl const& record) { return record.prefixIterator(); }
  static void add(BsrConfigAcl& record, IpGenPrefix const& prefix) { record.prefixIs(prefix, true); }
  static void del(BsrConfigAcl& record, IpGenPrefix const& prefix) { record.prefixDel(prefix); }
};

/// All additions come before all deletions, so that no user sees the list cover nothing while one prefix
/// takes another's place. A prefix that stays is set again, which is no change.
template <class Set>
static void makeEqual(BsrConfigAcl& record, IpGenPrefixSet const& prefixes) {
  std::vector<IpGenPrefix> former;
  for (auto at = Set::walk(record); at; ++at) {
    ZET_TRACE(trace, 8,
              "Adding " << Set::noun << " " << at.key() << " to " << Set::noun << " list to be deleted.");
    former.push_back(at.key());
  }
  for (IpGenPrefix const& prefix : prefixes) {
    ZET_TRACE(trace, 8,
              "Permit Rule Added to ACL " << record.aclName() << ": Adding " << prefix << Set::target);
    Set::add(record, prefix);
  }
  for (IpGenPrefix const& prefix : former) {
    if (prefixes.contains(prefix)) continue;
    ZET_TRACE(trace, 8, "Deleting " << Set::noun << " " << prefix << " from acl " << record.aclName());
    Set::del(record, prefix);
  }
}

template <class Set>
static void load(BsrConfigAcl& record, IpGenPrefixSet const& prefixes) {
  for (IpGenPrefix const& prefix : prefixes) {
    Set::add(record, prefix);
    ZET_TRACE(trace, 8, "Added prefix " << prefix << Set::loaded << record.aclName());
  }
}

// The reactor on a list -------------------------------------------------------------------------------

void ConfigSm::ZetAcl::handleCfg() {
  Ptr<Acl::AclSubConfig const> version = notifier()->currCfg();
  if (!version) return;
  cfgIs(version);
  handleRule();
}

void ConfigSm::ZetAcl::ZetCfg::handleRuleBySequence(U32 const&) { owner()->handleRule(); }

void ConfigSm::ZetAcl::handleRule() {
  ZET_TRACE_ENTRY(trace);
  ConfigSm& machine = *configSm();
  Ptr<BsrConfigAcl> record = machine.bsrConfigAcl(fwkKey());
  if (!record || !cfg()) return;
  Evaluation now = evaluate(machine, fwkKey());
  if (now.mode == AclToPrefix::groupMode) {
    makeEqual<GroupRanges>(*record, now.prefixes);
  } else if (now.mode == AclToPrefix::unicastMode) {
    makeEqual<Senders>(*record, now.prefixes);
  }
}

// The reactor on a record -----------------------------------------------------------------------------

/// Adds only: what the record holds already stays.
void ConfigSm::ZetBsrConfigAclSm::handleInitialize() {
  ConfigSm& machine = *configSm();
  Ptr<BsrConfigAcl> record = notifier();
  ZET_TRACE(trace, 8, "Acl name found in BSR config " << fwkKey());
  if (!machine.ipAclConfig() || !machine.ipAclConfig()->acl(fwkKey())) return;
  ZET_TRACE(trace, 8, "Acl name found in ACL config");
  Evaluation now = evaluate(machine, fwkKey());
  if (now.mode == AclToPrefix::groupMode) {
    load<GroupRanges>(*record, now.prefixes);
  } else if (now.mode == AclToPrefix::unicastMode) {
    load<Senders>(*record, now.prefixes);
  }
}

/// A handler of a user may change who uses the list, the user itself included.
void ConfigSm::ZetBsrConfigAclSm::handlePrefix(IpGenPrefix const& prefix) {
  ConfigSm& machine = *configSm();
  Ptr<BsrConfigAcl> record = notifier();
  bool isPermitted = record->grpPrefix(prefix);
  ZET_TRACE(trace, 8,
            (isPermitted ? "Group added to BsrConfigAcl Map " : "Group deleted from the BsrConfigAcl Map ")
                << prefix);
  for (auto at = record->borderIntfIterator(); at; ++at) {
    Ptr<ZetActiveConfig> user = machine.activeConfig(at.key().stringValue());
    if (!user) continue;
    isPermitted ? user->doAclPrefixActivate(prefix) : user->doAclPrefixDeactivate(prefix);
  }
  for (auto at = record->cbsrIntfIterator(); at; ++at) {
    Ptr<ZetBsrCandidateConfig> cbsrConfigSm = machine.bsrCandidateConfig(at.key());
    ZET_ASSERT(cbsrConfigSm, "cbsrConfigSm");
    isPermitted ? cbsrConfigSm->doAclPrefixActivate(fwkKey(), prefix)
                : cbsrConfigSm->doAclPrefixDeactivate(prefix);
  }
  for (auto at = record->crpIntfIterator(); at; ++at) {
    Ptr<ZetRpCandidateConfig> user = machine.rpCandidateConfig(at.key());
    if (!user) continue;
    isPermitted ? user->doAclPrefixActivate(prefix) : user->doAclPrefixDeactivate(prefix);
  }
}

void ConfigSm::ZetBsrConfigAclSm::handleUniPrefix(IpGenPrefix const& prefix) {
  ConfigSm& machine = *configSm();
  Ptr<BsrConfigAcl> record = notifier();
  if (!machine.config()->crpFilterAcl(fwkKey())) return;
  if (record->prefix(prefix)) {
    machine.doFilterAclPrefixActivate(prefix);
    record->usedByCrpAdvAclFilterIs(true);
  } else {
    machine.doFilterAclPrefixDeactivate(prefix);
  }
}

}  // namespace Routing::Pim::Bsr
