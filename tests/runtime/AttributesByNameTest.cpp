#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "model/AclValues.h"
#include "runtime/Reflection.h"
#include "tests/runtime/ModelSamples.h"
#include "tests/support/ConfigEngine.h"
#include "tests/support/CrpEngine.h"
#include "tests/support/RangeError.h"

/// Every attribute of every class, by name: what is read can be written, and reads the same.
namespace test {
namespace {

namespace Packet = Routing::Pim::Packet;
using testing_support::rangeError;
using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::GenericIf;
using Zet::GenericIfOf;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::String8;
using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;
using Zet::ZetType;
// Writing ---------------------------------------------------------------------------------------------

bool isValue(AttributeRow const& row) {
  return row.kind == AttributeKind::value || row.kind == AttributeKind::counter;
}

/// Writes a value and reads it.
void expectReadsBack(PtrInterface& object, AttributeRow const& row, String8 const& text) {
  GenericIf const byName(object.fwkType());
  byName.write(object, row.name, text);
  EXPECT_EQ(byName.read(object, row.name), text) << object.fwkType().name << "::" << row.name;
}

/// Both ends of a range are taken; the next numbers are not, with the text of the range.
void expectRange(PtrInterface& object, AttributeRow const& row) {
  std::string const text = row.range;
  auto const [low, high] = rangeOf(object, row);
  GenericIf const byName(object.fwkType());
  auto write = [&](U64 number) { byName.write(object, row.name, Zet::strep(number)); };
  for (U64 end : {low, high}) expectReadsBack(object, row, Zet::strep(end));
  if (low > 0) {
    EXPECT_EQ(rangeError([&] { write(low - 1); }), text);
  }
  if (high < (std::string(row.type) == "U16" ? 0xffffu : 0xffffffffu)) {
    EXPECT_EQ(rangeError([&] { write(high + 1); }), text);
  } else {
    EXPECT_NE(rangeError([&] { write(high + 1); }), "no RangeException") << "beyond the type";
  }
}

/// A value for each key, and the default once the key is gone.
void expectValuesReadBack(PtrInterface& object, AttributeRow const& row) {
  GenericIf const byName(object.fwkType());
  for (String8 const& key : samplesOf(row.keyType)) {
    String8 const absent = byName.read(object, row.name, key);
    for (String8 const& text : samplesOf(row.type)) {
      byName.write(object, row.name, key, text);
      EXPECT_EQ(byName.read(object, row.name, key), text) << object.fwkType().name << "::" << row.name;
    }
    row.del(object, key);
    EXPECT_EQ(byName.read(object, row.name, key), absent) << object.fwkType().name << "::" << row.name;
  }
}

/// A member is there once its key is written.
void expectMemberIsMade(PtrInterface& object, AttributeRow const& row) {
  GenericIf const byName(object.fwkType());
  String8 const key = samplesOf(row.keyType).back(), none = byName.read(object, row.name, key);
  byName.write(object, row.name, key, "");
  EXPECT_NE(byName.read(object, row.name, key), none) << object.fwkType().name << "::" << row.name;
  ASSERT_TRUE(row.member(object, key)) << object.fwkType().name << "::" << row.name;
  row.del(object, key);
  EXPECT_EQ(byName.read(object, row.name, key), none) << object.fwkType().name << "::" << row.name;
}

void expectWritable(PtrInterface& object, AttributeRow const& row) {
  if (row.kind == AttributeKind::values) {
    expectValuesReadBack(object, row);
  } else if (row.isIndexed()) {
    expectMemberIsMade(object, row);
  } else if (row.range[0] != '\0') {
    expectRange(object, row);
  } else {
    for (String8 const& text : samplesOf(row.type)) expectReadsBack(object, row, text);
  }
}

void expectReadOnly(PtrInterface& object, AttributeRow const& row) {
  Zet::AttributeOpArgs args{.key = row.isIndexed() ? samplesOf(row.keyType).back() : String8(),
                            .hasKey = row.isIndexed()};
  GenericIf const byName(object.fwkType());
  EXPECT_THROW(byName.attributeOp(object, row.id, Zet::AttributeOp::write, args), Zet::Exception)
      << object.fwkType().name << "::" << row.name;
}

class AttributesByName : public ModelTest {};

TEST_F(AttributesByName, EveryAttributeOfAnEntityOrARecordReadsAsItWasWritten) {
  std::set<std::string> seen;
  std::size_t written = 0;
  for (Ptr<PtrInterface> const& object : everyRecord()) {
    seen.insert(object->fwkType().name);
    for (AttributeRow const* row : rowsOf(*object)) {
      row->write != nullptr ? expectWritable(*object, *row) : expectReadOnly(*object, *row);
      written += row->write != nullptr;
    }
  }
  std::set<std::string> all = namesOfKind("entity");
  all.merge(namesOfKind("record"));
  EXPECT_EQ(seen, all);
  EXPECT_GT(written, 150u);
}

TEST_F(AttributesByName, EveryPlainValueHasAWriteByName) {
  for (ZetType const* type : Zet::zetTypes()) {
    if (!isOfKind(*type, "entity") && !isOfKind(*type, "record")) continue;
    for (AttributeRow const& row : type->rows) {
      bool const isPlain = isValue(row) || row.kind == AttributeKind::values;
      EXPECT_EQ(row.write != nullptr || !isPlain, true) << type->name << "::" << row.name;
    }
  }
}

// Machines --------------------------------------------------------------------------------------------

/// An engine that leads one zone, follows another and is a candidate RP, and a machine of the configuration.
class MachinesByName : public CrpTest {
 protected:
  MachinesByName() {
    engine.electUs("239.0.0.0/8");
    engine.Engine::receive(Bsm{.bsr = "203.0.113.1"});
    engine.addCrp("10.0.0.1");
    engine.addRange("10.0.0.1", "239.1.0.0/16");
    config.start();
    config.status->cbsrIs(prefix("239.0.0.0/8"));
    config.bsrGroup("eth0", "239.0.0.0/8");
    config.rules("zones", {"permit 239.2.0.0/16"});
    config.config->crpFilterAclIs("zones", true);
  }
  /// The machines that can be reached from an object.
  void gather(Ptr<PtrInterface> const& object) {
    if (!object || !isOfKind(object->fwkType(), "machine")) return;
    if (std::find(machines.begin(), machines.end(), object) != machines.end()) return;
    machines.push_back(object);
    for (AttributeRow const* row : rowsOf(*object)) {
      if (row->member == nullptr) continue;
      if (!row->isIndexed()) gather(row->member(*object, ""));
      if (row->walk != nullptr) gatherMembers(*object, *row);
    }
  }
  void gatherMembers(PtrInterface const& object, AttributeRow const& row);

