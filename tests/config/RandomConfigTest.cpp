// Any sequence of changes to the configuration, the access lists and the addresses, with restarts between:
// Status is what the model says, after each of them.

#include <rapidcheck.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "runtime/Trace.h"
#include "tests/config/ConfigModel.h"
#include "tests/support/ConfigEngine.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Set = ConfigModel::Names;

Names const ranges{"239.1.0.0/16", "239.3.0.0/16", "239.5.0.0/16"};  // no two of them join to one prefix

/// The order in which a collection walks keys of this kind.
template <class Key>
Names walkOrder(Names const& names) {
  Zet::ValueMap<bool, Key> map;
  for (std::string const& name : names) {
    map.insert(Zet::make<Zet::ValueMember<bool, Key>>(Key(Zet::String8(name)), true));
  }
  Names order;
  for (auto at = map.iterator(); at; ++at) {
    std::ostringstream out;
    out << at.key();
    order.push_back(out.str());
  }
  return order;
}

/// Both sides of the comparison, and a step for each thing that an operator may do.
class Pair {
 public:
  Pair() { engine.start(); }

  /// One random step; gives back what it was.
  std::string step();

  ConfigEngine engine;
  ConfigModel model{walkOrder<Lanet::IntfId>(interfaces), walkOrder<Zet::String8>(lists)};

 private:
  static inline Names const interfaces{"eth0", "eth1"};
  static inline Names const lists{"a", "b", "c"};

  static std::string any(Names const& names) { return *rc::gen::elementOf(names); }
  static bool flip() { return *rc::gen::arbitrary<bool>(); }

  void timeouts();
  void address();
  void rules();
  void dropList();
  void filter();
  void border();
  void bsrGroup();
  void bsrList();
  void rpSource();
  void rpOption();
  void dropInterface();
  void restart();

  std::string intf_ = any(interfaces), list_ = any(lists), range_ = any(ranges);
  std::string step_;
};

void Pair::timeouts() {
  Zet::U32 holdTime = *rc::gen::element(12u, 130u, 500u);
  Zet::U32 szTimeout = *rc::gen::element(120u, 1300u, 4000u);
  step_ = "bs-timeout " + std::to_string(holdTime) + " then sz-timeout " + std::to_string(szTimeout);
  engine.config->holdTimeIs(holdTime);
  model.holdTime(holdTime);
  engine.config->szTimeoutIs(szTimeout);
  model.szTimeout(szTimeout);
}

void Pair::address() {
  std::string address = *rc::gen::elementOf(Names{"0.0.0.0", "10.0.0.", "10.0.1."});
  if (address.back() == '.') address += intf_.back();
  step_ = "address " + intf_ + " " + address;
  engine.address(intf_, address);
  model.address(intf_, address);
}

void Pair::rules() {
  Names texts;
  Set permitted;
  for (std::string const& range : ranges) {
    if (flip()) continue;
    texts.push_back("permit " + range);
    permitted.insert(range);
  }
  step_ = "rules " + list_ + " " + std::to_string(texts.size());
  engine.rules(list_, texts);
  model.rules(list_, permitted);
}

void Pair::dropList() {
  step_ = "drop list " + list_;
  engine.lists->aclDel(list_.c_str());
  model.dropList(list_);
}

void Pair::filter() {
  bool on = flip();
  step_ = "filter " + list_ + (on ? " on" : " off");
  if (on) {
    engine.config->crpFilterAclIs(list_.c_str(), true);
  } else {
    engine.config->crpFilterAclDel(list_.c_str());
  }
  model.filter(list_, on);
}

void Pair::border() {
  bool on = flip();
  auto entry = engine.border(intf_);
  if (flip()) {
    step_ = "border " + intf_ + " " + range_ + (on ? " on" : " off");
    on ? entry->bsrBorderGrpIs(prefix(range_), true) : void(entry->bsrBorderGrpDel(prefix(range_)));
    model.borderGroup(intf_, range_, on);
  } else {
    step_ = "border " + intf_ + " " + list_ + (on ? " on" : " off");
    on ? entry->bsrBorderAclIs(list_.c_str(), true) : void(entry->bsrBorderAclDel(list_.c_str()));
    model.borderList(intf_, list_, on);
  }
}

void Pair::bsrGroup() {
  auto entry = engine.config->bsrCandidateConfigIs(intf(intf_));
  model.bsr(intf_);
  if (model.isRangeTaken(intf_, range_)) return;
  if (flip()) {
    step_ = "bsr " + intf_ + " " + range_ + " off";
    entry->groupDel(prefix(range_));
    model.dropBsrGroup(intf_, range_);
    return;
  }
  int priority = *rc::gen::element(1, 2, 3, ConfigModel::unknown);
  step_ = "bsr " + intf_ + " " + range_ + " " + std::to_string(priority);
  auto group = entry->groupIs(prefix(range_));
  group->hashMaskLenIs(30);
  group->priorityIs(static_cast<Zet::U16>(priority));
  model.bsrGroup(intf_, range_, priority);
}

