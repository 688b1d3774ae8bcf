#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "model/Config.h"
#include "model/Status.h"
#include "tests/support/Allocations.h"
#include "tests/support/Messages.h"
#include "tests/support/Mirror.h"
#include "tests/support/RangeError.h"
#include "tests/support/TestContext.h"

/// Bytes that no original sends, at the reader of an attribute log.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::Config;
using Bsr::Status;
using testing_support::rangeError;
using Zet::AttributeId;
using Zet::Ptr;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::NboAttrLog::Op;
using Zet::NboAttrLog::Out;
using Bytes = std::vector<U8>;
using Write = std::function<void(Out&)>;

constexpr U32 flow = 7;

/// A message of which the header may name anything; `rest` writes what follows it.
struct Message {
  char const* name;
  Op op = Op::value;
  U32 object = Zet::NboAttrLog::rootId;
  AttributeId attribute = 0;
  Write rest = nullptr;
  std::string error = {};  ///< of the reader
  U32 flow = test::flow;
};

Bytes bytesOf(Out const& out) { return Bytes(out.bytes().begin(), out.bytes().end()); }

Bytes bytesOf(Message const& message) {
  Out out;
  put(out, U32{0});
  put(out, message.flow);
  put(out, static_cast<U8>(message.op));
  put(out, message.object);
  put(out, message.attribute);
  if (message.rest) message.rest(out);
  out.overwrite(0, static_cast<U32>(out.size() - 4));
  return bytesOf(out);
}

/// What writes values one after the other.
template <class... T>
Write values(T const&... value) {
  return [=](Out& out) { (put(out, value), ...); };
}
/// The beginning of a snapshot of a type.
template <class... T>
Write snapshotOf(char const* type, T const&... rest) {
  return values(Zet::NboAttrLog::modelFingerprint(), String8(type), rest...);
}

/// A status tree with a candidate, which is object 2, and its copy.
class AttrLogAttack : public ModelTest {
 protected:
  AttrLogAttack() {
    status->cbsrIs(zone)->priorityIs(5);
    status->zoneAclIs("acl", intf("eth0"));
    mirror.sync();
  }
  /// The bytes that a change sends, which don't come to the copy.
  Bytes sentBy(std::function<void()> const& change) {
    change();
    mirror.tape->bytes.clear();
    mirror.out->flush();
    return mirror.tape->bytes;
  }
  void expectRepaired(std::string const& what) {
    mirror.demuxer->reset();
    mirror.out->snapshotIs();
    mirror.sync();
    EXPECT_TRUE(mirror.isEqual()) << what << "\n" << logged(copy);
  }

  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  Ptr<Status> status = Bsr::statusFactory("bsr");
  Mirror<Status> mirror{status, Bsr::statusFactory("bsr")};
  Status& copy = *mirror.copy;
  Zet::NboAttrLog::Demuxer& reader = *mirror.demuxer;
};

// Truncation --------------------------------------------------------------------------------------------

TEST_F(AttrLogAttack, AMessageCutAtAnyByteIsRejectedWithAReasonAndRepaired) {
  struct Case {
    char const* name;
    std::function<void()> change;
  };
  for (Case const& c : {Case{"value", [&] { status->bsTimeoutIs(130); }},
                        Case{"value under a key", [&] { status->zoneAclIs("acl", intf("eth1")); }},
                        Case{"value removed", [&] { status->zoneAclDel("acl"); }},
                        Case{"member", [&] { status->cbsrIs(prefix("239.1.0.0/16"))->priorityIs(9); }},
                        Case{"address", [&] { status->cbsr(zone)->addressIs(addr("2001:db8::1")); }},
                        Case{"member removed", [&] { status->cbsrDel(zone); }},
                        Case{"single object", [&] { status->countersIs("c")->rxInc(2); }},
                        Case{"snapshot", [&] { mirror.out->snapshotIs(); }}}) {
    Bytes const whole = sentBy(c.change);
    for (std::size_t size = 4; size < whole.size(); ++size) {
      Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      cut[0] = cut[1] = 0;
      cut[2] = static_cast<U8>((size - 4) >> 8);
      cut[3] = static_cast<U8>(size - 4);
      U64 const before = reader.rejected();
      reader.bytes(cut);
      EXPECT_EQ(reader.rejected(), before + 1) << c.name << " " << size;
      EXPECT_FALSE(reader.lastError().empty()) << c.name << " " << size;
      expectRepaired(c.name);
    }
  }
}

