#include "host/ConfigTree.h"

namespace pimbsr::host {

namespace Bsr = Routing::Pim::Bsr;
using Lanet::IntfId;
using Zet::Name;
using Zet::Ptr;
using Zet::String8;

ConfigTree::ConfigTree()
    : config_(Bsr::configFactory("bsr")),
      clearConfig_(Bsr::clearConfigFactory("bsr")),
      accessLists_(Acl::aclTypeConfigFactory("ip")) {}

std::vector<ConfigError> ConfigTree::apply(Zet::Context& context, Configuration const& wanted) {
  std::vector<ConfigError> errors = check(wanted);
  if (!errors.empty()) return errors;
  Zet::Context::Scope scope(context);
  release(withoutReread(wanted));
  writeTimers(wanted);
  writeLists(wanted);
  writeBorders(wanted);
  writeRps(wanted);
  writeBsrs(wanted);
  dropLists(wanted);
  applied_ = wanted;
  return {};
}

static String8 stringOf(std::string const& text) { return String8(text.c_str()); }
static IntfId intfOf(std::string const& name) { return IntfId(name.c_str()); }

// Removal ---------------------------------------------------------------------------------------------

namespace {

/// Calls `gone` for each key of `former` that `wanted` lacks.
template <class Map, class Gone>
void forGone(Map const& former, Map const& wanted, Gone const& gone) {
  for (auto const& [key, value] : former) {
    if (!wanted.contains(key)) gone(key);
  }
}

/// Releases of a former set of ranges what the wanted one lacks.
template <class Terms, class GoneGroup, class GoneList>
void releaseRanges(ByRange<Terms> const& former, ByRange<Terms> const& wanted, GoneGroup const& group,
                   GoneList const& list) {
  forGone(former.groups, wanted.groups, group);
  forGone(former.lists, wanted.lists, [&](std::string const& name) { list(stringOf(name)); });
}

/// The entry of an interface; an empty one if there is none.
template <class Terms>
Terms at(std::map<std::string, Terms> const& byInterface, std::string const& intf) {
  auto found = byInterface.find(intf);
  return found == byInterface.end() ? Terms() : found->second;
}

}  // namespace

/// The configuration without the uses of lists that are read over senders now and were read over groups, or
/// the other way round. A list is read when its first user names it: one that stays in use would keep the
/// former reading, and leave the filter open until a rule of it changes. The uses are written again
/// afterwards.
Configuration ConfigTree::withoutReread(Configuration const& wanted) const {
  Configuration kept = wanted;
  auto isReread = [&](auto const& use) {
    return applied_.senderLists.contains(use.first) != wanted.senderLists.contains(use.first);
  };
  for (auto& [intf, ranges] : kept.candidateBsrs) std::erase_if(ranges.lists, isReread);
  for (auto& [intf, terms] : kept.candidateRps) std::erase_if(terms.ranges.lists, isReread);
  for (auto& [intf, ranges] : kept.borders) std::erase_if(ranges.lists, isReread);
  return kept;
}

/// An entry that somebody else has deleted needs no more of it.
void ConfigTree::release(Configuration const& wanted) {
  for (auto const& [intf, former] : applied_.candidateBsrs) {
    Ptr<Bsr::BsrCandidateConfig> entry = config_->bsrCandidateConfig(intfOf(intf));
    if (!entry) continue;
    releaseRanges(
        former, at(wanted.candidateBsrs, intf), [&](auto const& range) { entry->groupDel(range); },
        [&](auto const& name) { entry->aclDel(name); });
    if (!wanted.candidateBsrs.contains(intf)) config_->bsrCandidateConfigDel(intfOf(intf));
  }
  for (auto const& [intf, former] : applied_.candidateRps) {
    if (!wanted.candidateRps.contains(intf)) {
      config_->rpCandidateConfigDel(intfOf(intf));
      continue;
    }
    Ptr<Bsr::RpCandidateConfig> entry = config_->rpCandidateConfig(intfOf(intf));
    if (!entry) continue;
    releaseRanges(
        former.ranges, at(wanted.candidateRps, intf).ranges,
        [&](auto const& range) {
          entry->groupRangeDel(range);
          entry->groupRangeOptionsDel(range);
        },
        [&](auto const& name) {
          entry->aclDel(name);
          entry->aclOptionsDel(name);
        });
  }
  for (auto const& [intf, former] : applied_.borders) {
    Ptr<Bsr::IntfConfig> entry = config_->intfConfig(Name(intf.c_str()));
    if (!entry) continue;
    releaseRanges(
        former, at(wanted.borders, intf), [&](auto const& range) { entry->bsrBorderGrpDel(range); },
        [&](auto const& name) { entry->bsrBorderAclDel(name); });
    if (!wanted.borders.contains(intf)) config_->intfConfigDel(Name(intf.c_str()));
  }
  for (std::string const& name : applied_.senderLists) {
    if (!wanted.senderLists.contains(name)) config_->crpFilterAclDel(stringOf(name));
  }
}

void ConfigTree::dropLists(Configuration const& wanted) {
  forGone(applied_.accessLists, wanted.accessLists,
          [&](std::string const& name) { accessLists_->aclDel(Name(name.c_str())); });
}

// Additions and changes -------------------------------------------------------------------------------

void ConfigTree::writeTimers(Configuration const& wanted) {
  config_->holdTimeIs(static_cast<U32>(wanted.bsTimeout));
  config_->szTimeoutIs(static_cast<U32>(wanted.szTimeout));
}

/// A list is there before anybody names it. The senders' lists are named first of all, since a list is read
/// over senders or over groups by whether it is one of them.
void ConfigTree::writeLists(Configuration const& wanted) {
  for (auto const& [name, list] : wanted.accessLists) {
    auto former = applied_.accessLists.find(name);
    if (former == applied_.accessLists.end() || former->second != list) writeList(name, list);
  }
  for (std::string const& name : wanted.senderLists) config_->crpFilterAclIs(stringOf(name), true);
}

/// All rules go into a new version under new ids, so that the list is read once, and the former rules are
/// dropped when nothing names them any more.
void ConfigTree::writeList(std::string const& name, AccessList const& list) {
  Ptr<Acl::AclConfig> acl = accessLists_->aclIs(Name(name.c_str()));
  Ptr<Acl::AclSubConfig> version = Acl::aclSubConfigFactory();
  Zet::U64 firstId = lastRuleId_ + 1;
  for (auto const& [sequence, rule] : list) {
    Acl::UniqueId id(++lastRuleId_);
    acl->ipRuleByIdIs(id, rule);
    version->ruleBySequenceIs(sequence, id);
  }
  acl->currCfgIs(version);
  for (auto rule = acl->ipRuleByIdIterator(); rule; ++rule) {
    Acl::UniqueId id = rule.key();
    if (id.value < firstId) acl->ipRuleByIdDel(id);
  }
}

/// The interval comes before what brings the candidate to life, and the priority last.
template <class Entry>
static void writeTerms(Entry& entry, BsrTerms const& terms) {
  entry.intervalIs(static_cast<U32>(terms.bsPeriod));
  entry.hashMaskLenIs(static_cast<U32>(terms.hashMaskLen));
  entry.priorityIs(static_cast<U16>(terms.priority));
}

void ConfigTree::writeBsrs(Configuration const& wanted) {
  for (auto const& [intf, ranges] : wanted.candidateBsrs) {
    Ptr<Bsr::BsrCandidateConfig> entry = config_->bsrCandidateConfigIs(intfOf(intf));
    for (auto const& [range, terms] : ranges.groups) writeTerms(*entry->groupIs(range), terms);
    for (auto const& [name, terms] : ranges.lists) writeTerms(*entry->aclIs(stringOf(name)), terms);
  }
}

/// A range comes before its priority, which makes nothing by itself.
void ConfigTree::writeRps(Configuration const& wanted) {
  for (auto const& [intf, terms] : wanted.candidateRps) {
    Ptr<Bsr::RpCandidateConfig> entry = config_->rpCandidateConfigIs(intfOf(intf));
    entry->advIntervalIs(Bsr::CrpAdvInterval(static_cast<U32>(terms.cRpAdvPeriod)));
    auto priorityOf = [](Zet::U64 number) { return Routing::Pim::RpPriority(static_cast<U32>(number)); };
    for (auto const& [range, priority] : terms.ranges.groups) {
      entry->groupRangeIs(range, true);
      if (priority) {
        entry->groupRangeOptionsIs(range)->priorityIs(priorityOf(*priority));
      } else {
        entry->groupRangeOptionsDel(range);
      }
    }
    for (auto const& [name, priority] : terms.ranges.lists) {
      entry->aclIs(stringOf(name), true);
      if (priority) {
        entry->aclOptionsIs(stringOf(name))->priorityIs(priorityOf(*priority));
      } else {
        entry->aclOptionsDel(stringOf(name));
      }
    }
  }
}

void ConfigTree::writeBorders(Configuration const& wanted) {
  for (auto const& [intf, ranges] : wanted.borders) {
    Ptr<Bsr::IntfConfig> entry = config_->intfConfigIs(Name(intf.c_str()));
    for (auto const& [range, present] : ranges.groups) entry->bsrBorderGrpIs(range, true);
    for (auto const& [name, present] : ranges.lists) entry->bsrBorderAclIs(stringOf(name), true);
  }
}

}  // namespace pimbsr::host
