#pragma once

#include <map>
#include <vector>

#include "agent/kernel/KernelMessage.h"
#include "agent/kernel/KernelView.h"

namespace pimbsr::agent {

/// The links and addresses of a complete answer of the kernel.
struct KernelRecords {
  std::map<int, LinkRecord> links;                      ///< by index
  std::map<int, std::vector<KernelAddress>> addresses;  ///< by the link's index, in the kernel's order

  /// Adds the record of one message of an answer; a message of another type adds nothing.
  void add(nlmsghdr const& message);
};

/// The kernel's links and addresses, kept from answers and notices of rtnetlink. This class doesn't
/// communicate with the kernel itself.
///
/// When a link or an address changes, both tables must be requested again, since no notice has the order of
/// addresses. Notices older than the last answer do no harm: those that led to it follow.
class KernelTables {
 public:
  /// Applies a complete answer; returns whether the view has changed.
  bool replace(KernelRecords records);
  /// Whether a notice may mean that the tables are others: they must be requested again.
  bool isChangedBy(nlmsghdr const& message) const;
  /// The same whatever the tables hold: for a notice that comes while another answer is being read, which may
  /// be older or newer than parts of it.
  static bool mayBeChangedBy(nlmsghdr const& message);

  KernelView const& view() const { return view_; }
  /// The name of a link, empty for an unknown one.
  Lanet::IntfId nameOf(int index) const;

 private:
  bool isLinkChangedBy(nlmsghdr const& message) const;

  std::map<int, LinkRecord> links_;     ///< by index
  std::map<int, Lanet::IntfId> names_;  ///< by index
  KernelView view_;
};

}  // namespace pimbsr::agent
