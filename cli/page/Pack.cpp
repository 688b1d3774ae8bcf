#include "cli/page/Pack.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>

namespace pimbsr::cli {

using view::Json;

namespace {

class Packer {
 public:
  Json pack(Json const& value);
  Json const& values() const { return values_; }

 private:
  Json rowsOf(Json const& list);
  Json cellOf(Json const& value);
  /// The index of an entry of `table`, which is added if it is new.
  static std::size_t indexIn(Json& table, std::unordered_map<std::string, std::size_t>& indexes, Json entry);

  Json values_ = Json::array();
  std::unordered_map<std::string, std::size_t> indexes_;  ///< by the text of the value
};

std::string base36(std::size_t number) {
  std::string text;
  do {
    text += "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36];
    number /= 36;
  } while (number != 0);
  return {text.rbegin(), text.rend()};
}

bool isListOfObjects(Json const& value) {
  return value.is_array() && !value.empty() &&
         std::all_of(value.begin(), value.end(), [](Json const& entry) { return entry.is_object(); });
}

Json keysOf(Json const& object) {
  Json keys = Json::array();
  for (auto const& [key, value] : object.items()) keys.push_back(key);
  return keys;
}

std::size_t Packer::indexIn(Json& table, std::unordered_map<std::string, std::size_t>& indexes, Json entry) {
  auto [known, isNew] = indexes.try_emplace(entry.dump(), table.size());
  if (isNew) table.push_back(std::move(entry));
  return known->second;
}

Json Packer::cellOf(Json const& value) {
  if (!value.is_string() && !value.is_structured()) return value;
  return base36(indexIn(values_, indexes_, pack(value)));
}

Json Packer::rowsOf(Json const& list) {
  Json shapes = Json::array();
  Json rows = Json::array();
  std::unordered_map<std::string, std::size_t> shapeIndexes;
  for (Json const& object : list) {
    Json row = Json::array({indexIn(shapes, shapeIndexes, keysOf(object))});
    for (Json const& value : object) row.push_back(cellOf(value));
    rows.push_back(std::move(row));
  }
  return {{"$shapes", std::move(shapes)}, {"$rows", std::move(rows)}};
}

Json Packer::pack(Json const& value) {
  if (isListOfObjects(value)) return rowsOf(value);
  Json packed = value;
  if (value.is_structured()) {
    for (auto& entry : packed) entry = pack(entry);
  }
  return packed;
}

}  // namespace

Json pack(Json const& document) {
  Packer packer;
  Json root = packer.pack(document);
  return {{"values", packer.values()}, {"root", std::move(root)}};
}

}  // namespace pimbsr::cli