  ConfigEngine config;
  Objects machines;
};

/// Calls a function for the key of each member.
template <class Call>
class KeyVisitor : public Zet::MemberVisitor {
 public:
  explicit KeyVisitor(Call call) : call_(call) {}
  void onMember(String8 const& key, String8 const& value, PtrInterface const*) override { call_(key, value); }

 private:
  Call call_;
};

/// The keys of a collection with the texts of its members.
std::map<std::string, String8> membersOf(PtrInterface const& object, AttributeRow const& row) {
  std::map<std::string, String8> members;
  KeyVisitor visitor(
      [&](String8 const& key, String8 const& value) { members[std::string(key.view())] = value; });
  row.walk(object, visitor);
  return members;
}

void MachinesByName::gatherMembers(PtrInterface const& object, AttributeRow const& row) {
  for (auto const& [key, text] : membersOf(object, row)) gather(row.member(object, String8(key)));
}

/// Another value of a type than one.
String8 otherThan(String8 const& value, std::string const& type) {
  SampleTexts const samples = samplesOf(type);
  auto const found =
      std::find_if(samples.begin(), samples.end(), [&](auto& text) { return !(text == value); });
  EXPECT_NE(found, samples.end()) << type;
  return *found;
}

/// A value reads as it was written: as it is, as another one, and as it was. Returns whether it was written.
bool expectReadsBackChanged(PtrInterface& machine, AttributeRow const& row) {
  String8 const before = GenericIf(machine.fwkType()).read(machine, row.name);
  for (String8 const& text : {before, otherThan(before, row.type), before}) {
    expectReadsBack(machine, row, text);
  }
  return true;
}

/// The same of the value under each key. Returns how many there are.
int expectMembersReadBackChanged(PtrInterface& machine, AttributeRow const& row) {
  GenericIf const byName(machine.fwkType());
  auto const members = membersOf(machine, row);
  for (auto const& [key, before] : members) {
    for (String8 const& text : {before, otherThan(before, row.type), before}) {
      byName.write(machine, row.name, String8(key), text);
      EXPECT_EQ(byName.read(machine, row.name, String8(key)), text) << row.name;
    }
  }
  return static_cast<int>(members.size());
}

TEST_F(MachinesByName, EveryValueOfAMachineReadsAsItWasWrittenAlsoWhereItIsAnother) {
  for (Ptr<PtrInterface> const& root : Objects{engine.root, engine.gate, engine.crpGate, config.machine})
    gather(root);
  std::set<std::string> seen;
  int written = 0;
  for (Ptr<PtrInterface> const& machine : machines) {
    seen.insert(machine->fwkType().name);
    for (AttributeRow const* row : rowsOf(*machine)) {
      if (row->write == nullptr || row->read == nullptr) continue;
      if (isValue(*row)) written += expectReadsBackChanged(*machine, *row);
      if (row->kind == AttributeKind::values) written += expectMembersReadBackChanged(*machine, *row);
    }
  }
  EXPECT_EQ(seen, namesOfKind("machine"));
  EXPECT_GT(written, 20);
}

// Constants -------------------------------------------------------------------------------------------

/// The constants of objects, read by name.
void addConstants(Objects const& objects, std::map<std::string, std::string>& read) {
  for (Ptr<PtrInterface> const& object : objects) {
    GenericIf const byName(object->fwkType());
    for (AttributeRow const* row : rowsOf(*object)) {
      if (row->kind != AttributeKind::constant) continue;
      std::string const name = std::string(object->fwkType().name) + "::" + row->name;
      read[name] = std::string(row->type) + " " + byName.read(*object, row->name).charPtr();
      EXPECT_THROW(byName.write(*object, row->name, "1"), Zet::OpNotSupportedException) << name;
    }
  }
}

TEST_F(MachinesByName, EveryConstantReadsAsItIsDeclaredAndIsNotWritten) {
  for (Ptr<PtrInterface> const& root : Objects{engine.root, engine.gate, engine.crpGate, config.machine})
    gather(root);
  std::map<std::string, std::string> read;
  addConstants(everyRecord(), read);
  addConstants(machines, read);
  addConstants({Zet::make<Zet::ValueObject<Bsr::CrpAdvInterval>>(Bsr::CrpAdvInterval())}, read);
  std::map<std::string, std::string> const declared{
      {"Interface::AllIntfStatusDir::mtuDefault", "U32 1500"},
      {"Routing::Pim::Bsr::BootstrapMessageSm::bsPeriodDefault", "U32 60"},
      {"Routing::Pim::Bsr::BsrCandidate::bsPeriodUnknown", "U32 0"},
      {"Routing::Pim::Bsr::BsrCandidate::hashMaskLenUnknown", "U32 128"},
      {"Routing::Pim::Bsr::BsrCandidate::priorityUnknown", "U16 256"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::hashMaskLenDefault", "U32 30"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::hashMaskLenUnknown", "U32 128"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::intervalDefault", "U32 60"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::minInterval", "U32 10"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::priorityDefault", "U16 64"},
      {"Routing::Pim::Bsr::BsrCandidateAcl::priorityUnknown", "U16 256"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::hashMaskLenDefault", "U32 30"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::hashMaskLenUnknown", "U32 128"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::intervalDefault", "U32 60"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::minInterval", "U32 10"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::priorityDefault", "U16 64"},
      {"Routing::Pim::Bsr::BsrCandidateGroup::priorityUnknown", "U16 256"},
      {"Routing::Pim::Bsr::BsrCandidateSm::bsMinInterval", "U32 10"},
      {"Routing::Pim::Bsr::BsrCandidateSm::bsMinPriority", "U8 0"},
      {"Routing::Pim::Bsr::Config::holdTimeDefault", "U32 130"},
      {"Routing::Pim::Bsr::Config::szTimeoutDefault", "U32 1300"},
      {"Routing::Pim::Bsr::CrpAdvInterval::intervalDefault", "U32 60"},
      {"Routing::Pim::Bsr::ElectedBsrStatus::hashMaskLenUnknown", "U32 128"},
      {"Routing::Pim::Bsr::ElectedBsrStatus::priorityUnknown", "U16 256"},
      {"Routing::Pim::Bsr::RpCandidateSm::maxPrefixs", "U8 255"}};
  EXPECT_EQ(read, declared);
}

TEST_F(MachinesByName, AValueThatAMachineHasChangedReadsAsTheAccessorGivesIt) {
  Bsr::PimBsrSm::GenericIf_ const rootIf;
  EXPECT_EQ(rootIf.read(*engine.root, "initialized"), "True");
  engine.root->fragmentIntervalIs(33);
  EXPECT_EQ(rootIf.read(*engine.root, "fragmentInterval"), "33");
  auto machine = engine.root->candidateSm(prefix("239.0.0.0/8"));
  ASSERT_TRUE(machine);
  Bsr::BsrCandidateSm::GenericIf_ const candidateIf;
  EXPECT_EQ(candidateIf.read(*machine, "state"), "'eBsr'");
  machine->stateIs(Bsr::BsrCandidateState::cBsr);
  EXPECT_EQ(candidateIf.read(*machine, "state"), "'cBsr'");
}

// Value types -----------------------------------------------------------------------------------------

/// A field with a range: both ends are taken, and the next numbers are not.
template <class T>
void expectBounds(char const* field, U64 low, U64 high) {
  GenericIfOf<T> const byName;
  T value;
  for (U64 end : {low, high}) {
    byName.write(value, field, Zet::strep(end));
    EXPECT_EQ(byName.read(value, field), Zet::strep(end));
  }
  std::vector<U64> outside{high + 1};
  if (low > 0) outside.push_back(low - 1);
  for (U64 number : outside) {
    EXPECT_NE(rangeError([&] { byName.write(value, field, Zet::strep(number)); }), "no RangeException");
    EXPECT_EQ(byName.read(value, field), Zet::strep(high)) << Zet::descriptorOf<T>().name;
  }
}

/// All fields of a type; those in `bounded` have a range from its first to its second number.
template <class T>
void expectFields(std::set<std::string>& seen,
                  std::map<std::string, std::pair<U64, U64>> const& bounded = {}) {
  ZetType const& type = Zet::descriptorOf<T>();
  seen.insert(type.name);
  GenericIfOf<T> const byName;
  for (AttributeRow const& row : type.rows) {
    if (row.write == nullptr) continue;
    if (auto range = bounded.find(row.name); range != bounded.end()) {
      expectBounds<T>(row.name, range->second.first, range->second.second);
      continue;
    }
    T value;
    for (String8 const& text : samplesOf(row.type)) {
      byName.write(value, row.name, text);
      EXPECT_EQ(byName.read(value, row.name), text) << type.name << "::" << row.name;
    }
  }
}

TEST_F(AttributesByName, EveryFieldOfAValueTypeReadsAsItWasWritten) {
  std::set<std::string> seen;
  expectFields<Routing::Pim::RpPriority>(seen, {{"value", {0, 256}}});
  expectFields<Routing::Pim::RpHashMaskLen>(seen, {{"value", {0, 128}}});
  expectFields<Routing::Pim::CrpHoldTime>(seen, {{"value", {0, 40958}}});
  expectFields<Bsr::CrpAdvInterval>(seen, {{"value", {1, 16383}}});
  expectFields<Acl::IpFilter>(seen, {{"tni", {0, Acl::IpFilter::most}}, {"vni", {0, Acl::IpFilter::most}}});
  expectFields<Packet::GroupFlags>(seen);
  expectFields<Bsr::PimBsrWeight>(seen);
  expectFields<Bsr::PimBsrErrorCounters>(seen);
  expectFields<Bsr::CrpOptions>(seen);
  expectFields<Acl::UniqueId>(seen);
  expectFields<Acl::IpRuleConfig>(seen);
  expectFields<Lanet::IpAddr>(seen);
  expectFields<Lanet::Ip6Addr>(seen);
  expectFields<Lanet::IpGenAddr>(seen);
  expectFields<Lanet::Prefix>(seen);
  expectFields<Lanet::IpGenPrefix>(seen);
  expectFields<Lanet::IntfId>(seen);
  EXPECT_EQ(seen, namesOfKind("value"));
}

}  // namespace
}  // namespace test
