#include <gtest/gtest.h>

#include <set>
#include <string>

#include "config/ConfigRecords.h"
#include "config/ConfigSm.h"
#include "crp/CrpMessageSm.h"
#include "crp/PimBsrCrpPermitTrieBuilderSm.h"
#include "crp/PimBsrTrieBuilder.h"
#include "crp/RpCandidateSm.h"
#include "model/Acl.h"
#include "model/Config.h"
#include "model/IO.h"
#include "model/Interface.h"
#include "model/MessageCounters.h"
#include "model/MsgStatus.h"
#include "model/Packet.h"
#include "model/Pim.h"
#include "model/SourceIntf.h"
#include "model/Status.h"
#include "model/TrieGen.h"
#include "protocol/BootstrapMessageSm.h"
#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"
#include "protocol/Fragments.h"
#include "protocol/PimBsrSm.h"
#include "tests/runtime/ModelSamples.h"
#include "tests/support/Mirror.h"
#include "tests/support/TestContext.h"

/// The attribute log of every class that has one.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
namespace Pim = Routing::Pim;
using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::GenericIf;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::String8;
using Zet::NboAttrLog::Op;
using Zet::NboAttrLog::Shape;

template <class... C>
struct Classes {
  /// Calls `call` with each class.
  template <class Call>
  static void forEach(Call const& call) {
    (call.template operator()<C>(), ...);
  }
};

using Logged =
    Classes<Acl::AclConfig, Acl::AclSubConfig, Acl::AclTypeConfig, Interface::AllIntfStatusDir,
            Interface::IntfStatus, Ip::SourceIntf::SourceIntf, Ip::SourceIntf::SourceIntfSm,
            Bsr::BsrBorderPrefixRefCount, Bsr::BsrCandidate, Bsr::BsrCandidateAcl, Bsr::BsrCandidateConfig,
            Bsr::BsrCandidateGroup, Bsr::BsrCandidatePrefixRefCount, Bsr::BsrConfigAcl, Bsr::ClearConfig,
            Bsr::Config, Bsr::ElectedBsrStatus, Bsr::IntfConfig, Bsr::PimBsrBorder, Bsr::PimBsrCounters,
            Bsr::PimBsrRpCandidateStatus, Bsr::RpCandidate, Bsr::RpCandidateAclEntryOptions,
            Bsr::RpCandidateConfig, Bsr::RpCandidateGroupEntryOptions, Bsr::RpCandidatePrefixRefCount,
            Bsr::RpCandidatePrefixSet, Bsr::Status, Pim::Intf, Pim::IO::PamCounter, Pim::Neighbor,
            Pim::RpCandidate, Pim::RpCandidateSet, Pim::RpCandidateStatus, Pim::Slosh::MessageCounters,
            Pim::Status>;

/// Machines, records, and entities that hold what the log doesn't carry.
using Unlogged =
    Classes<Bsr::BootstrapMessageSm, Bsr::BsrCandidateSm, Bsr::BsrNonCandidateSm, Bsr::ConfigSm,
            Bsr::CrpMessageSm, Bsr::PimBsmStatus, Bsr::PimBsrCrpPermitTrieBuilderSm, Bsr::PimBsrRxFragment,
            Bsr::PimBsrRxFragments, Bsr::PimBsrSm, Bsr::PimBsrTrieBuilderSm, Bsr::PimBsrTxFragment,
            Bsr::PimBsrTxFragments, Bsr::PimCrpMsgStatus, Bsr::RpCandidateSm, Pim::IO::MessageInfo,
            Pim::IO::PamManager, Pim::Packet::BootstrapGroupData, Pim::Packet::BootstrapMessage,
            Pim::Packet::BootstrapOptionalData, Pim::Packet::BootstrapRpData, Pim::Packet::CrpAdvMessage,
            Pim::Packet::CrpGroupData, Pim::Packet::CrpGroupInfo, Pim::Packet::Message, Routing::TrieGen>;

/// Whether a row is of a class itself, and carried.
bool isCarried(AttributeRow const& row) {
  return row.log != nullptr && row.id != Zet::Entity::attrIsNondestructing;
}

template <class C>
Ptr<C> made() {
  for (Ptr<PtrInterface> const& object : everyRecord()) {
    if (&object->fwkType() == &C::_fwkType()) return static_cast<C*>(object.ptr());
  }
  ADD_FAILURE() << "no object of " << C::_fwkType().name;
  return nullptr;
}

/// SampleTexts that an attribute takes.
SampleTexts validTexts(PtrInterface const& object, AttributeRow const& row) {
  if (row.range[0] == '\0') return samplesOf(row.type);
  auto const [low, high] = rangeOf(object, row);
  return {Zet::strep(low), Zet::strep(high)};
}