void Pair::bsrList() {
  if (model.isListTaken(intf_, list_)) return;
  bool on = flip();
  step_ = "bsr " + intf_ + " " + list_ + (on ? " on" : " off");
  auto entry = engine.config->bsrCandidateConfigIs(intf(intf_));
  if (on) {
    engine.bsrList(intf_, list_, static_cast<Zet::U16>(ConfigModel::listPriority(intf_)));
  } else {
    entry->aclDel(list_.c_str());
  }
  model.bsrList(intf_, list_, on);
}

void Pair::rpSource() {
  bool on = flip();
  auto entry = engine.rp(intf_);
  if (flip()) {
    step_ = "rp " + intf_ + " " + range_ + (on ? " on" : " off");
    on ? entry->groupRangeIs(prefix(range_), true) : void(entry->groupRangeDel(prefix(range_)));
    model.rpGroup(intf_, range_, on);
  } else {
    step_ = "rp " + intf_ + " " + list_ + (on ? " on" : " off");
    on ? entry->aclIs(list_.c_str(), true) : void(entry->aclDel(list_.c_str()));
    model.rpList(intf_, list_, on);
  }
}

void Pair::rpOption() {
  int priority = *rc::gen::element(-1, 1, 2, ConfigModel::unknown);
  auto entry = engine.rp(intf_);
  bool ofRange = flip();
  step_ = "rp option " + intf_ + " " + (ofRange ? range_ : list_) + " " + std::to_string(priority);
  if (ofRange) {
    if (priority < 0) {
      entry->groupRangeOptionsDel(prefix(range_));
    } else {
      entry->groupRangeOptionsIs(prefix(range_))->priorityIs(static_cast<Zet::U32>(priority));
    }
    model.rpGroupOption(intf_, range_, priority);
  } else {
    if (priority < 0) {
      entry->aclOptionsDel(list_.c_str());
    } else {
      entry->aclOptionsIs(list_.c_str())->priorityIs(static_cast<Zet::U32>(priority));
    }
    model.rpListOption(intf_, list_, priority);
  }
}

void Pair::dropInterface() {
  int role = *rc::gen::inRange(0, 3);
  step_ = "drop " + intf_ + " in role " + std::to_string(role);
  if (role == 0) {
    engine.config->intfConfigDel(intf_.c_str());
    model.dropBorder(intf_);
  } else if (role == 1) {
    engine.config->bsrCandidateConfigDel(intf(intf_));
    model.dropBsr(intf_);
  } else {
    engine.config->rpCandidateConfigDel(intf(intf_));
    model.dropRp(intf_);
  }
}

void Pair::restart() {
  step_ = "restart";
  engine.stop();
  engine.status->zoneGroupDelAll();
  engine.status->zoneAclDelAll();
  engine.start();
  model.restart();
}

std::string Pair::step() {
  using Step = void (Pair::*)();
  static std::vector<Step> const steps{
      &Pair::timeouts, &Pair::address,       &Pair::address,  &Pair::rules,    &Pair::rules,
      &Pair::dropList, &Pair::filter,        &Pair::border,   &Pair::bsrGroup, &Pair::bsrGroup,
      &Pair::bsrList,  &Pair::bsrList,       &Pair::rpSource, &Pair::rpSource, &Pair::rpOption,
      &Pair::rpOption, &Pair::dropInterface, &Pair::restart};
  intf_ = any(interfaces);
  list_ = any(lists);
  range_ = any(ranges);
  step_ = "nothing";
  (this->**rc::gen::elementOf(steps))();
  return step_;
}

class RandomConfig : public ModelTest {};

TEST_F(RandomConfig, StatusIsWhatTheModelSaysAfterEachStep) {
  Zet::TraceHandle::handle("Pim::Bsr::Config").enabledIs(false);
  EXPECT_TRUE(rc::check([] {
    Pair pair;
    int steps = *rc::gen::inRange(1, 80);
    for (int i = 0; i < steps; ++i) {
      RC_LOG() << pair.step() << std::endl;
      RC_ASSERT(pair.engine.timeouts() == pair.model.timeouts());
      RC_ASSERT(pair.engine.cbsr() == pair.model.cbsr());
      RC_ASSERT(pair.engine.crp() == pair.model.crp());
      RC_ASSERT(pair.engine.borders() == pair.model.borders());
      RC_ASSERT(pair.engine.permits() == pair.model.permits());
      RC_ASSERT(pair.engine.claims() == pair.model.claims());
    }
  }));
}

}  // namespace
}  // namespace test
