#include "runtime/Reflection.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "model/Interface.h"
#include "model/Status.h"
#include "tests/support/Engine.h"
#include "tests/support/RangeError.h"

namespace test {
namespace {

using Bsr::ElectedBsrStatus;
using Bsr::PimBsrCounters;
using Bsr::Status;
using testing_support::rangeError;
using Zet::AttributeKind;
using Zet::AttributeOp;
using Zet::AttributeOpArgs;
using Zet::AttributeRow;
using Zet::Ptr;
using Zet::String8;

/// The text with which `action` raises an E.
template <class E, class Action>
std::string raised(Action action) {
  try {
    action();
  } catch (E const& e) {
    return e.what();
  }
  return "no such exception";
}

class Members : public Zet::MemberVisitor {
 public:
  void onMember(String8 const& key, String8 const& value, Zet::PtrInterface const* object) override {
    lines.push_back(std::string(key.view()) + " -> " + std::string(value.view()));
    objects.push_back(object);
  }
  std::vector<std::string> lines;
  std::vector<Zet::PtrInterface const*> objects;
};

class Reflection : public ModelTest {
 protected:
  Members walk(Zet::PtrInterface const& object, Zet::AttributeId id) {
    Members members;
    AttributeOpArgs args{.visitor = &members};
    Zet::GenericIf(object.fwkType()).attributeOp(object, id, AttributeOp::walk, args);
    return members;
  }
  void del(Zet::AttributeId id, String8 const& key) {
    AttributeOpArgs args{.key = key, .hasKey = true};
    statusIf.attributeOp(*status, id, AttributeOp::del, args);
  }
  static String8 strep(Lanet::IpGenPrefix const& p) { return valueToStrep(p); }

