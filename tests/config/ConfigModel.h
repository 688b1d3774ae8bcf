#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace test {

/// What Status must hold, computed a second time and without the machine: plain maps, and each rule of the
/// reconciliation in a few lines. The random test drives both and compares them after each step.
///
/// Names are interfaces, lists and prefixes; an empty address is none. All access lists of an interface
/// give one priority to its candidate BSRs, so that their order among each other doesn't show.
class ConfigModel {
 public:
  using Name = std::string;
  using Names = std::set<Name>;
  static constexpr int unknown = 256;

  /// Both in the order in which the collections of the machine walk them.
  ConfigModel(std::vector<Name> interfaces, std::vector<Name> lists);

  void holdTime(unsigned seconds) { holdTime_ = seconds; }
  void szTimeout(unsigned seconds);
  void address(Name const& intf, Name const& address);
  void rules(Name const& list, Names const& permitted);
  void dropList(Name const& list);
  void filter(Name const& list, bool on);
  void borderGroup(Name const& intf, Name const& range, bool on);
  void borderList(Name const& intf, Name const& list, bool on);
  void dropBorder(Name const& intf);
  /// An entry for candidate BSRs, with nothing under it.
  void bsr(Name const& intf) { useBsr(intf); }
  void bsrGroup(Name const& intf, Name const& range, int priority);
  void dropBsrGroup(Name const& intf, Name const& range);
  void bsrList(Name const& intf, Name const& list, bool on);
  void dropBsr(Name const& intf);
  void rpGroup(Name const& intf, Name const& range, bool on);
  void rpList(Name const& intf, Name const& list, bool on);
  /// A priority of -1 removes the option.
  void rpGroupOption(Name const& intf, Name const& range, int priority);
  void rpListOption(Name const& intf, Name const& list, int priority);
  void dropRp(Name const& intf);
  void restart();

  /// Whether a candidate BSR for a range or list is under another interface already.
  bool isRangeTaken(Name const& intf, Name const& range) const;
  bool isListTaken(Name const& intf, Name const& list) const;

  /// Priority that the access lists of an interface give to its candidate BSRs.
  static int listPriority(Name const& intf) { return 100 + intf.back() - '0'; }

  std::string timeouts() const;
  std::string cbsr() const;
  std::string crp() const;
  std::string borders() const;
  std::string permits() const;
  std::string claims() const;

 private:
  using Counts = std::map<Name, unsigned>;

  struct Candidate {
    Name intf, address;
    int priority = unknown;
  };
  struct Rp {
    Name address, intf;
    Names ranges;
    std::map<Name, int> options;
  };
  struct Record {
    Names groups, senders, border, cbsr, crp;
    bool isFilter = false;
    bool isUsed() const { return isFilter || !border.empty() || !cbsr.empty() || !crp.empty(); }
  };
  struct Border {
    bool exists = false;
    Names ranges, lists;
    Counts counts;
  };
  struct Bsr {
    bool exists = false, initialized = false;
    std::map<Name, int> ranges;  ///< with their priorities
    Names lists;
    Names liveRanges, liveLists;
    Counts counts;
  };
  struct RpEntry {
    bool exists = false, initialized = false;
    Names ranges, lists;
    std::map<Name, int> rangeOptions, listOptions;
    Counts counts;
    std::shared_ptr<Rp> rp;
  };

  Record& use(Name const& list);
  void release(Name const& list);
  Names read(Name const& list) const;
  void activate(Name const& list, Name const& range);
  void deactivate(Name const& list, Name const& range);
  void permit(Name const& range);
  void forbid(Name const& range);
  void closeFilter();
  void openFilter();

  void borderAdd(Name const& intf, Name const& range);
  void borderRemove(Name const& intf, Name const& range);
  void useBorderList(Name const& intf, Name const& list);
  void leaveBorderList(Name const& intf, Name const& list);

  Bsr& useBsr(Name const& intf);
  void bsrAdd(Name const& intf, Name const& range, int priority);
  void bsrRemove(Name const& intf, Name const& range);
  void beginBsrGroup(Name const& intf, Name const& range);
  void beginBsrList(Name const& intf, Name const& list);
  void leaveBsrList(Name const& intf, Name const& list);
  void bsrAddress(Name const& intf);

  RpEntry& useRp(Name const& intf);
  void rpAdd(Name const& intf, Name const& range);
  void rpRemove(Name const& intf, Name const& range);
  void rpActivate(Name const& intf, Name const& range);
  void rpDeactivate(Name const& intf, Name const& range);
  void useRpList(Name const& intf, Name const& list);
  void leaveRpList(Name const& intf, Name const& list);
  void rpDelIfEmpty(Name const& intf);
  void rpBuild(Name const& intf);
  void rpUndo(Name const& intf);
  void rpAddress(Name const& intf);
  int firstListOption(Name const& intf, Name const& range, Name const& except) const;
  void takeOption(Name const& intf, Name const& range, int instead);

  unsigned holdTime_ = 130, szTimeout_ = 1300, szTimeoutInStatus_ = 1300;
  std::vector<Name> interfaces_, lists_;
  std::map<Name, Name> addresses_;
  enum class Role { bsr, rp };
  std::map<Name, std::vector<Role>> listeners_;  ///< who hears of an address, in that order
  std::map<Name, Names> rules_;                  ///< of the lists that exist
  Names filters_;
  std::map<Name, Border> border_;
  std::map<Name, Bsr> bsr_;
  std::map<Name, RpEntry> rpEntry_;

  std::map<Name, Record> records_;
  Counts filterCounts_;

  std::map<Name, Candidate> cbsr_;
  std::map<Name, std::shared_ptr<Rp>> crp_;
  std::map<Name, Names> borders_;
  Names permits_;
  std::map<Name, Name> rangeClaims_, listClaims_;
};

}  // namespace test
