#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "model/AclValues.h"
#include "model/Lanet.h"
#include "model/Values.h"
#include "tests/runtime/ModelSamples.h"
#include "tests/support/RangeError.h"

/// The part of docs/model.md on the types of attributes, which follows that on the declared classes.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
namespace Pim = Routing::Pim;
using testing_support::rangeError;
using Zet::AttributeRow;
using Zet::ZetType;

char const* const page = PIMBSR_SOURCE_DIR "/docs/model.md";
std::string const heading = "\n# Value types and enumerations\n";

std::string fileText() {
  std::ostringstream text;
  text << std::ifstream(page, std::ios::binary).rdbuf();
  return text.str();
}

/// A type without a descriptor.
struct OtherType {
  char const* name;
  char const* range;
  char const* meaning;
};
OtherType const otherTypes[] = {
    {"bool", "`True` or `False`", "A truth value"},
    {"U8", "0 to 255", "A whole number of 8 bits"},
    {"U16", "0 to 65535", "A whole number of 16 bits"},
    {"U32", "0 to 4294967295", "A whole number of 32 bits"},
    {"U64", "0 to 18446744073709551615", "A whole number of 64 bits"},
    {"double", "", "A number with a fraction; a time is in seconds"},
    {"Zet::String8", "", "Text of bytes"},
    {"Zet::Name", "", "Text of bytes that names an object"},
    {"void", "", "A method without a result"},
    {"Zet::ActivityConfig", "", "The activity on which machines run"},
    {"Kiv::TimerWheel", "", "Runs the timers of an engine"},
    {"Routing::Pim::PimRpfTable", "", "RPF routes, which the host provides"},
    {"Routing::Pim::PimUcastRouteStatus", "", "Unicast routes, which the host provides"},
    {"Routing::Pim::Bsr::StoreRules", "", "Rules by which a received RP set is stored"},
};

/// The highest number of a type of whole numbers; empty for another type.
std::string highestOf(std::string const& type) {
  for (OtherType const& other : otherTypes) {
    std::string const range = other.range;
    if (type == other.name && range.starts_with("0 to ")) return range.substr(5);
  }
  return "";
}

/// The range of a field, from the exception that a number above it raises; empty for that of its type.
template <class T>
std::string rangeOfField(AttributeRow const& row) {
  std::string const highest = highestOf(row.type);
  if (row.write == nullptr || highest.empty()) return "";
  T value;
  std::string const text =
      rangeError([&] { Zet::GenericIfOf<T>().write(value, row.name, Zet::String8(highest)); });
  std::smatch bounds;
  bool const isRange = std::regex_search(text, bounds, std::regex("< (\\d+) or > (\\d+) not allowed"));
  return isRange ? bounds[1].str() + " to " + bounds[2].str() : "";
}

/// The unit of a number that is declared with one.
template <class Range>
std::string unitOf(Pim::Bounded<Range> const&) {
  return Range::unit;
}

/// The text of a default: without the quotes of texts; that of a value with fields follows from its fields.
std::string shownDefault(std::string text) {
  if (text.starts_with("Value(")) return "";
  if (text.starts_with("'")) text = text.substr(1, text.size() - 2);
  return text.empty() ? "empty" : "`" + text + "`";
}

template <class T>
std::string fieldLine(AttributeRow const& row) {
  bool const isField = row.kind == Zet::AttributeKind::field;
  std::string const start = Zet::GenericIfOf<T>().read(T(), row.name).charPtr();
  std::string unit = row.unit;
  if constexpr (requires { unitOf(T()); }) {
    if (isField) unit = unitOf(T());
  }
  return std::string("| `") + row.name + "` | " + (isField ? "field" : "const") + " | `" + row.type + "` | " +
         shownDefault(start) + " | " + (isField ? rangeOfField<T>(row) : "") + " | " + unit + " | " +
         row.sentence + " |\n";
}

std::string headOf(ZetType const& type, std::string const& kind) {
  return std::string("\n## ") + type.name + "\n\n" + kind + ". " + type.sentence + ".\n\n";
}