  Ptr<Status> status = Bsr::statusFactory("bsr");
  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  Status::GenericIf_ const statusIf;
  ElectedBsrStatus::GenericIf_ const electedIf;
};

// Types -----------------------------------------------------------------------------------------------

TEST_F(Reflection, AnObjectReportsItsTypeFromItsBase) {
  Ptr<Zet::PtrInterface> object = status;
  EXPECT_EQ(&object->fwkType(), &Status::_fwkType());
  EXPECT_STREQ(object->fwkType().name, "Routing::Pim::Bsr::Status");
  EXPECT_STREQ(object->fwkType().kind, "entity");
  EXPECT_EQ(Zet::zetType("Routing::Pim::Bsr::Status"), &Status::_fwkType());
  EXPECT_EQ(Zet::zetType("Routing::Pim::Bsr::Nothing"), nullptr);
}

TEST_F(Reflection, ATypeKnowsTheAttributesOfItsBase) {
  using Routing::Pim::Packet::BootstrapMessage;
  using Routing::Pim::Packet::Message;
  Zet::ZetType const& type = BootstrapMessage::_fwkType();
  EXPECT_TRUE(type.isA(Message::_fwkType()));
  EXPECT_FALSE(Message::_fwkType().isA(type));
  ASSERT_NE(type.row("srcAddr"), nullptr);
  EXPECT_EQ(type.row("srcAddr"), Message::_fwkType().row("srcAddr"));
  auto message = test::make(Bsm());
  EXPECT_EQ(BootstrapMessage::GenericIf_().read(*message, "srcAddr"), valueToStrep(addr("192.0.2.1")));
}

TEST_F(Reflection, TheNumbersOfATypeAreItsOwnInTheOrderOfDeclaration) {
  for (Zet::ZetType const* type : Zet::zetTypes()) {
    Zet::AttributeId last =
        type->base == nullptr || type->base->rows.empty() ? Zet::noAttribute : type->base->rows.back().id;
    for (AttributeRow const& row : type->rows) {
      EXPECT_GT(row.id, last) << type->name << "::" << row.name;
      EXPECT_EQ(type->row(row.id), &row);
      EXPECT_EQ(type->row(row.name), &row);
      last = row.id;
    }
  }
}

TEST_F(Reflection, ANumberIsFoundAtWhateverPlaceItsRowIs) {
  AttributeRow const rows[] = {
      {.id = 5, .name = "first"}, {.id = 8, .name = "second"}, {.id = 6, .name = "third"}};
  Zet::ZetType const type{"test::Type", "entity", nullptr, rows};
  Zet::ZetType const derived{"test::Derived", "entity", &type, {}};
  for (AttributeRow const& row : rows) {
    EXPECT_EQ(type.row(row.id), &row);
    EXPECT_EQ(derived.row(row.id), &row);
  }
  for (Zet::AttributeId id : {4, 7, 9}) EXPECT_EQ(derived.row(id), nullptr) << id;
}

TEST_F(Reflection, ARowReportsWhatWasDeclared) {
  AttributeRow const& row = *ElectedBsrStatus::_fwkType().row("setupTime");
  EXPECT_EQ(row.id, ElectedBsrStatus::attrSetupTime);
  EXPECT_EQ(row.kind, AttributeKind::value);
  EXPECT_STREQ(row.type, "double");
  EXPECT_STREQ(row.keyType, "");
  EXPECT_STREQ(row.start, "0.0");
  EXPECT_STREQ(row.unit, "s");
  EXPECT_STREQ(row.range, "");
  EXPECT_STREQ(row.sentence, "When this BSR was first heard, on the clock of Zet::now()");
  EXPECT_STREQ(Status::_fwkType().row("zoneAcl")->keyType, "Zet::String8");
  EXPECT_STREQ(kindName(row.kind), "value");
  EXPECT_STREQ(kindName(AttributeKind::method), "method");
}

TEST_F(Reflection, AnAttributeIsNamedByItsNumberAndAnyOtherIsUnknown) {
  EXPECT_EQ(statusIf.attributeString(Status::attrAf), "af");
  EXPECT_EQ(statusIf.attributeString(Status::attrCounters), "counters");
  for (Zet::AttributeId id : {-1, Status::attrCounters + 1, 1000000}) {
    EXPECT_EQ(statusIf.attributeString(id), "unknown");
  }
}

// Reading ---------------------------------------------------------------------------------------------

TEST_F(Reflection, ReadsEveryKindThatHasAText) {
  auto elected = status->bootstrapRouterIs(zone);
  status->zoneAclIs("acl", test::intf("eth0"));
  struct Case {
    char const* attribute;
    char const* key;
    char const* text;
  };
  for (Case c : {Case{"name", "", "'bsr'"}, Case{"af", "", "'unset'"}, Case{"bsTimeout", "", "0"},
                 Case{"counters", "", "None"}, Case{"zoneAcl", "'acl'", "'eth0'"},
                 Case{"zoneAcl", "'b'", "''"}, Case{"crpPermit", "'10.0.0.0/8'", "False"}}) {
    String8 read =
        c.key[0] == '\0' ? statusIf.read(*status, c.attribute) : statusIf.read(*status, c.attribute, c.key);
    EXPECT_EQ(std::string(read.view()), c.text) << c.attribute;
  }
  EXPECT_EQ(statusIf.read(*status, "bootstrapRouter", strep(zone)),
            "Entity('Routing::Pim::Bsr::ElectedBsrStatus', '239.0.0.0/8')");
  EXPECT_EQ(electedIf.read(*elected, "zone"), strep(zone));
  EXPECT_EQ(electedIf.read(*elected, "priorityUnknown"), "256");
}

TEST_F(Reflection, ReadsAnAttributeOfAConstantObject) {
  Ptr<Status const> constant = status;
  EXPECT_EQ(statusIf.read(*constant, "bsTimeout"), "0");
}

TEST_F(Reflection, GivesTheMemberOfAnIndexedAttributeAsAnObject) {
  auto elected = status->bootstrapRouterIs(zone);
  AttributeRow const& row = *Status::_fwkType().row("bootstrapRouter");
  EXPECT_EQ(row.member(*status, strep(zone)), elected);
  EXPECT_FALSE(row.member(*status, strep(prefix("10.0.0.0/8"))));
  auto counters = status->countersIs("c");
  EXPECT_EQ(Status::_fwkType().row("counters")->member(*status, ""), counters);
  EXPECT_EQ(Status::_fwkType().row("bsTimeout")->member, nullptr);
}

TEST_F(Reflection, WalksACollectionInItsOrder) {
  for (char const* key : {"a", "b", "c", "d"}) status->zoneAclIs(key, test::intf("eth0"));
  std::vector<std::string> wanted;
  for (auto at = status->zoneAclIterator(); at; ++at) {
    wanted.push_back("'" + std::string(at.key().view()) + "' -> 'eth0'");
  }
  EXPECT_EQ(walk(*status, Status::attrZoneAcl).lines, wanted);
}

TEST_F(Reflection, AWalkHandsOutTheMembersThemselves) {
  auto elected = status->bootstrapRouterIs(zone);
  Members members = walk(*status, Status::attrBootstrapRouter);
  ASSERT_EQ(members.objects.size(), 1u);
  EXPECT_EQ(members.objects[0], elected.ptr());
  EXPECT_EQ(members.lines[0], std::string(strep(zone).view()) +
                                  " -> Entity('Routing::Pim::Bsr::ElectedBsrStatus', '239.0.0.0/8')");
}

TEST_F(Reflection, WalksAQueueByItsNumbers) {
  using Routing::Pim::Packet::BootstrapGroupData;
  using Routing::Pim::Packet::BootstrapOptionalData;
  auto data = Zet::make<BootstrapOptionalData>();
  auto first = Zet::make<BootstrapGroupData>(zone);
  data->groupDataEnq(first);
  data->groupDataEnq(Zet::make<BootstrapGroupData>(zone));
  Members members = walk(*data, BootstrapOptionalData::attrGroupData);
  ASSERT_EQ(members.lines.size(), 2u);
  EXPECT_EQ(members.lines[1].substr(0, 5), "1 -> ");
  EXPECT_EQ(members.objects[0], first.ptr());
}

// Writing ---------------------------------------------------------------------------------------------

TEST_F(Reflection, WritesThroughTheSetterWhichNotifies) {
  class Watch : public Status::NotifieeConst {
   public:
    void onBsTimeout() override { ++heard; }
    void onZoneAcl(String8 const&) override { ++heard; }
    void onCbsr(Lanet::IpGenPrefix const&) override { ++heard; }
    int heard = 0;
  };
  Ptr<Watch> watch = Zet::make<Watch>();
  watch->notifierIs(status);
  statusIf.write(*status, "bsTimeout", "130");
  statusIf.write(*status, "bsTimeout", "130");
  EXPECT_EQ(status->bsTimeout(), 130u);
  EXPECT_EQ(watch->heard, 1);
  statusIf.write(*status, "zoneAcl", "'acl'", "'eth1'");
  EXPECT_EQ(status->zoneAcl("acl"), test::intf("eth1"));
  EXPECT_EQ(watch->heard, 2);
  statusIf.write(*status, "cbsr", strep(zone), "");
  EXPECT_TRUE(status->cbsr(zone));
  EXPECT_EQ(watch->heard, 3);
}

TEST_F(Reflection, AnUpdateOfAWritableCopyIsAWrite) {
  AttributeOpArgs args{.value = "7"};
  statusIf.attributeOp(*status, Status::attrSzTimeout, AttributeOp::update, args);
  EXPECT_EQ(status->szTimeout(), 7u);
}

TEST_F(Reflection, AValueThatDoesNotReadIsRejectedAndNothingIsStored) {
  for (char const* text : {"", "x", "-1", "4294967296", "12 "}) {
    EXPECT_NE(rangeError([&] { statusIf.write(*status, "bsTimeout", text); }), "no RangeException") << text;
  }
  EXPECT_EQ(status->bsTimeout(), 0u);
}

TEST_F(Reflection, RemovesMembersOfEachKind) {
  status->bootstrapRouterIs(zone);
  status->zoneAclIs("acl", test::intf("eth0"));
  del(Status::attrBootstrapRouter, strep(zone));
  del(Status::attrZoneAcl, "'acl'");
  EXPECT_EQ(status->bootstrapRouterCount() + status->zoneAclCount(), 0u);
  status->countersIs("c");
  AttributeOpArgs args;
  statusIf.attributeOp(*status, Status::attrCounters, AttributeOp::del, args);
  EXPECT_FALSE(status->counters());
}

// Calling ---------------------------------------------------------------------------------------------

class Calls : public Reflection {
 protected:
  String8 call(Zet::PtrInterface& object, Zet::AttributeId id, std::vector<Zet::Argument> arguments) {
    AttributeOpArgs args{.arguments = std::move(arguments)};
    Zet::GenericIf(object.fwkType()).attributeOp(object, id, AttributeOp::call, args);
    return args.value;
  }
  Engine engine;
};

TEST_F(Calls, PassesValuesAndGivesBackTheResultAsText) {
  engine.addIntf("eth0", 1, 576);
  using Interface::AllIntfStatusDir;
  EXPECT_EQ(call(*engine.interfaces, AllIntfStatusDir::attrMtu, {{.text = "'eth0'"}}), "576");
  EXPECT_EQ(call(*engine.interfaces, AllIntfStatusDir::attrMtu, {{.text = "'none'"}}), "1500");
}

TEST_F(Calls, PassesObjects) {
  auto message = test::make(Bsm());
  Zet::Argument argument{.object = message};
  EXPECT_EQ(call(*engine.root, Bsr::PimBsrSm::attrDoComputeBsmLength, {argument}),
            Zet::valueToStrep(engine.root->doComputeBsmLength(message)));
}

TEST_F(Calls, ANullObjectIsPassedOnAsNull) {
  EXPECT_EQ(call(*engine.root, Bsr::PimBsrSm::attrRefreshRpSet, {{.text = strep(zone)}, {}}), "");
  EXPECT_FALSE(engine.status->crpStatus(zone)) << "a null message refreshes nothing";
}

TEST_F(Calls, ACallWithoutAResultGivesTheEmptyText) {
  EXPECT_EQ(call(*engine.root, Bsr::PimBsrSm::attrHandleRpCandidate, {}), "");
}

TEST_F(Calls, AMethodIsNotRead) {
  using Interface::AllIntfStatusDir;
  AttributeOpArgs args;
  EXPECT_EQ(raised<Zet::OpNotSupportedException>([&] {
              AllIntfStatusDir::GenericIf_().attributeOp(*engine.interfaces, AllIntfStatusDir::attrMtu,
                                                         AttributeOp::read, args);
            }),
            "attribute mtu does not support read");
}

TEST_F(Calls, RejectsAnotherNumberOfArguments) {
  using Interface::AllIntfStatusDir;
  EXPECT_EQ(
      raised<Zet::UnknownArgException>([&] { call(*engine.interfaces, AllIntfStatusDir::attrMtu, {}); }),
      "unknown argument: 0 given, 1 wanted");
}

TEST_F(Calls, RejectsAnObjectOfAnotherType) {
  Zet::Argument argument{.object = engine.status};
  EXPECT_EQ(raised<Zet::TypeException>(
                [&] { call(*engine.root, Bsr::PimBsrSm::attrDoComputeBsmLength, {argument}); }),
            "not an object of type Routing::Pim::Packet::BootstrapMessage");
}

// Errors ----------------------------------------------------------------------------------------------

TEST_F(Reflection, RejectsAnUnknownAttribute) {
  EXPECT_EQ(raised<Zet::UnknownAttrException>([&] { statusIf.read(*status, "colour"); }),
            "unknown attribute: colour");
  AttributeOpArgs args;
  EXPECT_EQ(raised<Zet::UnknownAttrException>(
                [&] { statusIf.attributeOp(*status, 1000, AttributeOp::read, args); }),
            "unknown attribute: 1000");
}

TEST_F(Reflection, RejectsAnObjectOfAnotherType) {
  EXPECT_EQ(raised<Zet::TypeException>([&] { electedIf.read(*status, "priority"); }),
            "not an object of type Routing::Pim::Bsr::ElectedBsrStatus");
}

TEST_F(Reflection, AConstantRejectsAnIndexAndAWrite) {
  auto elected = status->bootstrapRouterIs(zone);
  EXPECT_EQ(raised<Zet::BadIndexAttrException>([&] { electedIf.read(*elected, "priorityUnknown", "1"); }),
            "attribute priorityUnknown takes no index");
  EXPECT_EQ(raised<Zet::OpNotSupportedException>([&] { electedIf.write(*elected, "priorityUnknown", "1"); }),
            "attribute priorityUnknown does not support write");
}

TEST_F(Reflection, APlainValueRejectsAnIndexAndACollectionNeedsOne) {
  EXPECT_EQ(raised<Zet::BadIndexAttrException>([&] { statusIf.read(*status, "af", "1"); }),
            "attribute af takes no index");
  for (AttributeOp op : {AttributeOp::read, AttributeOp::write, AttributeOp::del}) {
    AttributeOpArgs args;
    EXPECT_EQ(raised<Zet::UnknownArgException>(
                  [&] { statusIf.attributeOp(*status, Status::attrZoneAcl, op, args); }),
              "unknown argument: no key given");
  }
}

TEST_F(Reflection, EachKindRejectsWhatItDoesNotKnow) {
  struct Case {
    Zet::AttributeId id;
    AttributeOp op;
    char const* text;
  };
  for (Case c :
       {Case{Status::attrName, AttributeOp::write, "attribute name does not support write"},
        Case{Status::attrName, AttributeOp::update, "attribute name does not support update"},
        Case{Status::attrAf, AttributeOp::del, "attribute af does not support del"},
        Case{Status::attrAf, AttributeOp::walk, "attribute af does not support walk"},
        Case{Status::attrAf, AttributeOp::call, "attribute af does not support call"},
        Case{Status::attrCounters, AttributeOp::write, "attribute counters does not support write"}}) {
    AttributeOpArgs args;
    EXPECT_EQ(raised<Zet::OpNotSupportedException>([&] { statusIf.attributeOp(*status, c.id, c.op, args); }),
              c.text);
  }
}

TEST_F(Reflection, AWalkNeedsAVisitor) {
  AttributeOpArgs args;
  EXPECT_EQ(raised<Zet::UnknownArgException>(
                [&] { statusIf.attributeOp(*status, Status::attrCbsr, AttributeOp::walk, args); }),
            "unknown argument: no visitor given");
}

TEST_F(Reflection, AConstantObjectRejectsEveryChange) {
  status->zoneAclIs("acl", test::intf("eth0"));
  Ptr<Status const> constant = status;
  for (AttributeOp op : {AttributeOp::write, AttributeOp::del}) {
    AttributeOpArgs args{.key = "'acl'", .hasKey = true, .value = "'eth1'"};
    EXPECT_EQ(raised<Zet::OpNotSupportedException>(
                  [&] { statusIf.attributeOp(*constant, Status::attrZoneAcl, op, args); }),
              "attempting to modify a const instance");
  }
  EXPECT_EQ(status->zoneAcl("acl"), test::intf("eth0"));
}

TEST_F(Reflection, OnAConstantObjectAKindRejectsWhatItDoesNotKnowByItsOwnText) {
  Ptr<Status const> constant = status;
  AttributeOpArgs args;
  EXPECT_EQ(raised<Zet::OpNotSupportedException>(
                [&] { statusIf.attributeOp(*constant, Status::attrName, AttributeOp::write, args); }),
            "attribute name does not support write");
}

TEST_F(Reflection, AnUpdateOfAReadOnlyCopyIsRejectedByItsText) {
  Ptr<Status const> constant = status;
  AttributeOpArgs args{.value = "7"};
  EXPECT_EQ(raised<Zet::InternalException>(
                [&] { statusIf.attributeOp(*constant, Status::attrSzTimeout, AttributeOp::update, args); }),
            "write-update from readonly proxy: szTimeout");
  EXPECT_EQ(status->szTimeout(), 0u);
}

// Introspection ---------------------------------------------------------------------------------------

/// Writes each unit down: a namespace, its types, their attributes.
class Outline : public Zet::IntrospectionReactor {
 public:
  void handleNameSpace(String8 const& name) override {
    spaces.emplace_back(name.view());
    ++depth;
  }
  void handleType(Zet::ZetType const& type) override {
    EXPECT_EQ(depth, 1) << type.name;
    ++depth;
    types.emplace_back(type.name);
    EXPECT_EQ(types.back().substr(0, types.back().rfind("::")), spaces.back());
  }
  void defNoninstantiatingAttr(AttributeRow const& row) override { note("const ", row.name); }
  void handleAttr(AttributeRow const& row, Zet::ZetAttrIntrospectionFlags flags) override {
    note("", row.name);
    flagsOf[types.back() + "::" + row.name] = flags.value();
  }
  void handleAttrContextExit(AttributeRow const& row) override { note("/", row.name); }
  void handleScopeExit() override { --depth; }

