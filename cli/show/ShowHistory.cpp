#include <fmt/chrono.h>

#include <ctime>

#include <map>
#include <ostream>

#include "cli/base/Table.h"
#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

static std::string eventOf(Json const& entry) {
  static std::map<std::string, std::string> const names = {
      {"bsrElected", "BSR elected"}, {"bsrChanged", "BSR changed"},       {"bsrLost", "BSR lost"},
      {"rpAdded", "RP added"},       {"rpUpdated", "RP updated"},         {"rpRemoved", "RP removed"},
      {"rpExpired", "RP expired"},   {"zoneForgotten", "zone forgotten"}, {"rpSetChanged", "RP set"},
      {"candidateState", "state"}};
  auto at = names.find(entry.at("event"));
  return at == names.end() ? textOf(entry.at("event")) : at->second;
}

// Details ---------------------------------------------------------------------------------------------

/// What was other of the BSR before.
static std::string formerOf(Json const& entry) {
  Json const& bsr = entry.at("bsr");
  Json const& former = entry.at("formerBsr");
  bool wasOwn = entry.at("formerOwn");
  std::string text;
  auto add = [&](std::string const& part) { text += (text.empty() ? "" : ", ") + part; };
  if (former.at("address") != bsr.at("address")) {
    add(textOf(former.at("address")) + (wasOwn ? " (this router)" : ""));
  } else if (wasOwn != entry.at("own")) {
    add(wasOwn ? "this router" : "another router");
  }
  if (former.at("priority") != bsr.at("priority")) add("priority " + textOf(former.at("priority")));
  if (former.at("hashMaskLen") != bsr.at("hashMaskLen"))
    add("hash mask length " + textOf(former.at("hashMaskLen")));
  return text;
}

static std::string detailsOfBsr(Json const& entry) {
  Json const& bsr = entry.at("bsr");
  std::string text = textOf(bsr.at("address")) + (entry.at("own") ? " (this router)" : "");
  if (entry.at("event") == "bsrLost") return text;
  text += ", priority " + textOf(bsr.at("priority"));
  if (!entry.contains("formerBsr")) return text;
  bool otherMask = entry["formerBsr"].at("hashMaskLen") != bsr.at("hashMaskLen");
  if (otherMask) text += ", hash mask length " + textOf(bsr.at("hashMaskLen"));
  return text + "; was " + formerOf(entry);
}

static std::string termsOf(Json const& rp) {
  return fmt::format("priority {}, holdtime {} s{}", textOf(rp.at("priority")), textOf(rp.at("holdTime")),
                     rp.at("bidirectional") ? ", bidirectional" : "");
}

static std::string detailsOfRp(Json const& entry) {
  Json const& rp = entry.at("rp");
  std::string text = fmt::format("{} for {}", textOf(rp.at("address")), textOf(rp.at("range")));
  bool isGone = entry.at("event") == "rpRemoved" || entry.at("event") == "rpExpired";
  if (!isGone) text += ", " + termsOf(rp);
  if (entry.contains("formerRp")) text += "; was " + termsOf(entry["formerRp"]);
  return text;
}

/// As in "12 added, 3 removed: 10.0.0.1, 10.0.0.2, ...".
static std::string detailsOfRps(Json const& entry) {
  std::string text;
  for (auto const& [change, count] : entry.at("rps").items()) {
    if (count != 0) text += fmt::format("{}{} {}", text.empty() ? "" : ", ", textOf(count), change);
  }
  return text + ": " + listOf(entry.at("firstRps")) + (entry.at("moreRps") ? ", ..." : "");
}

static std::string detailsOfState(Json const& entry) {
  if (entry.at("state").is_null()) return "candidacy ended; was " + textOf(entry.at("formerState"));
  if (entry.at("formerState").is_null()) return textOf(entry.at("state"));
  return textOf(entry.at("state")) + "; was " + textOf(entry.at("formerState"));
}

static std::string detailsOf(Json const& entry) {
  if (entry.contains("bsr")) return detailsOfBsr(entry);
  if (entry.contains("rp")) return detailsOfRp(entry);
  if (entry.contains("rps")) return detailsOfRps(entry);
  return entry.contains("state") ? detailsOfState(entry) : "";
}

static std::string causeOf(Json const& cause) {
  if (cause.at("kind") != "message") {
    bool isKernel = cause.at("kind") == "kernel";
    return isKernel ? "interfaces or routes" : textOf(cause.at("kind"));
  }
  return fmt::format("{} from {} on {}", messageName(cause.at("message")), textOf(cause.at("sender")),
                     textOf(cause.at("interface")));
}

// All of it -------------------------------------------------------------------------------------------

void writeHistory(std::ostream& out, Json const& view) {
  Json const& entries = view.at("entries");
  if (entries.empty()) {
    out << (view.at("wasCleared") ? "Nothing has happened since the last clear.\n"
                                  : "Nothing has happened yet.\n");
    return;
  }
  out << fmt::format("The last {}, the newest at the end (at most {} are kept)\n",
                     countOf(entries.size(), "change"), textOf(view.at("mostEntries")));
  Table table({"local time", "ago", "zone", "event", "details", "cause"});
  for (Json const& entry : entries) {
    auto time = static_cast<std::time_t>(entry.at("time").get<double>());
    table.add({fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(time)), textOfSpan(entry.at("ago")),
               textOf(entry.at("zone")), eventOf(entry), detailsOf(entry), causeOf(entry.at("cause"))});
  }
  table.write(out, 2);
}

}  // namespace pimbsr::cli
