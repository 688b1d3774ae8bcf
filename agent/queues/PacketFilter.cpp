#include "agent/queues/PacketFilter.h"

#include <algorithm>
#include <span>

#include "runtime/Assert.h"

namespace pimbsr::agent {

using Lanet::IpAddr;
using Lanet::Prefix;
using Zet::U16;
using Zet::U32;
using Zet::U8;

static constexpr U32 wholePacket = 0xffffffff;
static constexpr U32 nothing = 0;
// Offsets in an IPv4 header (RFC 791 section 3.1).
static constexpr U32 sourceOffset = 12;
static constexpr U32 destinationOffset = 16;
// Version and type of a PIM message, its first byte (RFC 7761 section 4.9).
static constexpr U32 helloByte = 0x20;
static constexpr U32 bootstrapByte = 0x24;
static constexpr U32 crpAdvByte = 0x28;
static constexpr U32 versionMask = 0xf0;

// The bits that the first bytes of all groups have, as in 224.0.0.0/4.
static constexpr U32 groupByte = Lanet::firstGroup.hostWord() >> 24;
static constexpr U32 groupMask = 0xff & ~(groupByte ^ (Lanet::lastGroup.hostWord() >> 24));

// Steps -------------------------------------------------------------------------------------------------

static sock_filter step(unsigned code, U32 value) { return {static_cast<U16>(code), 0, 0, value}; }

/// Jumps are relative: over so many steps if it holds, over so many if it doesn't.
static sock_filter branch(unsigned test, U32 value, std::size_t ifTrue, std::size_t ifFalse) {
  ZET_ASSERT(ifTrue < 256 && ifFalse < 256, "a conditional jump reaches 255 steps far");
  return {static_cast<U16>(BPF_JMP | test | BPF_K), static_cast<U8>(ifTrue), static_cast<U8>(ifFalse), value};
}

static sock_filter verdict(U32 bytes) { return step(BPF_RET | BPF_K, bytes); }

static void append(FilterProgram& program, FilterProgram const& more) {
  program.insert(program.end(), more.begin(), more.end());
}

/// Loads the first byte after the IP header. A packet without one is dropped by the kernel.
static FilterProgram loadType() {
  return {step(BPF_LDX | BPF_B | BPF_MSH, 0), step(BPF_LD | BPF_B | BPF_IND, 0)};
}

/// Ends with `nothing` for PIM messages of other types, and else goes on.
static FilterProgram checkType() {
  FilterProgram program = loadType();
  append(program, {branch(BPF_JEQ, helloByte, 5, 0), branch(BPF_JEQ, bootstrapByte, 4, 0),
                   branch(BPF_JEQ, crpAdvByte, 3, 0), step(BPF_ALU | BPF_AND | BPF_K, versionMask),
                   branch(BPF_JEQ, helloByte & versionMask, 0, 1), verdict(nothing)});
  return program;
}

static U32 maskOf(Prefix const& prefix) {
  return prefix.length() == 0 ? 0 : ~U32{0} << (32 - prefix.length());
}

static std::span<Prefix const> bounded(std::vector<Prefix> const& subnets) {
  return std::span(subnets).first(std::min(subnets.size(), maxFilterSubnets));
}

// Senders -----------------------------------------------------------------------------------------------

/// Addresses that one leaf of the search compares one after the other.
static constexpr std::size_t leafSize = 8;

/// A binary search for the loaded address, which ends with one of two verdicts.
static FilterProgram search(std::span<IpAddr const> sorted, U32 ifFound, U32 ifNot) {
  FilterProgram program;
  if (sorted.size() <= leafSize) {
    for (std::size_t i = 0; i < sorted.size(); ++i)
      program.push_back(branch(BPF_JEQ, sorted[i].hostWord(), sorted.size() - i, 0));
    append(program, {verdict(ifNot), verdict(ifFound)});
    return program;
  }
  std::size_t middle = sorted.size() / 2;
  FilterProgram low = search(sorted.first(middle), ifFound, ifNot);
  program = {branch(BPF_JGE, sorted[middle].hostWord(), 0, 1),
             step(BPF_JMP | BPF_JA, static_cast<U32>(low.size()))};
  append(program, low);
  append(program, search(sorted.subspan(middle), ifFound, ifNot));
  return program;
}

static FilterProgram bySender(std::vector<IpAddr> const& senders, U32 ifFound, U32 ifNot) {
  ZET_ASSERT(senders.size() <= maxFilterAddresses, "a filter holds so many addresses");
  ZET_ASSERT(std::is_sorted(senders.begin(), senders.end()), "addresses of a filter are sorted");
  FilterProgram program = {step(BPF_LD | BPF_W | BPF_ABS, sourceOffset)};
  append(program, search(senders, ifFound, ifNot));
  return program;
}

/// Ends with `nothing` for senders in these subnets, or for those outside, and else goes on.
static FilterProgram checkSubnets(std::span<Prefix const> subnets, bool within) {
  FilterProgram program;
  constexpr std::size_t stepsEach = 3;
  std::size_t left = subnets.size() * stepsEach;
  for (Prefix const& subnet : subnets) {
    left -= stepsEach;
    append(program,
           {step(BPF_LD | BPF_W | BPF_ABS, sourceOffset), step(BPF_ALU | BPF_AND | BPF_K, maskOf(subnet)),
            branch(BPF_JEQ, subnet.address().hostWord(), left + 1, 0)});
  }
  if (within) {
    append(program, {step(BPF_JMP | BPF_JA, 1), verdict(nothing)});
  } else {
    program.push_back(verdict(nothing));
  }
  return program;
}

// Programs ----------------------------------------------------------------------------------------------

FilterProgram passNothing() { return {verdict(nothing)}; }

/// Ends with `nothing` for packets to groups and for PIM messages of other types, and else goes on.
static FilterProgram checkUnicast() {
  FilterProgram program = {step(BPF_LD | BPF_B | BPF_ABS, destinationOffset),
                           step(BPF_ALU | BPF_AND | BPF_K, groupMask), branch(BPF_JEQ, groupByte, 0, 1),
                           verdict(nothing)};
  append(program, checkType());
  return program;
}

FilterProgram passUnicast(std::vector<IpAddr> const& exceptSenders) {
  FilterProgram program = checkUnicast();
  append(program, bySender(exceptSenders, nothing, wholePacket));
  return program;
}

FilterProgram passUnicastFrom(std::vector<IpAddr> const& senders) {
  FilterProgram program = checkUnicast();
  append(program, bySender(senders, wholePacket, nothing));
  return program;
}

FilterProgram passPim() {
  FilterProgram program = checkType();
  program.push_back(verdict(wholePacket));
  return program;
}

FilterProgram passSenders(std::vector<IpAddr> const& senders) {
  FilterProgram program = checkType();
  append(program, bySender(senders, wholePacket, nothing));
  return program;
}

FilterProgram passHellos(std::vector<Prefix> const& subnets, std::vector<IpAddr> const& exceptSenders) {
  FilterProgram program = loadType();
  append(program, {branch(BPF_JEQ, helloByte, 1, 0), verdict(nothing)});
  append(program, checkSubnets(bounded(subnets), false));
  append(program, bySender(exceptSenders, nothing, wholePacket));
  return program;
}

FilterProgram passOthers(std::vector<Prefix> const& helloSubnets, std::vector<IpAddr> const& exceptSenders) {
  FilterProgram program = checkType();
  FilterProgram check = checkSubnets(bounded(helloSubnets), true);
  append(program, loadType());
  program.push_back(branch(BPF_JEQ, helloByte, 0, check.size()));
  append(program, check);
  append(program, bySender(exceptSenders, nothing, wholePacket));
  return program;
}

}  // namespace pimbsr::agent
