#include "tests/config/ConfigModel.h"

#include <algorithm>
#include <utility>

namespace test {

using Name = ConfigModel::Name;
using Names = ConfigModel::Names;

static constexpr char const* everybody = "0.0.0.0/0";
static constexpr char const* noAddress = "0.0.0.0";

ConfigModel::ConfigModel(std::vector<Name> interfaces, std::vector<Name> lists)
    : interfaces_(std::move(interfaces)), lists_(std::move(lists)) {
  for (Name const& intf : interfaces_) addresses_[intf] = noAddress;
  permits_ = {everybody};
}

/// Looked at when it is written itself, and not when BS_Timeout is.
void ConfigModel::szTimeout(unsigned seconds) {
  if (std::exchange(szTimeout_, seconds) == seconds) return;
  szTimeoutInStatus_ = std::max(szTimeout_, 10 * holdTime_);
}

// Lists -----------------------------------------------------------------------------------------------

Names ConfigModel::read(Name const& list) const {
  auto at = rules_.find(list);
  return at == rules_.end() ? Names() : at->second;
}

ConfigModel::Record& ConfigModel::use(Name const& list) {
  auto [at, isNew] = records_.try_emplace(list);
  if (!isNew) return at->second;
  if (!filters_.contains(list)) {
    at->second.groups = read(list);
    return at->second;
  }
  at->second.senders = read(list);
  for (Name const& range : at->second.senders) permit(range);
  at->second.isFilter = !at->second.senders.empty();
  return at->second;
}

void ConfigModel::release(Name const& list) {
  if (!records_[list].isUsed()) records_.erase(list);
}

void ConfigModel::activate(Name const& list, Name const& range) {
  Record& record = records_[list];
  for (Name const& intf : record.border) borderAdd(intf, range);
  for (Name const& intf : record.cbsr) bsrAdd(intf, range, listPriority(intf));
  for (Name const& intf : record.crp) rpActivate(intf, range);
}

void ConfigModel::deactivate(Name const& list, Name const& range) {
  Record& record = records_[list];
  for (Name const& intf : record.border) borderRemove(intf, range);
  for (Name const& intf : record.cbsr) bsrRemove(intf, range);
  for (Name const& intf : record.crp) rpDeactivate(intf, range);
}

void ConfigModel::rules(Name const& list, Names const& permitted) {
  rules_[list] = permitted;
  if (!records_.contains(list)) return;
  Record& record = records_[list];
  Names& set = filters_.contains(list) ? record.senders : record.groups;
  Names former = std::exchange(set, permitted);
  bool isFilter = &set == &record.senders;
  for (Name const& range : permitted) {
    if (former.contains(range)) continue;
    isFilter ? permit(range) : activate(list, range);
    record.isFilter = record.isFilter || isFilter;
  }
  for (Name const& range : former) {
    if (permitted.contains(range)) continue;
    isFilter ? forbid(range) : deactivate(list, range);
  }
}

void ConfigModel::dropList(Name const& list) {
  rules_.erase(list);
  if (!records_.contains(list)) return;
  Record& record = records_[list];
  for (Name const& range : std::exchange(record.groups, {})) deactivate(list, range);
  Names senders = std::exchange(record.senders, {});
  if (!filters_.contains(list)) return;
  for (Name const& range : senders) forbid(range);
}

// The filter ------------------------------------------------------------------------------------------

void ConfigModel::closeFilter() {
  if (!filterCounts_.empty()) permits_.erase(everybody);
}

void ConfigModel::openFilter() {
  if (permits_.empty()) permits_.insert(everybody);
}

void ConfigModel::permit(Name const& range) {
  ++filterCounts_[range];
  permits_.insert(range);
  closeFilter();
}

void ConfigModel::forbid(Name const& range) {
  if (--filterCounts_[range] != 0) return;
  filterCounts_.erase(range);
  permits_.erase(range);
  openFilter();
}

void ConfigModel::filter(Name const& list, bool on) {
  if (on == filters_.contains(list)) return;
  if (on) {
    filters_.insert(list);
    Record& record = use(list);
    if (!record.isFilter) {
      for (Name const& range : record.senders) permit(range);
    }
    record.isFilter = true;
    closeFilter();
    return;
  }
  filters_.erase(list);
  for (Name const& range : records_[list].senders) forbid(range);
  records_[list].isFilter = false;
  release(list);
}

// Borders ---------------------------------------------------------------------------------------------

void ConfigModel::borderAdd(Name const& intf, Name const& range) {
  ++border_[intf].counts[range];
  borders_[range].insert(intf);
}

void ConfigModel::borderRemove(Name const& intf, Name const& range) {
  if (--border_[intf].counts[range] != 0) return;
  borders_[range].erase(intf);
  if (borders_[range].empty()) borders_.erase(range);
}

void ConfigModel::useBorderList(Name const& intf, Name const& list) {
  Record& record = use(list);
  record.border.insert(intf);
  for (Name const& range : record.groups) borderAdd(intf, range);
}

void ConfigModel::leaveBorderList(Name const& intf, Name const& list) {
  for (Name const& range : records_[list].groups) borderRemove(intf, range);
  records_[list].border.erase(intf);
  release(list);
}

void ConfigModel::borderGroup(Name const& intf, Name const& range, bool on) {
  Border& border = border_[intf];
  border.exists = true;
  if (on && border.ranges.insert(range).second) borderAdd(intf, range);
  if (!on && border.ranges.erase(range) != 0) borderRemove(intf, range);
}

void ConfigModel::borderList(Name const& intf, Name const& list, bool on) {
  Border& border = border_[intf];
  border.exists = true;
  if (on && border.lists.insert(list).second) useBorderList(intf, list);
  if (!on && border.lists.erase(list) != 0) leaveBorderList(intf, list);
}

void ConfigModel::dropBorder(Name const& intf) {
  for (Name const& range : std::exchange(border_[intf].ranges, {})) borderRemove(intf, range);
  for (Name const& list : std::exchange(border_[intf].lists, {})) leaveBorderList(intf, list);
  border_[intf].exists = false;
}

// Candidate BSRs --------------------------------------------------------------------------------------

bool ConfigModel::isRangeTaken(Name const& intf, Name const& range) const {
  for (auto const& [other, entry] : bsr_) {
    if (other != intf && entry.ranges.contains(range)) return true;
  }
  return false;
}

bool ConfigModel::isListTaken(Name const& intf, Name const& list) const {
  for (auto const& [other, entry] : bsr_) {
    if (other != intf && entry.lists.contains(list)) return true;
  }
  return false;
}

ConfigModel::Bsr& ConfigModel::useBsr(Name const& intf) {
  Bsr& entry = bsr_[intf];
  if (!entry.exists) listeners_[intf].push_back(Role::bsr);
  entry.exists = true;
  entry.initialized = entry.initialized || addresses_[intf] != noAddress;
  return entry;
}

void ConfigModel::bsrAdd(Name const& intf, Name const& range, int priority) {
  ++bsr_[intf].counts[range];
  cbsr_[range] = {intf, addresses_[intf], priority};
}

void ConfigModel::bsrRemove(Name const& intf, Name const& range) {
  if (--bsr_[intf].counts[range] == 0) cbsr_.erase(range);
}

void ConfigModel::beginBsrGroup(Name const& intf, Name const& range) {
  Bsr& entry = bsr_[intf];
  if (!entry.initialized || entry.ranges[range] == unknown) return;
  rangeClaims_[range] = intf;
  entry.liveRanges.insert(range);
  bsrAdd(intf, range, entry.ranges[range]);
}

void ConfigModel::beginBsrList(Name const& intf, Name const& list) {
  Bsr& entry = bsr_[intf];
  if (!entry.initialized) return;
  listClaims_[list] = intf;
  entry.liveLists.insert(list);
  Record& record = use(list);
  record.cbsr.insert(intf);
  for (Name const& range : record.groups) bsrAdd(intf, range, listPriority(intf));
}

void ConfigModel::leaveBsrList(Name const& intf, Name const& list) {
  if (bsr_[intf].liveLists.erase(list) == 0) return;
  listClaims_.erase(list);
  for (Name const& range : records_[list].groups) bsrRemove(intf, range);
  records_[list].cbsr.erase(intf);
  release(list);
}

void ConfigModel::bsrGroup(Name const& intf, Name const& range, int priority) {
  Bsr& entry = useBsr(intf);
  bool isChange = !entry.ranges.contains(range) || entry.ranges[range] != priority;
  entry.ranges[range] = priority;
  if (!isChange) return;
  if (!entry.liveRanges.contains(range)) return beginBsrGroup(intf, range);
  if (cbsr_.contains(range)) cbsr_[range].priority = priority;
}

void ConfigModel::dropBsrGroup(Name const& intf, Name const& range) {
  Bsr& entry = bsr_[intf];
  entry.ranges.erase(range);
  if (entry.liveRanges.erase(range) == 0) return;
  rangeClaims_.erase(range);
  bsrRemove(intf, range);
}

void ConfigModel::bsrList(Name const& intf, Name const& list, bool on) {
  Bsr& entry = useBsr(intf);
  if (on && entry.lists.insert(list).second) beginBsrList(intf, list);
  if (!on && entry.lists.erase(list) != 0) leaveBsrList(intf, list);
}

void ConfigModel::dropBsr(Name const& intf) {
  Bsr& entry = bsr_[intf];
  for (Name const& range : Names(entry.liveRanges)) dropBsrGroup(intf, range);
  for (Name const& list : Names(entry.lists)) leaveBsrList(intf, list);
  Counts counts = entry.counts;
  entry = Bsr();
  entry.counts = counts;
  std::erase(listeners_[intf], Role::bsr);
}

void ConfigModel::bsrAddress(Name const& intf) {
  Bsr& entry = bsr_[intf];
  if (!entry.exists) return;
  Name const& address = addresses_[intf];
  if (!entry.initialized) {
    entry.initialized = address != noAddress;
    for (auto const& [range, priority] : entry.ranges) beginBsrGroup(intf, range);
    for (Name const& list : entry.lists) beginBsrList(intf, list);
    return;
  }
  for (Name const& range : entry.liveRanges) {
    if (cbsr_.contains(range) && address == noAddress) {
      cbsr_.erase(range);
    } else if (cbsr_.contains(range)) {
      cbsr_[range].address = address;
    } else {
      cbsr_[range] = {intf, address, entry.ranges[range]};
    }
  }
  for (Name const& list : entry.liveLists) {
    for (Name const& range : records_[list].groups) {
      if (address == noAddress) {
        cbsr_.erase(range);
      } else if (cbsr_.contains(range)) {
        cbsr_[range].address = address;
      } else {
        cbsr_[range] = {intf, address, listPriority(intf)};
      }
    }
  }
}

// Candidate RPs ---------------------------------------------------------------------------------------

ConfigModel::RpEntry& ConfigModel::useRp(Name const& intf) {
  RpEntry& entry = rpEntry_[intf];
  if (!entry.exists) listeners_[intf].push_back(Role::rp);
  entry.exists = true;
  entry.initialized = entry.initialized || addresses_[intf] != noAddress;
  return entry;
}

void ConfigModel::rpAdd(Name const& intf, Name const& range) {
  RpEntry& entry = rpEntry_[intf];
  if (!entry.rp) {
    std::shared_ptr<Rp>& held = crp_[addresses_[intf]];
    if (!held) held = std::make_shared<Rp>();
    entry.rp = held;
    entry.rp->address = addresses_[intf];
    entry.rp->intf = intf;
  }
  entry.rp->ranges.insert(range);
  ++entry.counts[range];
}

void ConfigModel::rpDelIfEmpty(Name const& intf) {
  RpEntry& entry = rpEntry_[intf];
  if (!entry.rp || !entry.rp->ranges.empty()) return;
  crp_.erase(entry.rp->address);
  entry.rp = nullptr;
}

void ConfigModel::rpRemove(Name const& intf, Name const& range) {
  RpEntry& entry = rpEntry_[intf];
  if (--entry.counts[range] != 0 || !entry.rp) return;
  entry.rp->ranges.erase(range);
  rpDelIfEmpty(intf);
}

int ConfigModel::firstListOption(Name const& intf, Name const& range, Name const& except) const {
  for (Name const& list : lists_) {
    auto record = records_.find(list);
    if (list == except || record == records_.end() || !record->second.groups.contains(range)) continue;
    auto const& options = rpEntry_.at(intf).listOptions;
    return options.contains(list) ? options.at(list) : -1;
  }
  return -1;
}

void ConfigModel::rpActivate(Name const& intf, Name const& range) {
  rpAdd(intf, range);
  auto& options = rpEntry_[intf].rp->options;
  options.try_emplace(range, unknown);
  int priority = firstListOption(intf, range, "");
  if (priority >= 0) options[range] = priority;
}

void ConfigModel::rpDeactivate(Name const& intf, Name const& range) {
  RpEntry& entry = rpEntry_[intf];
  if (--entry.counts[range] != 0 || !entry.rp) return;
  entry.rp->ranges.erase(range);
  entry.rp->options.erase(range);
  rpDelIfEmpty(intf);
}

void ConfigModel::useRpList(Name const& intf, Name const& list) {
  Record& record = use(list);
  record.crp.insert(intf);
  for (Name const& range : record.groups) rpAdd(intf, range);
}

void ConfigModel::leaveRpList(Name const& intf, Name const& list) {
  if (!records_.contains(list)) return;
  for (Name const& range : records_[list].groups) rpRemove(intf, range);
  records_[list].crp.erase(intf);
  release(list);
}

void ConfigModel::rpBuild(Name const& intf) {
  RpEntry& entry = rpEntry_[intf];
  for (Name const& range : entry.ranges) rpAdd(intf, range);
  if (entry.rp) {
    for (auto const& [range, priority] : entry.rangeOptions) {
      if (priority != unknown) entry.rp->options[range] = priority;
    }
  }
  for (Name const& list : entry.lists) useRpList(intf, list);
  for (Name const& list : lists_) {
    bool isSet = entry.listOptions.contains(list) && entry.listOptions[list] != unknown;
    if (!isSet || !entry.rp || !records_.contains(list)) continue;
    for (Name const& range : records_[list].groups) entry.rp->options[range] = entry.listOptions[list];
  }
}

void ConfigModel::rpUndo(Name const& intf) {
  RpEntry& entry = rpEntry_[intf];
  entry.counts.clear();
  for (Name const& list : entry.lists) {
    if (!records_.contains(list)) continue;
    records_[list].crp.erase(intf);
    release(list);
  }
  if (entry.rp) crp_.erase(entry.rp->address);
  entry.rp = nullptr;
}

void ConfigModel::rpAddress(Name const& intf) {
  RpEntry& entry = rpEntry_[intf];
  if (!entry.exists) return;
  bool isSet = addresses_[intf] != noAddress;
  if (entry.initialized) rpUndo(intf);
  entry.initialized = entry.initialized || isSet;
  if (isSet) rpBuild(intf);
}

void ConfigModel::rpGroup(Name const& intf, Name const& range, bool on) {
  RpEntry& entry = useRp(intf);
  bool isChange = on ? entry.ranges.insert(range).second : entry.ranges.erase(range) != 0;
  if (!isChange || !entry.initialized || (on && addresses_[intf] == noAddress)) return;
  on ? rpAdd(intf, range) : rpRemove(intf, range);
}

void ConfigModel::rpList(Name const& intf, Name const& list, bool on) {
  RpEntry& entry = useRp(intf);
  bool isChange = on ? entry.lists.insert(list).second : entry.lists.erase(list) != 0;
  if (!isChange || !entry.initialized || (on && addresses_[intf] == noAddress)) return;
  on ? useRpList(intf, list) : leaveRpList(intf, list);
}

void ConfigModel::takeOption(Name const& intf, Name const& range, int instead) {
  RpEntry& entry = rpEntry_[intf];
  if (!entry.rp) return;
  if (entry.counts[range] == 0) {
    entry.rp->options.erase(range);
  } else if (instead >= 0) {
    entry.rp->options[range] = instead;
  }
  rpDelIfEmpty(intf);
}

void ConfigModel::rpGroupOption(Name const& intf, Name const& range, int priority) {
  RpEntry& entry = useRp(intf);
  if (priority < 0) {
    if (entry.rangeOptions.erase(range) == 0 || !entry.initialized) return;
    return takeOption(intf, range, firstListOption(intf, range, ""));
  }
  auto [at, isNew] = entry.rangeOptions.try_emplace(range, unknown);
  if (at->second != priority && entry.rp) entry.rp->options[range] = priority;
  at->second = priority;
}

void ConfigModel::rpListOption(Name const& intf, Name const& list, int priority) {
  RpEntry& entry = useRp(intf);
  if (priority >= 0) {
    auto [at, isNew] = entry.listOptions.try_emplace(list, unknown);
    if (std::exchange(at->second, priority) == priority || !entry.rp || !records_.contains(list)) return;
    for (Name const& range : records_[list].groups) entry.rp->options[range] = priority;
    return;
  }
  if (entry.listOptions.erase(list) == 0 || !entry.initialized || !records_.contains(list)) return;
  for (Name const& range : records_[list].groups) {
    int instead = firstListOption(intf, range, list);
    bool hasOwn = entry.ranges.contains(range) && entry.rangeOptions.contains(range);
    takeOption(intf, range, instead < 0 && hasOwn ? entry.rangeOptions[range] : instead);
  }
  if (!entry.lists.contains(list)) release(list);
}

void ConfigModel::dropRp(Name const& intf) {
  if (!rpEntry_[intf].exists) return;
  rpUndo(intf);
  rpEntry_[intf] = RpEntry();
  std::erase(listeners_[intf], Role::rp);
}

// Address and restart ---------------------------------------------------------------------------------

/// The order shows: options of a list are written to a candidate RP only if somebody uses the list by then.
void ConfigModel::address(Name const& intf, Name const& address) {
  if (addresses_[intf] == address) return;
  addresses_[intf] = address;
  for (Role role : listeners_[intf]) role == Role::bsr ? bsrAddress(intf) : rpAddress(intf);
}

void ConfigModel::restart() {
  szTimeoutInStatus_ = std::max(szTimeout_, 10 * holdTime_);
  // Entries that a group range explains stay.
  std::erase_if(cbsr_, [&](auto const& at) { return !bsr_[at.second.intf].ranges.contains(at.first); });
  std::erase_if(crp_, [&](auto const& at) {
    for (Name const& range : rpEntry_[at.second->intf].ranges) {
      if (at.second->ranges.contains(range)) return false;
    }
    return true;
  });
  for (auto& [range, intfs] : borders_) {
    std::erase_if(intfs,
                  [&, &held = range](Name const& intf) { return !border_[intf].ranges.contains(held); });
  }
  std::erase_if(borders_, [](auto const& at) { return at.second.empty(); });
  // All else is made anew.
  records_.clear();
  filterCounts_.clear();
  permits_.clear();
  rangeClaims_.clear();
  listClaims_.clear();
  for (auto& [intf, border] : border_) {
    border.counts.clear();
    for (Name const& list : border.lists) use(list);
  }
  for (auto& [intf, entry] : bsr_) {
    for (Name const& list : entry.lists) use(list);
    entry.initialized = false;
    entry.liveRanges.clear();
    entry.liveLists.clear();
    entry.counts.clear();
  }
  for (auto& [intf, entry] : rpEntry_) {
    for (Name const& list : entry.lists) use(list);
    entry.initialized = false;
    entry.counts.clear();
    entry.rp = nullptr;
  }
  for (Name const& list : filters_) use(list).isFilter = true;
  openFilter();
  for (Name const& intf : interfaces_) {
    for (Name const& range : border_[intf].ranges) borderAdd(intf, range);
    for (Name const& list : border_[intf].lists) useBorderList(intf, list);
  }
  for (Name const& intf : interfaces_) {
    listeners_[intf].clear();
    if (rpEntry_[intf].exists) listeners_[intf].push_back(Role::rp);
    if (bsr_[intf].exists) listeners_[intf].push_back(Role::bsr);
    rpAddress(intf);
  }
  for (Name const& intf : interfaces_) bsrAddress(intf);
}

// Texts -----------------------------------------------------------------------------------------------

static void append(std::string& all, std::string const& text) { all += (all.empty() ? "" : "; ") + text; }

static std::string joined(Names const& names) {
  std::string all;
  for (Name const& name : names) all += (all.empty() ? "" : " ") + name;
  return all;
}

std::string ConfigModel::timeouts() const {
  return std::to_string(holdTime_) + " " + std::to_string(szTimeoutInStatus_);
}

std::string ConfigModel::cbsr() const {
  std::string all;
  for (auto const& [zone, one] : cbsr_) {
    append(all, zone + " " + one.intf + " " + one.address + " " + std::to_string(one.priority) + "/30/60");
  }
  return all;
}

std::string ConfigModel::crp() const {
  std::string all;
  for (auto const& [address, one] : crp_) {
    Names options;
    for (auto const& [range, priority] : one->options) options.insert(range + "=" + std::to_string(priority));
    append(all, address + " " + one->intf + " 60: " + joined(one->ranges) + " | " + joined(options));
  }
  return all;
}

std::string ConfigModel::borders() const {
  std::string all;
  for (auto const& [range, intfs] : borders_) append(all, range + ": " + joined(intfs));
  return all;
}

std::string ConfigModel::permits() const {
  std::string all;
  for (Name const& range : permits_) append(all, range);
  return all;
}

std::string ConfigModel::claims() const {
  Names claims;
  for (auto const& [range, intf] : rangeClaims_) claims.insert(range + " " + intf);
  for (auto const& [list, intf] : listClaims_) claims.insert(list + " " + intf);
  std::string all;
  for (Name const& claim : claims) append(all, claim);
  return all;
}

}  // namespace test
