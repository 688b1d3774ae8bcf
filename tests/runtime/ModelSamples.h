#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "runtime/Reflection.h"

/// Objects and values with which a test goes over the whole model by its rows.
namespace test {

using Objects = std::vector<Zet::Ptr<Zet::PtrInterface>>;
using SampleTexts = std::vector<Zet::String8>;

/// SampleTexts of values of a type, both ends of its range among them; of an enumeration every name.
SampleTexts samplesOf(std::string const& type);

/// The name of a type without its namespaces.
std::string bareName(std::string const& type);

/// One new object of each entity and record.
Objects everyRecord();

/// Whether a type is of a kind and declared.
bool isOfKind(Zet::ZetType const& type, std::string const& kind);
/// The names of all declared types of a kind.
std::set<std::string> namesOfKind(std::string const& kind);

/// The rows of an object, those of its bases first.
std::vector<Zet::AttributeRow const*> rowsOf(Zet::PtrInterface const& object);

/// Both ends of the range of an attribute that has one.
std::pair<Zet::U64, Zet::U64> rangeOf(Zet::PtrInterface const& object, Zet::AttributeRow const& row);

}  // namespace test