  int depth = 0;
  std::vector<std::string> spaces, types;
  std::map<std::string, std::string> attributes;
  std::map<std::string, Zet::U32> flagsOf;

 private:
  void note(char const* mark, char const* name) {
    attributes[types.back()] += std::string(mark) + name + " ";
  }
};

class Introspection : public ModelTest {
 protected:
  Introspection() { Zet::introspect(outline); }
  Outline outline;
};

TEST_F(Introspection, ReportsEveryTypeOnceUnderItsNamespaceInOrder) {
  EXPECT_EQ(outline.depth, 0);
  EXPECT_TRUE(std::is_sorted(outline.spaces.begin(), outline.spaces.end()));
  EXPECT_EQ(std::adjacent_find(outline.spaces.begin(), outline.spaces.end()), outline.spaces.end());
  std::vector<std::string> reported = outline.types;
  std::sort(reported.begin(), reported.end());
  std::vector<std::string> wanted;
  for (Zet::ZetType const* type : Zet::zetTypes()) wanted.emplace_back(type->name);
  EXPECT_EQ(reported, wanted);
}

TEST_F(Introspection, ReportsTheAttributesInDeclaredOrderAndEndsEach) {
  EXPECT_EQ(outline.attributes["Interface::AllIntfStatusDir"],
            "name /name intfStatus /intfStatus const mtuDefault mtuDefault /mtuDefault mtu /mtu ");
}

TEST_F(Introspection, TheFlagsReportWhatCanBeDone) {
  using Flags = Zet::ZetAttrIntrospectionFlags;
  struct Case {
    char const* attribute;
    Zet::U32 flags;
  };
  for (Case c : {Case{"name", 0}, Case{"af", Flags::writable},
                 Case{"zoneAcl", Flags::writable | Flags::indexed | Flags::walkable},
                 Case{"cbsr", Flags::writable | Flags::indexed | Flags::owned | Flags::walkable},
                 Case{"counters", Flags::owned}}) {
    EXPECT_EQ(outline.flagsOf[std::string("Routing::Pim::Bsr::Status::") + c.attribute], c.flags)
        << c.attribute;
  }
  EXPECT_EQ(outline.flagsOf["Interface::AllIntfStatusDir::mtu"], Flags::callable);
  EXPECT_EQ(outline.flagsOf["Interface::AllIntfStatusDir::mtuDefault"], 0u);
}

TEST_F(Introspection, MachinesAreReportedAsEntitiesAre) {
  EXPECT_EQ(outline.attributes.count("Routing::Pim::Bsr::PimBsrSm"), 1u);
  EXPECT_STREQ(Bsr::PimBsrSm::_fwkType().kind, "machine");
}

TEST_F(Introspection, TheFlagsAreBounded) {
  EXPECT_EQ(Zet::ZetAttrIntrospectionFlags(0x3f).value(), 0x3fu);
  EXPECT_EQ(rangeError([] { Zet::ZetAttrIntrospectionFlags flags(0x40); }),
            "ZetAttrIntrospectionFlags::value > 0x3f not allowed");
}

}  // namespace
}  // namespace test
