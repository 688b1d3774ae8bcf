#include "agent/config/ConfigKeys.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>
#include <vector>

#include "runtime/Assert.h"

namespace pimbsr::agent {

using Zet::U64;

// The table -------------------------------------------------------------------------------------------

static constexpr ConfigSection sections[] = {
    {"interface.NAME", "[interface.NAME]",
     "An interface that speaks PIM. A name with a dot stands in quotes: [interface.\"eth0.100\"]."},
    {"candidate-bsr", "[[candidate-bsr]]",
     "Makes this router a candidate BSR with the address of an interface, one zone for each group range "
     "(RFC 5059 section 3.1.1). May stand several times, also for one interface, but a range or list belongs "
     "to one interface. The interface need not speak PIM: a loopback does."},
    {"candidate-rp", "[[candidate-rp]]",
     "Makes this router a candidate RP with the address of an interface (RFC 5059 section 3.2). May stand "
     "several times, also for one interface, whose interval is then one and the same."},
    {"filter", "[filter]", "Whose Candidate-RP-Advertisements this router takes while it is BSR."},
    {"access-list.NAME", "[access-list.NAME]",
     "A list of rules that permit group ranges, or senders if it is one of filter.sender-lists, or RPs for "
     "filter.rp-lists. It may be named before it is there: who names it waits for it."},
    {"access-list.NAME.rules", "rules = [{...}, ...]",
     "A rule. The lowest sequence number acts first, and the first rule that matches an address decides on "
     "it; what no rule matches is denied."},
    {"timers", "[timers]", "How long what was heard is believed (RFC 5059 section 5)."},
    {"checks", "[checks]", "What a packet must fulfil before it is looked at; each refusal has its counter."},
    {"limits", "[limits]",
     "How much other routers may make this one do and keep, so that a flood costs bounded memory and time; 0 "
     "is no bound. What is beyond is dropped and counted."},
    {"control", "[control]", "How the command line reaches the running router."},
    {"state", "[state]", "What is kept over a restart."},
    {"trace", "[trace]", "What the engine tells of its work."},
};

static constexpr U64 largest32 = 4294967295;
static constexpr char const* none = "[]";
static constexpr char const* allGroups = "[\"224.0.0.0/4\"], or [] where there are lists";

// The columns stand as they are below; each row is one key.
// clang-format off
static constexpr ConfigKey keys[] = {
    {"interface.NAME", "pim", KeyType::boolean, "", 0, 0, "true",
     "Whether PIM is spoken; false for an interface that is named here only for its borders."},
    {"interface.NAME", "hello", KeyType::boolean, "", 0, 0, "true",
     "Whether Hellos are sent; false where another program of this computer does. They are heard anyway."},
    {"interface.NAME", "dr-priority", KeyType::integer, "", 0, largest32, "1",
     "Higher wins the election of the Designated Router (RFC 7761 section 4.3.2)."},
    {"interface.NAME", "hello-interval", KeyType::integer, "s", 1, 18724, "30",
     "Time between two Hellos; neighbours keep this router for 3.5 times that."},
    {"interface.NAME", "border", KeyType::groupRanges, "", 0, 0, none,
     "Scope zones that end here: their Bootstrap Messages don't cross this interface."},
    {"interface.NAME", "border-lists", KeyType::listNames, "", 0, 0, none,
     "Access lists whose group ranges end here."},

    {"candidate-bsr", "interface", KeyType::interfaceName, "", 0, 0, "",
     "The interface whose address the candidate has."},
    {"candidate-bsr", "groups", KeyType::groupRanges, "", 0, 0, allGroups,
     "Group ranges, each a zone; 224.0.0.0/4 is the global one."},
    {"candidate-bsr", "lists", KeyType::listNames, "", 0, 0, none,
     "Access lists; each group range that one permits is a zone."},
    {"candidate-bsr", "priority", KeyType::integer, "", 0, 255, "64",
     "Higher wins the election; of equal ones the higher address."},
    {"candidate-bsr", "hash-mask-length", KeyType::integer, "bits", 0, 32, "30",
     "Bits of a group address that choose among RPs of equal priority."},
    {"candidate-bsr", "interval", KeyType::integer, "s", 10, 13652, "60",
     "Time between two Bootstrap Messages while it is elected; three times that must fit a holdtime."},

    {"candidate-rp", "interface", KeyType::interfaceName, "", 0, 0, "",
     "The interface whose address the candidate has."},
    {"candidate-rp", "groups", KeyType::groupRanges, "", 0, 0, allGroups,
     "Group ranges that it offers to serve."},
    {"candidate-rp", "lists", KeyType::listNames, "", 0, 0, none,
     "Access lists; it offers to serve each group range that one permits."},
    {"candidate-rp", "priority", KeyType::integer, "", 0, 255, "192",
     "Lower wins among the RPs of a range; those equal share its groups by hash."},
    {"candidate-rp", "interval", KeyType::integer, "s", 1, 13652, "60",
     "Time between two advertisements; three times that is its holdtime, and a BSR raises one of at most 2.5 "
     "of its own intervals to three of them."},

    {"filter", "sender-lists", KeyType::listNames, "", 0, 0, none,
     "Access lists of permitted senders; all are permitted while these lists permit none."},
    {"filter", "rp-lists", KeyType::listNames, "", 0, 0, none,
     "Access lists of preferred RPs: in a full group range they displace others and are never displaced."},

    {"access-list.NAME", "rules", KeyType::rules, "", 0, 0, none,
     "The rules; their keys are below."},

    {"access-list.NAME.rules", "seq", KeyType::integer, "", 0, largest32,
     "10 above the rule before it, 10 for the first",
     "Sequence number, once in a list."},
    {"access-list.NAME.rules", "action", KeyType::action, "", 0, 0, "",
     "What becomes of an address that matches."},
    {"access-list.NAME.rules", "prefix", KeyType::prefix, "", 0, 0, "\"0.0.0.0/0\"",
     "Matches the addresses of this prefix."},
    {"access-list.NAME.rules", "address", KeyType::address, "", 0, 0, "none",
     "Matches, in place of a prefix, the addresses that agree with this one where the mask has a bit."},
    {"access-list.NAME.rules", "mask", KeyType::address, "", 0, 0, "none",
     "The mask of an address, \"255.255.255.0\" for a /24; it may have holes."},

    {"timers", "hold-time", KeyType::integer, "s", 12, 1073741823, "130",
     "Time without a message after which the BSR of a zone is given up."},
    {"timers", "zone-timeout", KeyType::integer, "s", 120, largest32, "1300",
     "Time without a BSR after which a scope zone is forgotten; ten times the hold time at least is used."},

    {"checks", "link-local-ttl", KeyType::boolean, "", 0, 0, "true",
     "Packets to 224.0.0.13 must have a TTL of 1 (RFC 7761 section 4.9)."},
    {"checks", "on-subnet", KeyType::boolean, "", 0, 0, "true",
     "Link-local messages must come from an address of the interface's subnets."},
    {"checks", "from-neighbors", KeyType::boolean, "", 0, 0, "true",
     "Bootstrap Messages must come from a neighbour whose Hello was heard (RFC 5059 section 3.1.3)."},
    {"checks", "not-own-bsr", KeyType::boolean, "", 0, 0, "true",
     "Bootstrap Messages must not name this router itself as their BSR: neighbours send them back."},

    {"limits", "packets-per-second", KeyType::integer, "1/s", 0, largest32, "1000",
     "PIM packets that are read in a second, in the mean: of each neighbor, and of all other senders of an "
     "interface together."},
    {"limits", "hellos-per-second", KeyType::integer, "1/s", 0, largest32, "200",
     "Hellos from addresses that are no neighbor's, read in a second on each interface, in the mean."},
    {"limits", "advertisements-per-second", KeyType::integer, "1/s", 0, largest32, "1000",
     "Packets to a unicast address, as advertisements are, that are read in a second, in the mean; each "
     "sender of an accepted advertisement has one more of its own, and 10 at once."},
    {"limits", "neighbors-per-interface", KeyType::integer, "", 0, largest32, "256",
     "Addresses of neighbors that are kept of one interface; in a full table a new neighbor displaces those "
     "that were silent for longest, and for more than 105 s."},
    {"limits", "learned-zones", KeyType::integer, "", 0, largest32, "64",
     "Scope zones that are followed and are no candidacy of this router."},
    {"limits", "fragment-rps", KeyType::integer, "", 0, largest32, "4096",
     "RPs that wait for the rest of their fragmented message, in all zones together."},
    {"limits", "rps", KeyType::integer, "", 0, largest32, "20000",
     "RPs in the RP sets of all zones together. While this router is BSR, advertisements of RPs that are not "
     "in filter.rp-lists, if any, fill half of it at most."},
    {"limits", "ranges-per-zone", KeyType::integer, "", 0, largest32, "4096",
     "Group ranges in the RP set of one zone. While this router is BSR, half of it is kept for the RPs of "
     "filter.rp-lists, if any."},
    {"limits", "rps-per-range", KeyType::integer, "", 0, 255, "255",
     "RPs of one group range while this router is BSR: RP Count has 8 bits (RFC 5059 section 4.1). In a full "
     "range an RP of lower priority value displaces the worst one, once in an interval of the BSR."},
    {"limits", "rps-per-sender", KeyType::integer, "", 0, largest32, "64",
     "RP addresses other than its own that one sender of advertisements adds while this router is BSR, the "
     "RPs of filter.rp-lists apart."},
    {"limits", "ranges-per-sender", KeyType::integer, "", 0, largest32, "1024",
     "Group ranges that one sender of advertisements adds while this router is BSR, counted for each RP. The "
     "RP that is the sender itself and each RP of filter.rp-lists have a bound of their own, of as many."},

    {"control", "socket", KeyType::socketPath, "", 0, 0, "\"/run/pimbsr/control.sock\"",
     "Path of the Unix socket that takes requests, or \"\" for none; a change needs a restart."},
    {"control", "read-only-socket", KeyType::socketPath, "", 0, 0,
     "\"/run/pimbsr/control-read-only.sock\", or NAME-read-only.sock beside a `socket` NAME.sock",
     "Path of a second socket, which serves `show`, `watch`, `metrics` and `version` alone, or \"\" for "
     "none; a change needs a restart."},
    {"control", "read-only-group", KeyType::groupName, "", 0, 0, "\"\"",
     "Group of users that may use the second socket, or \"\" for the group of the process; a change needs a "
     "restart."},
    {"state", "directory", KeyType::path, "", 0, 0, "\"/var/lib/pimbsr\"",
     "Folder in which the history is kept, or \"\" for none; a change needs a restart."},

    {"trace", "HANDLE", KeyType::integer, "", 0, 9, "off",
     "Traces of this handle up to this level: 1 tells of drops, 4 of accepted messages, 8 of every change, 9 "
     "of every function."},
};
// clang-format on

std::span<ConfigSection const> configSections() { return sections; }
std::span<ConfigKey const> configKeys() { return keys; }

ConfigKey const& configKey(std::string_view section, std::string_view name) {
  auto isIt = [&](ConfigKey const& key) { return key.section == section && key.name == name; };
  auto found = std::find_if(std::begin(keys), std::end(keys), isIt);
  ZET_ASSERT(found != std::end(keys), "a key of the file stands in the table of keys");
  return *found;
}

// Words -----------------------------------------------------------------------------------------------

namespace {

/// A type of keys, other than whole numbers, in words.
struct TypeText {
  KeyType type;
  std::string_view valid;  ///< what a key takes
  std::string_view item;   ///< what its list may hold; empty if it is no list
  std::string_view page;   ///< on the reference page
};

}  // namespace

static constexpr TypeText typeTexts[] = {
    {KeyType::boolean, "true or false", "", "`true`, `false`"},
    {KeyType::interfaceName, "an interface's name of 1 to 15 bytes, such as \"eth0\"", "",
     "name of an interface"},
    {KeyType::groupRanges, "a list of group ranges, [\"239.1.0.0/16\"]",
     "a group range such as \"239.1.0.0/16\"", "list of group ranges"},
    {KeyType::listNames, "a list of names of access lists, [\"inner\"]",
     "a name of 1 to 64 letters, digits, '-', '_', '.' and ':'", "list of access lists"},
    {KeyType::prefix, "an IPv4 prefix such as \"10.1.0.0/16\"", "", "IPv4 prefix"},
    {KeyType::address, "an IPv4 address such as \"10.1.2.3\"", "", "IPv4 address"},
    {KeyType::action, "\"permit\" or \"deny\"", "", "`\"permit\"`, `\"deny\"`"},
    {KeyType::path, "an absolute path without control characters, or \"\" for none", "", "absolute path"},
    {KeyType::socketPath,
     "an absolute path of at most 107 bytes without control characters, or \"\" for none", "",
     "absolute path of at most 107 bytes"},
    {KeyType::groupName, "a group's name of 1 to 32 letters, digits, '-', '_' and '.', or \"\" for none", "",
     "name of a group of users"},
    {KeyType::rules, "a list of rules, [{action = \"permit\", prefix = \"239.1.0.0/16\"}]",
     "a rule such as {action = \"permit\", prefix = \"239.1.0.0/16\"}", "list of tables"},
};

static TypeText const& textOf(KeyType type) {
  auto isIt = [&](TypeText const& text) { return text.type == type; };
  auto found = std::find_if(std::begin(typeTexts), std::end(typeTexts), isIt);
  ZET_ASSERT(found != std::end(typeTexts), "every type but whole numbers has its words");
  return *found;
}

std::string validText(ConfigKey const& key) {
  if (key.type != KeyType::integer) return std::string(textOf(key.type).valid);
  return fmt::format("a whole number{} from {} to {}", key.unit == "s" ? " of seconds" : "", key.least,
                     key.most);
}

std::string validItemText(ConfigKey const& key) {
  bool isList = key.type != KeyType::integer && !textOf(key.type).item.empty();
  return isList ? std::string(textOf(key.type).item) : validText(key);
}

/// How many letters must be put in, taken out or changed to make one text of the other.
static std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({row[j] + 1, row[j + 1] + 1, changed}));
    }
  }
  return row[b.size()];
}

