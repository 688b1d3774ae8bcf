#include "cli/base/Columns.h"

namespace pimbsr::cli {

using host::BsrView;
using host::Change;
using host::ChangeKind;
using host::RpView;

std::string lineOf(TimelineRow const& row) {
  std::string_view setIn = row.time.empty() ? "  " : "";
  std::string line = fmt::format("{:>10}  {:<17}  {:<18}  {:<15}  {}", row.time,
                                 fmt::format("{}{}", setIn, row.event), row.where, row.who, row.details);
  line.erase(line.find_last_not_of(' ') + 1);
  return line + '\n';
}

static std::string_view nameOf(ChangeKind kind) {
  switch (kind) {
    case ChangeKind::bsrElected:
      return "BSR elected";
    case ChangeKind::bsrChanged:
      return "BSR changed";
    case ChangeKind::bsrLost:
      return "BSR expired";
    case ChangeKind::rpAdded:
      return "RP added";
    case ChangeKind::rpUpdated:
      return "RP updated";
    case ChangeKind::rpKept:
      return "RP kept";
    case ChangeKind::rpRemoved:
      return "RP removed";
    case ChangeKind::rpExpired:
      return "RP expired";
    default:
      return "zone forgotten";
  }
}

static std::string detailsOf(BsrView const& bsr) {
  return fmt::format("priority {}, hash mask length {}", bsr.priority, bsr.hashMaskLen);
}

static std::string detailsOf(RpView const& rp) {
  std::string_view mode = rp.mode == Routing::Pim::Mode::bidir ? ", bidirectional" : "";
  return fmt::format("priority {}, holdtime {} s{}", rp.priority, rp.holdTime, mode);
}

static std::string detailsOf(Change const& change) {
  switch (change.kind) {
    case ChangeKind::bsrElected:
      return detailsOf(change.bsr);
    case ChangeKind::bsrChanged: {
      bool same = change.bsr.address == change.formerBsr.address;
      std::string former = same ? "" : textOf(change.formerBsr.address) + ", ";
      return fmt::format("{}; was {}{}", detailsOf(change.bsr), former, detailsOf(change.formerBsr));
    }
    case ChangeKind::rpAdded:
      return detailsOf(change.rp);
    case ChangeKind::rpUpdated:
      return fmt::format("{}; was {}", detailsOf(change.rp), detailsOf(change.formerRp));
    default:
      return "";
  }
}

TimelineRow rowOf(Change const& change, std::string const& time) {
  TimelineRow row{.time = time, .event = std::string(nameOf(change.kind)), .details = detailsOf(change)};
  if (change.rp.address.isEmpty()) {
    row.where = textOf(change.zone);
    if (!change.bsr.address.isEmpty()) row.who = textOf(change.bsr.address);
    return row;
  }
  row.where = textOf(change.rp.range);
  row.who = textOf(change.rp.address);
  if (change.zone == change.rp.range) return row;
  row.details += (row.details.empty() ? "zone " : ", zone ") + textOf(change.zone);
  return row;
}

}  // namespace pimbsr::cli