TEST_F(AttrLogAttack, AStreamCutAtAnyByteWaitsForTheRest) {
  Bytes const whole = sentBy([&] {
    status->bsTimeoutIs(130);
    status->cbsrDel(zone);
    mirror.out->snapshotIs();
  });
  for (std::size_t size = 1; size < whole.size(); ++size) {
    auto const split = whole.begin() + static_cast<std::ptrdiff_t>(size);
    reader.bytes(Bytes(whole.begin(), split));
    reader.bytes(Bytes(split, whole.end()));
    EXPECT_TRUE(mirror.isEqual()) << size;
  }
  EXPECT_EQ(reader.rejected(), 0u);
}

TEST_F(AttrLogAttack, AMessageInManyPiecesCostsItsBytes) {
  constexpr int size = 100'000;
  Bytes const bytes = bytesOf(
      Message{"", Op::member, 1, Status::attrZoneAcl, values(String8("b"), String8(std::string(size, 'x')))});
  int const pieces = allocationsOf([&] {
    for (U8 const& byte : bytes) reader.bytes({&byte, 1});
  });
  EXPECT_LT(pieces, 100) << "what has come is copied for each piece";
  EXPECT_EQ(copy.zoneAcl("b").stringValue().view().size(), std::size_t{size});
}

// Messages ----------------------------------------------------------------------------------------------

TEST_F(AttrLogAttack, AChangeThatIsNoneOfItsObjectIsRejectedByItsTextAndASnapshotIsAskedFor) {
  constexpr U32 most = 0xffffffff;
  Message const cases[] = {
      {"no header", Op::value, 1, 0, nullptr, "truncated"},
      {"unknown object", Op::value, 77, Status::attrBsTimeout, values(U32{1}), "unknown object"},
      {"object 0", Op::value, 0, Status::attrBsTimeout, values(U32{1}), "unknown object"},
      {"operation 0", Op{0}, 1, Status::attrBsTimeout, values(U32{1}),
       "attribute bsTimeout does not support update"},
      {"operation 255", Op{255}, 1, Status::attrBsTimeout, values(U32{1}),
       "attribute bsTimeout does not support update"},
      {"a value of a collection", Op::value, 1, Status::attrCbsr, values(zone),
       "attribute cbsr does not support update"},
      {"a member of a value", Op::member, 1, Status::attrBsTimeout, values(U32{1}),
       "attribute bsTimeout does not support update"},
      {"an object of plain values", Op::object, 1, Status::attrZoneAcl, values(U32{0}, String8("acl")),
       "attribute zoneAcl does not support update"},
      {"a value removed", Op::del, 1, Status::attrBsTimeout, values(U32{0}),
       "attribute bsTimeout does not support update"},
      {"attribute -1", Op::value, 1, -1, values(U32{1}), "unknown attribute: -1"},
      {"attribute 1000", Op::value, 1, 1000, values(U32{1}), "unknown attribute: 1000"},
      {"an attribute that no log carries", Op::value, 1, Status::attrName, values(String8("x")),
       "unknown attribute: " + std::to_string(Status::attrName)},
      {"an attribute of another class", Op::value, 2, Status::attrCrpPermit, values(U32{1}),
       "unknown attribute: " + std::to_string(Status::attrCrpPermit)},
      {"a byte more", Op::value, 1, Status::attrBsTimeout, values(U32{1}, U8{0}), "bytes after the end"},
      {"no bool", Op::member, 1, Status::attrCrpPermit, values(zone, U8{2}), "no bool"},
      {"a string without end", Op::member, 1, Status::attrZoneAcl, values(most, String8("x")), "truncated"},
      {"a list of numbers without end", Op::del, 1, Status::attrCbsr, values(most, U32{2}), "truncated"},
      {"a key that is none", Op::del, 1, Status::attrCbsr, values(U32{0}, U32{9}), "AddressFamily"},
      {"a key with bits beyond its length", Op::member, 1, Status::attrCrpPermit,
       values(addr("239.1.0.0"), U32{8}, true), "prefix with host bits"},
      {"an address that is none", Op::value, 2, Bsr::BsrCandidate::attrAddress,
       values(U32{3}, Lanet::Ip6Addr()), "AddressFamily"},
      {"a number used twice", Op::object, 1, Status::attrCbsr, values(U32{0}, prefix("239.1.0.0/16"), U32{2}),
       "number of an object used twice"},
      {"the root as a member", Op::object, 1, Status::attrCbsr,
       values(U32{0}, prefix("239.1.0.0/16"), U32{1}), "number of an object used twice"},
  };
  for (Message message : cases) {
    if (!message.rest) message.attribute = Status::attrBsTimeout;
    mirror.demuxer->asked.clear();
    reader.bytes(bytesOf(message));
    EXPECT_EQ(reader.lastError(), message.error) << message.name;
    EXPECT_EQ(mirror.demuxer->asked, std::vector<U32>{flow}) << message.name;
    expectRepaired(message.name);
  }
  EXPECT_EQ(reader.rejected(), std::size(cases));
}

