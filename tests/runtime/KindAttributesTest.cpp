#include <string>

#include "runtime/Reflection.h"
#include "tests/support/Engine.h"

/// The attributes that follow from the kind of a class.
namespace test {
namespace {

using Zet::AttributeKind;
using Zet::AttributeOp;
using Zet::AttributeOpArgs;

class KindAttributes : public EngineTest {};

TEST_F(KindAttributes, EveryEntityHasIsNondestructing) {
  Bsr::Status::GenericIf_ const statusIf;
  EXPECT_EQ(statusIf.read(*engine.status, "isNondestructing"), "False");
  statusIf.write(*engine.status, "isNondestructing", "True");
  EXPECT_TRUE(engine.status->isNondestructing());
  EXPECT_EQ(statusIf.attributeString(Zet::Entity::attrIsNondestructing), "isNondestructing");
}

TEST_F(KindAttributes, AKeyedEntityHasFwkKey) {
  auto elected = engine.status->bootstrapRouterIs(prefix("239.0.0.0/8"));
  EXPECT_EQ(Bsr::ElectedBsrStatus::GenericIf_().read(*elected, "fwkKey"), "'239.0.0.0/8'");
  EXPECT_EQ(Bsr::Status::_fwkType().row("fwkKey"), nullptr);
}

TEST_F(KindAttributes, EveryMachineHasItsActivity) {
  Bsr::PimBsrSm::GenericIf_ const rootIf;
  Zet::AttributeRow const& row = *Bsr::PimBsrSm::_fwkType().row("zetFwkActivity");
  EXPECT_EQ(row.kind, AttributeKind::constructor);
  EXPECT_EQ(row.member(*engine.root, ""), engine.root->zetFwkActivity());
  EXPECT_EQ(rootIf.read(*engine.root, "zetFwkActivity"),
            Zet::strepOfObject(engine.root->zetFwkActivity().ptr()));
  EXPECT_THROW(rootIf.write(*engine.root, "zetFwkActivity", ""), Zet::OpNotSupportedException);
}

/// Names of the rows of a type that are nested reactors, in order.
std::string reactors(Zet::ZetType const& type) {
  std::string names;
  for (Zet::AttributeRow const& row : type.rows) {
    if (row.kind == AttributeKind::reactor || row.kind == AttributeKind::reactors) {
      names += std::string(names.empty() ? "" : " ") + row.name;
    }
  }
  return names;
}

TEST_F(KindAttributes, AMachineListsItsReactorsInDeclaredOrder) {
  EXPECT_EQ(reactors(Bsr::PimBsrSm::_fwkType()), "pimIntf crp crpZoneStatus bsr fragmentTimer");
  EXPECT_EQ(reactors(Bsr::BsrCandidateSm::_fwkType()), "candidate");
  EXPECT_EQ(reactors(*Zet::zetType("Routing::Pim::Bsr::RpCandidateSm")), "crp");
  EXPECT_EQ(reactors(*Zet::zetType("Routing::Pim::Bsr::ConfigSm")),
            "bsrConfigAclSm acl activeConfig rpCandidateConfig bsrCandidateConfig");
}

TEST_F(KindAttributes, AReactorReadsAsWhatItWatches) {
  engine.addIntf("eth0");
  Bsr::PimBsrSm::GenericIf_ const rootIf;
  EXPECT_EQ(rootIf.read(*engine.root, "pimIntf", "'eth0'"), "Entity('Routing::Pim::Intf', 'eth0')");
  EXPECT_EQ(rootIf.read(*engine.root, "pimIntf", "'eth1'"), "None");
  EXPECT_EQ(Bsr::PimBsrSm::_fwkType().row("pimIntf")->member(*engine.root, "'eth0'"),
            engine.pimStatus->pimIntf(intf("eth0")));
  EXPECT_EQ(rootIf.read(*engine.root, "fragmentTimer"),
            Zet::valueToStrep(engine.root->zetFragmentTimer()->timeMin()));
}

TEST_F(KindAttributes, HandleStateChangeIsCalledByNameBesideTheWriteOfState) {
  Zet::AttributeRow const& row = *Bsr::BsrCandidateSm::_fwkType().row("handleStateChange");
  EXPECT_EQ(row.kind, AttributeKind::method);
  auto candidate = engine.status->cbsrIs(prefix("224.0.0.0/4"));
  auto machine = engine.root->candidateSm(prefix("224.0.0.0/4"));
  ASSERT_TRUE(machine);
  AttributeOpArgs args;
  machine->stateIs(Bsr::BsrCandidateState::pBsr);
  Bsr::BsrCandidateSm::GenericIf_().attributeOp(*machine, row.id, AttributeOp::call, args);
  EXPECT_EQ(candidate->state(), Bsr::BsrCandidateState::pBsr);
}

TEST_F(KindAttributes, AConstMethodIsCalledOnAConstantObjectAndAnotherIsNot) {
  Zet::PtrInterface const& constant = *engine.interfaces;
  Zet::GenericIf const directory(constant.fwkType());
  AttributeOpArgs args{.arguments = {{.text = "'none'"}}};
  directory.attributeOp(constant, Interface::AllIntfStatusDir::attrMtu, AttributeOp::call, args);
  EXPECT_EQ(args.value, "1500");
  Zet::PtrInterface const& root = *engine.root;
  AttributeOpArgs none;
  EXPECT_THROW(Zet::GenericIf(root.fwkType())
                   .attributeOp(root, Bsr::PimBsrSm::attrHandleRpCandidate, AttributeOp::call, none),
               Zet::OpNotSupportedException);
}

TEST_F(KindAttributes, TheSettersOfMessagesAndRpsCanBeOverridden) {
  class Counting : public Routing::Pim::RpCandidate {
   public:
    using RpCandidate::RpCandidate;
    void overrideIs(bool const& value) override {
      ++calls;
      RpCandidate::overrideIs(value);
    }
    int calls = 0;
  };
  class Message : public Routing::Pim::Packet::Message {
   public:
    void srcAddrIs(Lanet::IpGenAddr const&) override { ++calls; }
    int calls = 0;
  };
  auto rp = Zet::make<Counting>(addr("10.0.0.1"));
  static_cast<Routing::Pim::RpCandidate&>(*rp).overrideIs(true);
  EXPECT_EQ(rp->calls, 1);
  EXPECT_TRUE(rp->override());
  auto message = Zet::make<Message>();
  static_cast<Routing::Pim::Packet::Message&>(*message).srcAddrIs(addr("10.0.0.1"));
  EXPECT_EQ(message->calls, 1);
}

}  // namespace
}  // namespace test
