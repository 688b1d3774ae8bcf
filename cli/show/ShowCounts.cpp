#include <pwd.h>

#include <map>
#include <ostream>
#include <utility>

#include "cli/base/Table.h"
#include "cli/show/ShowParts.h"

namespace pimbsr::cli {

// The filter ------------------------------------------------------------------------------------------

void writeFilter(std::ostream& out, Json const& view) {
  out << "Candidate-RP-Advertisements are taken from "
      << (view.at("permitsAll") ? "every sender.\n" : "senders in\n");
  if (!view.at("permitsAll")) {
    for (Json const& prefix : view.at("permitted")) out << fmt::format("  {}\n", textOf(prefix));
  }
  out << fmt::format("Sender lists: {}. Refused since the last clear: {}.\n",
                     listsOf(view.at("lists"), view.at("absentLists")),
                     countOf(view.at("refused"), "advertisement"));
}

// Counters --------------------------------------------------------------------------------------------

static void writeTimers(std::ostream& out, Json const& view) {
  Json const& timers = view.at("timers");
  out << fmt::format(
      "Up for {}. {} armed; timers were served {} times, {:.3f} s late in the mean and {:.3f} s at worst.\n",
      textOfSpan(view.at("uptime")), countOf(timers.at("armed"), "timer"), textOf(timers.at("served")),
      timers.at("meanLateness").get<double>(), timers.at("worstLateness").get<double>());
  Json const& exceptions = view.at("notificationExceptions");
  if (exceptions == 0) return;
  out << fmt::format("The engine caught {} inside; that is a fault of this program.\n",
                     countOf(exceptions, "exception"));
}

/// One has a name that only its parts explain.
static std::string counterName(Json const& name) {
  return name == "errCounters" ? "Refused, by cause" : textOf(name);
}

static void writeEngineCounters(std::ostream& out, Json const& counters) {
  Table table({"counter", "count", "what it counts"});
  for (Json const& counter : counters) {
    if (counter.at("value") != 0)
      table.add(
          {counterName(counter.at("name")), textOf(counter.at("value")), textOf(counter.at("sentence"))});
    if (!counter.contains("parts")) continue;
    for (Json const& part : counter["parts"]) {
      if (part.at("value") != 0) table.add({"  " + textOf(part.at("name")), textOf(part.at("value")), ""});
    }
  }
  out << "\nBootstrap messages and advertisements"
      << (table.empty() ? ": none yet\n" : ", without those that are 0\n");
  if (!table.empty()) table.write(out, 2);
}

static void writeTraffic(std::ostream& out, Json const& traffic) {
  Table table({"interface", "kind", "received", "refused", "sent", "not sent"});
  for (Json const& intf : traffic) {
    std::string name = intf.at("interface").is_null() ? "by route" : textOf(intf.at("interface"));
    for (auto const& [kind, counts] : intf.at("packets").items()) {
      table.add({std::exchange(name, ""), messageName(kind), textOf(counts.at("received")),
                 textOf(counts.at("refused")), textOf(counts.at("sent")), textOf(counts.at("sendFailed"))});
    }
  }
  out << "\nPackets" << (table.empty() ? ": none yet\n" : "\n");
  if (!table.empty()) table.write(out, 2);
}

void writeCounters(std::ostream& out, Json const& view) {
  writeTimers(out, view);
  writeEngineCounters(out, view.at("counters"));
  writeTraffic(out, view.at("traffic"));
}

// Refused messages ------------------------------------------------------------------------------------

static void writeKernelLosses(std::ostream& out, Json const& lost) {
  if (lost == 0) return;
  out << fmt::format(
      "The kernel lost {} whose receive buffer was full; \"pimbsr show interfaces\" has the queues.\n",
      countOf(lost, "packet"));
}

void writeDrops(std::ostream& out, Json const& view) {
  writeKernelLosses(out, view.value("kernelLost", Json(0)));
  std::map<std::string, std::string> sentences;
  Table table({"reason", "interface", "zone", "count", "last", "from", "last message"});
  for (Json const& drop : view.at("drops")) {
    Json const& last = drop.at("last");
    sentences[drop.at("reason")] = drop.at("sentence");
    table.add({textOf(drop.at("reason")), textOf(drop.at("interface")), textOf(drop.at("zone")),
               textOf(drop.at("count")), textOfSpan(last.at("ago")) + " ago", textOf(last.at("sender")),
               textOf(last.at("message"))});
  }
  if (table.empty()) {
    out << "No message was refused since the last clear.\n";
    return;
  }
  out << "Refused messages\n";
  table.write(out, 2);
  out << "\nWhy\n";
  Table why({"reason", "meaning"});
  for (auto const& [reason, sentence] : sentences) why.add({reason, sentence});
  why.write(out, 2);
}

// Control sockets -------------------------------------------------------------------------------------

/// A user by name, if this system has one for the uid.
static std::string userName(Json const& uid) {
  passwd const* entry = getpwuid(uid.get<uid_t>());
  return entry == nullptr ? fmt::format("uid {}", uid.dump()) : entry->pw_name;
}

void writeControl(std::ostream& out, Json const& view) {
  Table sockets({"socket", "serves", "clients", "watchers", "requests", "refused requests", "refused clients",
                 "gave way", "slow", "silent", "failed"});
  Table users({"socket", "user", "clients", "watchers", "unread answers"});
  for (Json const& socket : view.at("sockets")) {
    std::string path = textOf(socket.at("socket"));
    sockets.add({path, socket.at("readOnly") ? "reading" : "all", textOf(socket.at("clients")),
                 textOf(socket.at("watchers")), textOf(socket.at("requests")),
                 textOf(socket.at("refusedRequests")), textOf(socket.at("refused")),
                 textOf(socket.at("gaveWay")), textOf(socket.at("slow")), textOf(socket.at("silent")),
                 textOf(socket.at("failed"))});
    for (Json const& user : socket.at("users"))
      users.add({path, userName(user.at("uid")), textOf(user.at("clients")), textOf(user.at("watchers")),
                 textOf(user.at("unread"))});
  }
  out << "Control sockets\n";
  sockets.write(out, 2);
  out << "\nUsers that are connected" << (users.empty() ? ": none\n" : "\n");
  if (!users.empty()) users.write(out, 2);
}

}  // namespace pimbsr::cli