TEST_F(AttrLogAttack, AnotherFlowIsRejectedAndAsksNothing) {
  reader.bytes(
      bytesOf(Message{"", Op::value, 1, Status::attrBsTimeout, values(U32{1}), "", /*flow=*/flow + 1}));
  EXPECT_EQ(reader.lastError(), "unknown flow");
  EXPECT_TRUE(mirror.demuxer->asked.empty());
  EXPECT_EQ(copy.bsTimeout(), 0u);
}

TEST_F(AttrLogAttack, ASnapshotThatIsNoneIsRejectedByItsTextAndAskedForNoMore) {
  Message const cases[] = {
      {"nothing", Op::snapshot, 1, 0, nullptr, "truncated"},
      {"another model", Op::snapshot, 1, 0, values(U32{1}, String8("Routing::Pim::Bsr::Status")),
       "log of another model"},
      {"an unknown class", Op::snapshot, 1, 0, snapshotOf("Routing::Pim::Bsr::Nothing"),
       "not an object of type Routing::Pim::Bsr::Status"},
      {"another class", Op::snapshot, 1, 0, snapshotOf("Routing::Pim::Bsr::Config"),
       "not an object of type Routing::Pim::Bsr::Status"},
      {"the class without its namespace", Op::snapshot, 1, 0, snapshotOf("Status"),
       "not an object of type Routing::Pim::Bsr::Status"},
      {"a class name without end", Op::snapshot, 1, 0,
       values(Zet::NboAttrLog::modelFingerprint(), U32{0xffffffff}), "truncated"},
      {"no content", Op::snapshot, 1, 0, snapshotOf("Routing::Pim::Bsr::Status"), "truncated"},
  };
  for (Message const& message : cases) {
    reader.bytes(bytesOf(message));
    EXPECT_EQ(reader.lastError(), message.error) << message.name;
    EXPECT_TRUE(mirror.demuxer->asked.empty()) << message.name;
    expectRepaired(message.name);
  }
}

TEST_F(AttrLogAttack, AMessageOfNoBytesOrAPartOfAHeaderIsRejected) {
  for (U8 size = 0; size < 13; ++size) {
    Bytes bytes(4u + size, 0);
    bytes[3] = size;
    reader.bytes(bytes);
    EXPECT_EQ(reader.lastError(), "truncated") << int{size};
  }
  expectRepaired("parts of headers");
}

// Values ------------------------------------------------------------------------------------------------