/// Adds the section of a value type.
template <class T>
void addValue(std::map<std::string, std::string>& sections) {
  ZetType const& type = T::_fwkType();
  std::string text = headOf(type, "Value type") +
                     "| attribute | kind | type | default | range | unit | meaning |\n"
                     "|---|---|---|---|---|---|---|\n";
  for (AttributeRow const& row : type.rows) text += fieldLine<T>(row);
  sections[type.name] = text;
}

template <class... T>
void addValues(std::map<std::string, std::string>& sections) {
  (addValue<T>(sections), ...);
}

void addEnumeration(ZetType const& type, std::map<std::string, std::string>& sections) {
  std::string text = headOf(type, "Enumeration") + "| enumerator | number |\n|---|---|\n";
  for (AttributeRow const& row : type.rows) {
    text += std::string("| `") + row.name + "` | " + row.start + " |\n";
  }
  sections[type.name] = text;
}

/// The sections of all value types and enumerations, by their names.
std::map<std::string, std::string> sections() {
  std::map<std::string, std::string> all;
  addValues<Acl::IpFilter, Acl::IpRuleConfig, Acl::UniqueId, Bsr::CrpAdvInterval, Bsr::CrpOptions,
            Bsr::PimBsrErrorCounters, Bsr::PimBsrWeight, Lanet::IntfId, Lanet::Ip6Addr, Lanet::IpAddr,
            Lanet::IpGenAddr, Lanet::IpGenPrefix, Lanet::Prefix, Pim::CrpHoldTime, Pim::Packet::GroupFlags,
            Pim::RpHashMaskLen, Pim::RpPriority>(all);
  for (ZetType const* type : Zet::zetTypes()) {
    if (isOfKind(*type, "enumeration")) addEnumeration(*type, all);
  }
  return all;
}

std::string madePart() {
  std::string text = heading +
                     "\nThe types of attributes. A type is named without its namespaces in the "
                     "rows of its own namespace.\n\n"
                     "| type | range | meaning |\n|---|---|---|\n";
  for (OtherType const& other : otherTypes) {
    text += std::string("| `") + other.name + "` | " + other.range + " | " + other.meaning + " |\n";
  }
  for (auto const& [name, section] : sections()) text += section;
  return text;
}

TEST(ModelPage, ListsEveryValueTypeAndEnumerationWithItsFieldsOrNames) {
  std::set<std::string> listed, known = namesOfKind("value");
  known.merge(namesOfKind("enumeration"));
  for (auto const& [name, section] : sections()) listed.insert(name);
  ASSERT_EQ(listed, known);
  std::string const text = fileText();
  std::size_t const begin = std::min(text.find(heading), text.size());
  if (std::getenv("PIMBSR_REWRITE") != nullptr) {
    std::ofstream(page, std::ios::binary) << text.substr(0, begin) + madePart();
    return;
  }
  EXPECT_EQ(text.substr(begin), madePart())
      << "read the difference; PIMBSR_REWRITE=1 in the environment takes it over";
}

/// The types that rows of classes name as those of values or keys.
std::set<std::string> namedTypes() {
  std::set<std::string> named;
  for (ZetType const* type : Zet::zetTypes()) {
    for (AttributeRow const& row : type->rows) {
      named.insert(bareName(row.type));
      if (row.isIndexed()) named.insert(bareName(row.keyType));
    }
  }
  return named;
}

TEST(ModelPage, EveryTypeThatARowNamesIsFoundInThePage) {
  std::string const text = fileText();
  std::set<std::string> shown;
  std::regex const entry("(?:^|\n)## (\\S+)\n");
  for (std::sregex_iterator at(text.begin(), text.end(), entry), none; at != none; ++at)
    shown.insert(bareName((*at)[1]));
  std::set<std::string> const named = namedTypes();
  for (OtherType const& other : otherTypes) {
    EXPECT_TRUE(named.contains(bareName(other.name))) << other.name << " is the type of no row";
    shown.insert(bareName(other.name));
  }
  for (std::string const& type : named) EXPECT_TRUE(shown.contains(type)) << type;
}

}  // namespace
}  // namespace test
