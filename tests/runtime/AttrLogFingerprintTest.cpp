#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "runtime/NboAttrLogSa.h"
#include "runtime/Reflection.h"

/// Which differences of two programs the attribute log notices.
namespace test {
namespace {

using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::U32;
using Zet::ZetType;
using Zet::NboAttrLog::RowForm;
using Zet::NboAttrLog::Shape;

constexpr RowForm valueForm{Shape::value}, valuesForm{Shape::values}, membersForm{Shape::members},
    singleForm{Shape::single};

AttributeRow enumerator(Zet::AttributeId id, char const* name, char const* number) {
  return {.id = id, .name = name, .kind = AttributeKind::constant, .type = "U32", .start = number};
}
AttributeRow field(Zet::AttributeId id, char const* name, char const* type) {
  return {.id = id, .name = name, .kind = AttributeKind::field, .type = type};
}

/// The types of a small program: an enumeration, a value type, an entity over both, and its base.
struct Registry {
  std::vector<AttributeRow> colors{enumerator(0, "red", "0"), enumerator(1, "green", "1")};
  std::vector<AttributeRow> fields{field(0, "width", "U16"), field(1, "height", "U16")};
  std::vector<AttributeRow> common{
      {.id = 0, .name = "used", .kind = AttributeKind::value, .type = "bool", .log = &valueForm}};
  std::vector<AttributeRow> rows{
      {.id = 1, .name = "color", .kind = AttributeKind::value, .type = "Color", .log = &valueForm},
      {.id = 2, .name = "size", .kind = AttributeKind::value, .type = "Size", .log = &valueForm},
      {.id = 3,
       .name = "pane",
       .kind = AttributeKind::members,
       .type = "Pane",
       .keyType = "U32",
       .maker = "width : U32, height : U32",
       .log = &membersForm},
      {.id = 4, .name = "handle", .kind = AttributeKind::method, .type = "void"}};
  char const* entity = "Sample::Window";
  bool hasBase = true;

  U32 fingerprint() const {
    ZetType const color{"Sample::Color", "enumeration", nullptr, colors};
    ZetType const size{"Sample::Size", "value", nullptr, fields};
    ZetType const part{"Sample::Part", "entity", nullptr, common};
    ZetType const window{entity, "entity", hasBase ? &part : nullptr, rows};
    ZetType const* const types[] = {&color, &part, &size, &window};
    return Zet::NboAttrLog::modelFingerprint(types);
  }
};

struct Difference {
  char const* name;
  std::function<void(Registry&)> change;
};

U32 fingerprintOf(Difference const& c) {
  Registry registry;
  c.change(registry);
  return registry.fingerprint();
}

TEST(AttrLogFingerprint, DiffersWhereAMessageWouldBeTakenForAnother) {
  std::set<U32> seen{Registry().fingerprint()};
  for (Difference const& c :
       {Difference{"number of an attribute", [](Registry& r) { r.rows[0].id = 5; }},
        Difference{"numbers of two exchanged", [](Registry& r) { std::swap(r.rows[0].id, r.rows[1].id); }},
        Difference{"name of an attribute", [](Registry& r) { r.rows[0].name = "paint"; }},
        Difference{"kind", [](Registry& r) { r.rows[0].kind = AttributeKind::counter; }},
        Difference{"type of a value", [](Registry& r) { r.rows[0].type = "Size"; }},
        Difference{"shape", [](Registry& r) { r.rows[2].log = &singleForm; }},
        Difference{"another shape", [](Registry& r) { r.rows[2].log = &valuesForm; }},
        Difference{"type of a key", [](Registry& r) { r.rows[2].keyType = "U16"; }},
        Difference{"parameter of a maker less", [](Registry& r) { r.rows[2].maker = "width : U32"; }},
        Difference{"parameters exchanged",
                   [](Registry& r) { r.rows[2].maker = "height : U32, width : U32"; }},
        Difference{"type of a parameter", [](Registry& r) { r.rows[2].maker = "width : U16, height : U32"; }},
        Difference{"attribute carried no more", [](Registry& r) { r.rows[1].log = nullptr; }},
        Difference{"attribute less", [](Registry& r) { r.rows.erase(r.rows.begin()); }},
        Difference{"order of attributes", [](Registry& r) { std::swap(r.rows[0], r.rows[1]); }},
        Difference{"attribute of the base", [](Registry& r) { r.common[0].name = "open"; }},
        Difference{"no base", [](Registry& r) { r.hasBase = false; }},
        Difference{"name of a class", [](Registry& r) { r.entity = "Sample::Door"; }},
        Difference{"name of a field", [](Registry& r) { r.fields[0].name = "depth"; }},
        Difference{"type of a field", [](Registry& r) { r.fields[0].type = "U32"; }},
        Difference{"fields exchanged", [](Registry& r) { std::swap(r.fields[0], r.fields[1]); }},
        Difference{"field less", [](Registry& r) { r.fields.pop_back(); }},
        Difference{"name of an enumerator", [](Registry& r) { r.colors[1].name = "blue"; }},
        Difference{"number of an enumerator", [](Registry& r) { r.colors[1].start = "2"; }},
        Difference{"enumerator more", [](Registry& r) { r.colors.push_back(enumerator(2, "blue", "2")); }},
        Difference{"enumerator less", [](Registry& r) { r.colors.pop_back(); }}}) {
    EXPECT_TRUE(seen.insert(fingerprintOf(c)).second) << c.name;
  }
}

TEST(AttrLogFingerprint, IsTheSameWhereOnlyTextsDiffer) {
  U32 const same = Registry().fingerprint();
  for (Difference const& c : {Difference{"sentence", [](Registry& r) { r.rows[0].sentence = "Its color"; }},
                              Difference{"unit", [](Registry& r) { r.rows[1].unit = "mm"; }},
                              Difference{"method", [](Registry& r) { r.rows[3].name = "close"; }}}) {
    EXPECT_EQ(fingerprintOf(c), same) << c.name;
  }
}

TEST(AttrLogFingerprint, OfThisProgramIsThatOfAllItsTypes) {
  EXPECT_EQ(Zet::NboAttrLog::modelFingerprint(), Zet::NboAttrLog::modelFingerprint(Zet::zetTypes()));
}

TEST(AttrLogFingerprint, TheRowsOfThisProgramHaveWhatItDependsOn) {
  AttributeRow const* counters = Zet::zetType("Routing::Pim::Bsr::Status")->row("counters");
  EXPECT_STREQ(counters->maker, "name : Zet::Name");
  EXPECT_STREQ(Zet::zetType("Routing::Pim::Bsr::Status")->row("cbsr")->maker, "");
  EXPECT_STREQ(Zet::zetType("Routing::Pim::Bsr::Scope")->row("admin")->start, "1");
  EXPECT_STREQ(Zet::zetType("Routing::Pim::Bsr::CrpOptions")->row("priority")->type,
               "Routing::Pim::RpPriority");
}

}  // namespace
}  // namespace test
