#pragma once

#include <initializer_list>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/ScenarioNames.h"

namespace pimbsr::sim {

/// One line of a scenario while it is read, word by word. Every reader takes the next word. Where that is
/// invalid, it throws ScenarioError, which names what is valid; `what` names the expected word in the error.
class ScenarioLine {
 public:
  /// The names outlive the line.
  ScenarioLine(std::string_view text, std::string where, ScenarioNames& names);

  ScenarioNames& names() { return names_; }
  bool atEnd() const { return next_ == words_.size(); }
  /// The next word, or nothing at the end; it is not taken.
  std::string_view peek() const { return atEnd() ? std::string_view() : words_[next_]; }
  std::string_view word(std::string_view what);
  /// Takes the next word if it is this one.
  bool take(std::string_view word);
  /// Throws ScenarioError unless all words are taken.
  void end();
  /// What the line says from the next word on, with one space between words.
  std::string rest() const;
  /// Sets the form of the statement that is read; an error for a missing word shows it.
  void formIs(std::string_view form) { form_ = form; }

  [[noreturn]] void fail(std::string const& text) const;
  /// Fails for a word that is none of those that are valid here.
  [[noreturn]] void failUnknown(std::string_view word, std::string_view kind,
                                std::vector<std::string> const& valid) const;

  /// The next option's key: one of those, each once. To be called while atEnd() is false.
  std::string_view option(std::initializer_list<std::string_view> valid);
  /// Number of the word among those that are valid.
  U32 oneOf(std::string_view kind, std::span<std::string_view const> valid);

  U64 number(std::string_view what, U64 low, U64 high);
  /// A time in seconds: 90, 0.5, 250ms, 1m30s.
  double seconds(std::string_view what);
  /// A time that may be negative.
  double signedSeconds(std::string_view what);
  /// A probability: 0.05 or 5%.
  double probability(std::string_view what);
  /// A share that may be negative: -0.01 or 1%.
  double share(std::string_view what);
  /// An IPv4 unicast address.
  Lanet::IpAddr address(std::string_view what);
  /// An IPv4 multicast group.
  Lanet::IpAddr group(std::string_view what);
  /// Any IPv4 address.
  Lanet::IpAddr anyAddress(std::string_view what);
  Lanet::Prefix prefix(std::string_view what);
  /// A range of multicast groups; "global" stands for all of them.
  Lanet::IpGenPrefix range(std::string_view what);
  bool isRangeNext() const;

  U32 link();
  U32 router();
  /// The number of a router's interface to a link.
  U32 interface(U32 router);
  /// A name for something new: letters, digits, '-', '_' and '.'.
  std::string newName(std::string_view what);

 private:
  std::string where_;
  ScenarioNames& names_;
  std::vector<std::string_view> words_;
  std::size_t next_ = 0;
  std::string_view form_;
  std::set<std::string_view> options_;
};

}  // namespace pimbsr::sim