/// Writes all that can be written by name, of several values the first for 0, the second for 1 and so on.
void fill(PtrInterface& object, std::size_t which) {
  GenericIf const byName(object.fwkType());
  for (AttributeRow const* row : rowsOf(object)) {
    if (!isCarried(*row) || row->write == nullptr) continue;
    if (!row->isIndexed()) {
      SampleTexts const texts = validTexts(object, *row);
      byName.write(object, row->name, texts[which % texts.size()]);
      continue;
    }
    bool const isPlain = row->kind == AttributeKind::values;
    SampleTexts const texts = isPlain ? samplesOf(row->type) : SampleTexts{""};
    for (String8 const& key : samplesOf(row->keyType)) {
      byName.write(object, row->name, key, texts[which % texts.size()]);
    }
  }
}

/// Makes the objects that need more than a key.
void own(Zet::Entity&) {}
void own(Bsr::Status& status) { status.countersIs("counters"); }
void own(Bsr::PimBsrRpCandidateStatus& zone) { zone.statusIs("set"); }
void own(Acl::AclConfig& list) { list.currCfgIs(Zet::make<Acl::AclSubConfig>()); }

/// Removes all members.
void clear(PtrInterface& object) {
  for (AttributeRow const* row : rowsOf(object)) {
    if (!isCarried(*row) || row->del == nullptr) continue;
    if (!row->isIndexed()) row->del(object, "");
    if (row->isIndexed()) {
      for (String8 const& key : samplesOf(row->keyType)) row->del(object, key);
    }
  }
}

class AttrLogClasses : public ModelTest {
 protected:
  /// Changes an object in each way; the copy is equal after each.
  template <class C>
  void expectMirrored() {
    Mirror<C> mirror(made<C>(), made<C>());
    auto expectEqual = [&](char const* after) {
      mirror.sync(7);
      EXPECT_TRUE(mirror.isEqual()) << C::_fwkType().name << " after " << after;
      EXPECT_EQ(mirror.demuxer->rejected(), 0u) << mirror.demuxer->lastError();
    };
    expectEqual("the first snapshot");
    for (std::size_t which : {0, 1, 2}) {
      fill(*mirror.source, which);
      own(*mirror.source);
      expectEqual("a change of all");
    }
    EXPECT_GT(mirror.demuxer->messages(), 1u) << C::_fwkType().name;
    clear(*mirror.source);
    expectEqual("a removal of all");
    fill(*mirror.source, 1);
    mirror.source->isNondestructingIs(true);
    mirror.out->snapshotIs();
    expectEqual("a snapshot");
    EXPECT_TRUE(mirror.copy->isNondestructing());
  }

  /// Each plain value of an object, as a message for one attribute of another.
  template <class C>
  void expectDeserialized() {
    using Adapter = typename C::ZetNboAttrLogSa;
    Ptr<C> source = made<C>(), copy = made<C>();
    fill(*source, 1);
    Zet::NboAttrLog::forLogged(C::_fwkType(), [&](AttributeRow const& row) {
      Zet::NboAttrLog::Out out;
      if (row.log->shape == Shape::value) row.log->put(*source, out);
      Zet::NboAttrLog::Objects objects;
      Zet::NboAttrLog::Update update{Op::value, row.id, Zet::NboAttrLog::In(out.bytes()), objects};
      C const& constant = *copy;
      try {
        Adapter::handleAttrDeserialization(constant, update);
        ADD_FAILURE() << "no exception";
      } catch (Zet::InternalException const& e) {
        EXPECT_EQ(e.what(), std::string("write-update from readonly proxy: ") + row.name);
      }
      if (row.log->shape != Shape::value) return;
      Adapter::handleAttrDeserialization(*copy, update);
      EXPECT_EQ(row.read(*copy, ""), row.read(*source, "")) << C::_fwkType().name << "::" << row.name;
    });
  }
};

TEST_F(AttrLogClasses, AreAllClassesWithAnAttributeThatTheLogCarries) {
  std::set<std::string> listed, carried;
  Logged::forEach([&]<class C>() {
    static_assert(C::zetHasAttrLogInterface());
    listed.insert(C::_fwkType().name);
  });
  for (Zet::ZetType const* type : Zet::zetTypes()) {
    bool isLogged = false;
    Zet::NboAttrLog::forLogged(*type, [&](AttributeRow const& row) { isLogged |= isCarried(row); });
    if (isLogged) carried.insert(type->name);
  }
  EXPECT_EQ(listed, carried);
}

TEST_F(AttrLogClasses, EveryDeclaredClassIsListedWithOrWithoutALog) {
  std::set<std::string> listed, declared;
  Logged::forEach([&]<class C>() { listed.insert(C::_fwkType().name); });
  Unlogged::forEach([&]<class C>() {
    static_assert(!C::zetHasAttrLogInterface());
    listed.insert(C::_fwkType().name);
  });
  for (char const* kind : {"entity", "machine", "record"}) declared.merge(namesOfKind(kind));
  EXPECT_EQ(listed, declared);
}

TEST_F(AttrLogClasses, EachIsMirroredAsARoot) {
  Logged::forEach([&]<class C>() { expectMirrored<C>(); });
}

TEST_F(AttrLogClasses, EachAppliesItsValuesByHandleAttrDeserializationAndNoneToAConstantObject) {
  Logged::forEach([&]<class C>() { expectDeserialized<C>(); });
}

}  // namespace
}  // namespace test