TEST_F(AttrLogAttack, AValueOutOfItsRangeRaisesItsFixedTextAndNothingIsClamped) {
  auto const candidate = Bsr::rpCandidateFactory(addr("10.0.0.1"));
  auto const rp = Routing::Pim::rpCandidateFactory(addr("10.0.0.1"));
  auto const state = Bsr::bsrCandidateFactory(zone);
  constexpr char const* interval = "CrpAdvInterval::value < 1 or > 16383 not allowed";
  constexpr char const* priority = "RpPriority::value < 0 or > 256 not allowed";
  constexpr char const* holdTime = "CrpHoldTime::value < 0 or > 40958 not allowed";
  constexpr U32 most = 0xffffffff;
  struct Case {
    Ptr<Zet::PtrInterface> object;
    AttributeId attribute;
    Write value;
    char const* text;
  };
  for (Case const& c : {Case{candidate, Bsr::RpCandidate::attrInterval, values(U32{0}), interval},
                        Case{candidate, Bsr::RpCandidate::attrInterval, values(U32{16384}), interval},
                        Case{candidate, Bsr::RpCandidate::attrInterval, values(most), interval},
                        Case{rp, Routing::Pim::RpCandidate::attrPriority, values(U32{257}), priority},
                        Case{rp, Routing::Pim::RpCandidate::attrPriority, values(most), priority},
                        Case{rp, Routing::Pim::RpCandidate::attrHoldTime, values(U16{40959}), holdTime},
                        Case{rp, Routing::Pim::RpCandidate::attrHoldTime, values(U16{0xffff}), holdTime},
                        Case{state, Bsr::BsrCandidate::attrState, values(U32{4}), "BsrCandidateState"},
                        Case{state, Bsr::BsrCandidate::attrState, values(most), "BsrCandidateState"}}) {
    std::string const before = logged(*c.object);
    Out out;
    c.value(out);
    Zet::NboAttrLog::Objects objects;
    Zet::NboAttrLog::Update update{Op::value, c.attribute, Zet::NboAttrLog::In(out.bytes()), objects};
    EXPECT_EQ(rangeError([&] { deserializeAttr(*c.object, update); }), c.text);
    EXPECT_EQ(logged(*c.object), before) << c.text;
  }
}

TEST_F(AttrLogAttack, AValueOutOfItsRangeIsCountedAndAsksNothing) {
  Mirror<Config> configs(Bsr::configFactory("bsr"), Bsr::configFactory("bsr"));
  configs.sync();
  for (U32 number : {11u, 0x40000000u, 0xffffffffu}) {
    configs.demuxer->bytes(bytesOf(Message{"", Op::value, 1, Config::attrHoldTime, values(number)}));
    EXPECT_EQ(configs.demuxer->lastError(), "Config::holdTime < 12 or > 1073741823 not allowed");
  }
  EXPECT_EQ(configs.demuxer->outOfRange(), 3u);
  EXPECT_EQ(configs.demuxer->rejected(), 0u);
  EXPECT_TRUE(configs.demuxer->asked.empty());
}

TEST_F(AttrLogAttack, ASnapshotEndsAtAValueThatIsNoneAndTakesNothingFromItsMiddle) {
  auto original = Bsr::bsrCandidateFactory(zone);
  original->addressIs(addr("10.1.2.3"));
  original->priorityIs(77);
  Mirror<Bsr::BsrCandidate> candidates(original, Bsr::bsrCandidateFactory(zone));
  candidates.out->flush();
  Bytes bytes = candidates.tape->bytes;
  // The address is the first value of a candidate; a family that isn't one has no known end.
  Out address;
  put(address, original->address());
  auto const found = std::search(bytes.begin(), bytes.end(), address.bytes().begin(), address.bytes().end());
  ASSERT_NE(found, bytes.end());
  found[3] = 9;
  candidates.demuxer->bytes(bytes);
  EXPECT_EQ(candidates.demuxer->lastError(), "AddressFamily");
  EXPECT_EQ(candidates.demuxer->rejected(), 1u);
  EXPECT_EQ(candidates.copy->priority(), Bsr::BsrCandidate::priorityUnknown());
}

}  // namespace
}  // namespace test
