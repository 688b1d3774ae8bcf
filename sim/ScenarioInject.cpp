#include "sim/ScenarioInject.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "wire/Checksum.h"
#include "wire/Wire.h"
#include "wire/Writer.h"

namespace pimbsr::sim {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpAddr;
using Zet::Ptr;

static constexpr U8 scopedFlag = 0x01;
static constexpr U8 bidirFlag = 0x80;
static constexpr U8 unicastTtl = 64;
static constexpr std::size_t pimHeaderSize = 4;
static constexpr std::size_t pimChecksumAt = 2;
static constexpr U16 nativeIpv4 = 0x0100;  // address family and encoding type

/// Wraps a message into a packet; the destination is that of PIM routers unless another was given.
static Inject injectOf(ScenarioLine& line, U32 link, IpAddr from, IpAddr to, std::vector<U8> const& pim) {
  Inject inject{.link = link};
  U8 ttl = to.isMulticast() ? 1 : unicastTtl;
  if (!wire::encodeIpv4({.source = from, .destination = to, .ttl = ttl}, pim, inject.packet)) {
    line.fail("the message is too long for a packet");
  }
  return inject;
}

static void fillChecksum(std::vector<U8>& pim) {
  wire::Writer out(pim);
  out.u16At(pimChecksumAt, 0);
  out.u16At(pimChecksumAt, wire::checksum(pim));
}

/// A field of a message, with any value that has room in it.
template <class Field>
static Field fieldOf(ScenarioLine& line, std::string_view key) {
  return static_cast<Field>(line.number(key, 0, std::numeric_limits<Field>::max()));
}

// Bootstrap Messages ----------------------------------------------------------------------------------

/// An RP as a group names it, also one that no router may send: the encoder of messages leaves such RPs out.
struct InjectedRp {
  IpAddr address;
  U16 holdtime = 150;
  U8 priority = host::RpRangeTerms().priority;
};

/// A group of a Bootstrap Message.
struct InjectedGroup {
  Lanet::Prefix range;
  U8 flags = 0;
  U8 rpCount = 0;
  std::vector<InjectedRp> rps;
};

static void readRp(ScenarioLine& line, InjectedGroup& group) {
  std::string_view text = line.peek();
  InjectedRp rp{.address = line.address("rp")};
  auto isSame = [&](InjectedRp const& other) { return other.address == rp.address; };
  if (std::any_of(group.rps.begin(), group.rps.end(), isSame)) {
    line.fail(fmt::format("RP {} is given twice in one range; 'inject LINK raw' can send that", text));
  }
  while (!line.atEnd()) {
    if (line.take("priority")) {
      rp.priority = fieldOf<U8>(line, "priority");
    } else if (line.take("holdtime")) {
      rp.holdtime = fieldOf<U16>(line, "holdtime");
    } else {
      break;
    }
  }
  group.rps.push_back(rp);
}

static InjectedGroup readGroup(ScenarioLine& line) {
  InjectedGroup group{.range = line.range("group").v4Prefix()};
  std::optional<U64> rpCount;
  while (!line.atEnd() && line.peek() != "group") {
    if (line.take("scoped")) {
      group.flags |= scopedFlag;
    } else if (line.take("bidir")) {
      group.flags |= bidirFlag;
    } else if (line.take("rp-count")) {
      rpCount = fieldOf<U8>(line, "rp-count");
    } else if (line.take("rp")) {
      readRp(line, group);
    } else {
      line.failUnknown(line.peek(), "option of a group",
                       {"scoped", "bidir", "rp-count", "rp ADDRESS [priority N] [holdtime S]", "group"});
    }
  }
  U64 listed = group.rps.size();
  if (listed > wire::maxRpCount) line.fail(fmt::format("a range holds at most {} RPs", wire::maxRpCount));
  if (rpCount && *rpCount < listed) {
    line.fail(fmt::format("rp-count {} is less than the {} RPs that follow", *rpCount, listed));
  }
  group.rpCount = static_cast<U8>(rpCount.value_or(listed));
  return group;
}

/// Appends a group in the form of RFC 5059 section 4.1, with encoded addresses of RFC 7761 section 4.9.1.
static void writeGroup(InjectedGroup const& group, wire::Writer& out) {
  out.u16(nativeIpv4);
  out.u8(group.flags);
  out.u8(static_cast<U8>(group.range.length()));
  out.u32(group.range.address().hostWord());
  out.u8(group.rpCount);
  out.u8(static_cast<U8>(group.rps.size()));
  out.u16(0);
  for (InjectedRp const& rp : group.rps) {
    out.u16(nativeIpv4);
    out.u32(rp.address.hostWord());
    out.u16(rp.holdtime);
    out.u8(rp.priority);
    out.u8(0);
  }
}

static Action readBsm(ScenarioLine& line, U32 link, IpAddr from) {
  auto bsm = Zet::make<Packet::BootstrapMessage>();
  bsm->bsrAddressIs(from);
  bsm->bsrPriorityIs(host::BsrTerms().priority);
  bsm->hashMaskLenIs(host::BsrTerms().hashMaskLen);
  bsm->fragmentTagIs(1);
  bsm->groupRpDataIs(Zet::make<Packet::BootstrapOptionalData>());
  IpAddr to = Lanet::allPimRouters;
  while (!line.atEnd() && line.peek() != "group") {
    std::string_view key =
        line.option({"to", "bsr", "priority", "hash-mask-length", "tag", "no-forward", "group"});
    if (key == "to") to = line.anyAddress(key);
    if (key == "bsr") bsm->bsrAddressIs(line.address(key));
    if (key == "priority") bsm->bsrPriorityIs(fieldOf<U8>(line, key));
    if (key == "hash-mask-length") bsm->hashMaskLenIs(fieldOf<U8>(line, key));
    if (key == "tag") bsm->fragmentTagIs(fieldOf<U16>(line, key));
    if (key == "no-forward") bsm->forwardIs(false);
  }
  std::vector<U8> pim;
  if (!wire::encodeBootstrap(*bsm, pim)) line.fail("the message can't be sent");
  wire::Writer out(pim);
  while (line.take("group")) writeGroup(readGroup(line), out);
  fillChecksum(pim);
  return injectOf(line, link, from, to, pim);
}

// The others ------------------------------------------------------------------------------------------

static void readAdvRange(ScenarioLine& line, Packet::CrpGroupData& data) {
  Ptr<Packet::CrpGroupInfo> info = data.groupInfoIs(line.range("group"));
  U8 flags = 0;
  while (!line.atEnd() && line.peek() != "group") {
    if (line.take("scoped")) {
      flags |= scopedFlag;
    } else if (line.take("bidir")) {
      flags |= bidirFlag;
    } else {
      line.failUnknown(line.peek(), "option of a group", {"scoped", "bidir", "group"});
    }
  }
  info->groupFlagsIs(flags);
}

static Action readCrpAdv(ScenarioLine& line, U32 link, IpAddr from) {
  auto adv = Zet::make<Packet::CrpAdvMessage>();
  adv->rpAddressIs(from);
  adv->priorityIs(host::RpRangeTerms().priority);
  adv->holdtimeIs(150);
  adv->groupDataIs(Zet::make<Packet::CrpGroupData>());
  if (!line.take("to")) line.fail("'to ADDRESS' must follow 'from ADDRESS'");
  IpAddr to = line.anyAddress("to");
  while (!line.atEnd() && line.peek() != "group") {
    std::string_view key = line.option({"rp", "priority", "holdtime", "group"});
    if (key == "rp") adv->rpAddressIs(line.address(key));
    if (key == "priority") adv->priorityIs(fieldOf<U8>(line, key));
    if (key == "holdtime") adv->holdtimeIs(fieldOf<U16>(line, key));
  }
  while (line.take("group")) readAdvRange(line, *adv->groupData());
  U32 prefixes = adv->groupData()->groupInfoCount();
  if (prefixes > wire::maxPrefixCount)
    line.fail(fmt::format("an advertisement holds at most {} ranges", wire::maxPrefixCount));
  adv->prefixCountIs(static_cast<U8>(prefixes));
  std::vector<U8> pim;
  if (!wire::encodeCrpAdv(*adv, pim)) line.fail("the message can't be sent");
  return injectOf(line, link, from, to, pim);
}

static Action readHello(ScenarioLine& line, U32 link, IpAddr from) {
  wire::HelloMessage hello{.drPriority = 1, .generationId = 1};
  IpAddr to = Lanet::allPimRouters;
  while (!line.atEnd()) {
    std::string_view key = line.option({"to", "holdtime", "dr-priority", "generation"});
    if (key == "to") to = line.anyAddress(key);
    if (key == "holdtime") hello.holdtime = fieldOf<U16>(line, key);
    if (key == "dr-priority") hello.drPriority = fieldOf<U32>(line, key);
    if (key == "generation") hello.generationId = fieldOf<U32>(line, key);
  }
  std::vector<U8> pim;
  wire::encodeHello(hello, pim);
  return injectOf(line, link, from, to, pim);
}

/// The value of a hexadecimal digit; 16 for another character.
static U8 digitOf(char c) {
  static constexpr std::string_view digits = "0123456789abcdef";
  std::size_t place = digits.find(c);
  return place == std::string_view::npos ? U8{16} : static_cast<U8>(place);
}

static void readHex(ScenarioLine& line, std::vector<U8>& bytes) {
  std::string_view word = line.word("bytes of a message, as hexadecimal digits");
  if (word.size() % 2 != 0) line.fail(fmt::format("{}: two hexadecimal digits make a byte", word));
  for (std::size_t i = 0; i < word.size(); i += 2) {
    U8 high = digitOf(word[i]), low = digitOf(word[i + 1]);
    if (high > 15 || low > 15) line.fail(fmt::format("{}: digits are 0 to 9 and a to f", word));
    bytes.push_back(static_cast<U8>(high << 4 | low));
  }
}

static Action readRaw(ScenarioLine& line, U32 link, IpAddr from) {
  IpAddr to = line.take("to") ? line.anyAddress("to") : Lanet::allPimRouters;
  bool sums = line.take("checksum");
  std::vector<U8> pim;
  do {
    readHex(line, pim);
  } while (!line.atEnd());
  if (!sums) return injectOf(line, link, from, to, pim);
  if (pim.size() < pimHeaderSize) line.fail("a message with a checksum has four bytes at least");
  fillChecksum(pim);
  return injectOf(line, link, from, to, pim);
}

Action readInject(ScenarioLine& line) {
  static constexpr std::string_view kinds[] = {"bsm", "crp-adv", "hello", "raw"};
  U32 link = line.link();
  U32 kind = line.oneOf("kind of message", kinds);
  if (!line.take("from")) line.fail("'from ADDRESS' must follow the kind of message");
  IpAddr from = line.address("from");
  if (kind == 0) return readBsm(line, link, from);
  if (kind == 3) return readRaw(line, link, from);
  return kind == 1 ? readCrpAdv(line, link, from) : readHello(line, link, from);
}

}  // namespace pimbsr::sim