std::string_view closest(std::string_view name, std::span<std::string_view const> names) {
  static constexpr std::size_t longest = 64;
  if (name.size() > longest) return {};
  std::string_view best;
  std::size_t least = std::max<std::size_t>(1, name.size() / 3) + 1;
  for (std::string_view other : names) {
    std::size_t far = distance(name, other);
    if (far < least) {
      least = far;
      best = other;
    }
  }
  return best;
}

/// What may stand in a table, once each: keys, or at the top of the file the first words of the tables.
static std::vector<std::string_view> namesIn(std::string_view section) {
  std::vector<std::string_view> names;
  auto add = [&](std::string_view name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  if (section.empty()) {
    for (ConfigSection const& one : sections) add(one.name.substr(0, one.name.find('.')));
  }
  for (ConfigKey const& key : keys) {
    if (key.section == section) add(key.name);
  }
  return names;
}

std::string unknownKeyText(std::string_view section, std::string_view name) {
  std::vector<std::string_view> names = namesIn(section);
  if (std::string_view meant = closest(name, names); !meant.empty()) {
    return fmt::format("no such key; did you mean {}?", meant);
  }
  return fmt::format("no such key; valid here {} {}", names.size() == 1 ? "is" : "are",
                     fmt::join(names, ", "));
}

// The reference page ----------------------------------------------------------------------------------

static std::string rangeText(ConfigKey const& key) {
  if (key.type != KeyType::integer) return std::string(textOf(key.type).page);
  return fmt::format("{} to {}", key.least, key.most);
}

static constexpr char const* referenceHead = R"(# The configuration file

`pimbsr run --config FILE` reads it, `pimbsr check FILE` says what is wrong or unwise in it, and
`pimbsr reload` applies what has changed. It is written in TOML (version 1.0), in UTF-8, and has at most
1 MiB. Every key may be left out unless it is said to be needed; without any, no interface speaks PIM and this
router is no candidate for anything. Times are whole seconds. [An example](../examples/pimbsr.toml) is a place
to begin.

A file with a fault changes nothing. Every fault is told with its line and column, what was read, and what
would be valid.
)";

std::string configReference() {
  std::string page = referenceHead;
  for (ConfigSection const& section : sections) {
    page += fmt::format(
        "\n## `{}`\n\n{}\n\n| key | valid | unit | default | what it does |\n|---|---|---|---|---|\n",
        section.header, section.sentence);
    for (ConfigKey const& key : keys) {
      if (key.section != section.name) continue;
      page += fmt::format("| `{}` | {} | {} | {} | {} |\n", key.name, rangeText(key), key.unit,
                          key.fallback.empty() ? "needed" : key.fallback, key.sentence);
    }
  }
  return page;
}

}  // namespace pimbsr::agent
