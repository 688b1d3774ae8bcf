#include "agent/config/ConfigBlock.h"

#include <fmt/format.h>

#include <algorithm>

namespace pimbsr::agent {

using Sort = ConfigValue::Sort;

// Texts that have a form ------------------------------------------------------------------------------

bool isInterfaceName(std::string_view name) {
  auto isRefused = [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7f || c == '/' || c == ':';
  };
  return !name.empty() && name.size() <= 15 && name != "." && name != ".." &&
         std::none_of(name.begin(), name.end(), isRefused);
}

bool isListName(std::string_view name) {
  auto isGood = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("-_.:").find(c) != std::string_view::npos;
  };
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), isGood);
}

static bool isGroupName(std::string_view name) {
  return name.empty() || (isListName(name) && name.size() <= 32 && name.find(':') == name.npos);
}

static bool isPath(std::string_view path, std::size_t longest) {
  auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  return path.empty() ||
         (path.front() == '/' && path.size() <= longest && std::none_of(path.begin(), path.end(), isControl));
}

/// Whether a text has the form of its key. Prefixes and addresses are for the reader to judge.
static bool hasForm(KeyType type, std::string_view text) {
  static constexpr std::size_t longestSocketPath = 107, longestPath = 4095;
  switch (type) {
    case KeyType::interfaceName:
      return isInterfaceName(text);
    case KeyType::listNames:
      return isListName(text);
    case KeyType::action:
      return text == "permit" || text == "deny";
    case KeyType::path:
      return isPath(text, longestPath);
    case KeyType::groupName:
      return isGroupName(text);
    case KeyType::socketPath:
      return isPath(text, longestSocketPath);
    default:
      return true;
  }
}

// The table and its keys ------------------------------------------------------------------------------

static std::string refusal(std::string const& path, ConfigValue const& read, std::string const& valid) {
  return fmt::format("{}: read {}; valid is {}", path, describe(read), valid);
}

ConfigBlock::ConfigBlock(ConfigValue const& value, std::string_view section, std::string const& path,
                         std::vector<ConfigFinding>& faults)
    : table_(value.sort == Sort::table ? &value : nullptr),
      section_(section),
      path_(path),
      at_(value.at),
      faults_(faults) {
  if (table_ != nullptr) {
    checkKeys(section);
  } else {
    fault(at_, refusal(path, value, "a table"));
  }
}

/// A table where no key stands is probably of a name with a dot, written without quotes.
void ConfigBlock::checkKeys(std::string_view section) {
  for (ConfigEntry const& entry : table_->entries) {
    auto isKey = [&](ConfigKey const& key) { return key.section == section && key.name == entry.key; };
    std::span<ConfigKey const> all = configKeys();
    if (std::any_of(all.begin(), all.end(), isKey)) continue;
    std::string text = unknownKeyText(section, entry.key);
    std::size_t dot = path_.find('.');
    if (entry.value.sort == Sort::table && dot != path_.npos) {
      text += fmt::format("; a name with a dot stands in quotes: [{}.\"{}.{}\"]", path_.substr(0, dot),
                          path_.substr(dot + 1), entry.key);
    }
    fault(entry.at, fmt::format("{}: {}", pathOf(entry.key), text));
  }
}

ConfigValue const* ConfigBlock::value(std::string_view name) const {
  if (table_ == nullptr) return nullptr;
  for (ConfigEntry const& entry : table_->entries) {
    if (entry.key == name) return &entry.value;
  }
  return nullptr;
}

TextPlace ConfigBlock::placeOf(std::string_view name) const {
  ConfigValue const* found = value(name);
  return found == nullptr ? at_ : found->at;
}

void ConfigBlock::refuse(std::string_view name, ConfigValue const& read) {
  fault(read.at, refusal(pathOf(name), read, validText(key(name))));
}

void ConfigBlock::refuseItem(std::string_view name, ConfigValue const& read) {
  fault(read.at, refusal(pathOf(name), read, validItemText(key(name))));
}

// Values ----------------------------------------------------------------------------------------------

std::optional<U64> ConfigBlock::number(std::string_view name) {
  ConfigValue const* read = value(name);
  if (read == nullptr) return std::nullopt;
  ConfigKey const& row = key(name);
  auto number = static_cast<U64>(read->number);
  if (read->sort == Sort::integer && read->number >= 0 && number >= row.least && number <= row.most) {
    return number;
  }
  refuse(name, *read);
  return std::nullopt;
}

void ConfigBlock::take(std::string_view name, U64& number) { number = this->number(name).value_or(number); }

void ConfigBlock::take(std::string_view name, U32& number) {
  number = static_cast<U32>(this->number(name).value_or(number));
}

void ConfigBlock::take(std::string_view name, bool& flag) {
  ConfigValue const* read = value(name);
  if (read == nullptr) return;
  if (read->sort != Sort::boolean) return refuse(name, *read);
  flag = read->flag;
}

void ConfigBlock::take(std::string_view name, std::string& text) {
  if (std::optional<PlacedText> read = this->text(name)) text = read->text;
}

std::optional<PlacedText> ConfigBlock::text(std::string_view name) {
  ConfigValue const* read = value(name);
  ConfigKey const& row = key(name);
  if (read == nullptr) {
    if (row.fallback.empty() && table_ != nullptr) {
      fault(at_, fmt::format("{}: not there, and needed; valid is {}", pathOf(name), validText(row)));
    }
    return std::nullopt;
  }
  if (read->sort == Sort::text && hasForm(row.type, read->text)) return PlacedText{read->at, read->text};
  refuse(name, *read);
  return std::nullopt;
}

std::vector<PlacedText> ConfigBlock::texts(std::string_view name) {
  std::vector<PlacedText> found;
  ConfigValue const* read = value(name);
  if (read == nullptr) return found;
  if (read->sort != Sort::list) {
    refuse(name, *read);
    return found;
  }
  for (ConfigValue const& item : read->items) {
    if (item.sort == Sort::text && hasForm(key(name).type, item.text)) {
      found.push_back({item.at, item.text});
    } else {
      refuseItem(name, item);
    }
  }
  return found;
}

std::vector<ConfigValue const*> ConfigBlock::tables(std::string_view name) {
  std::vector<ConfigValue const*> found;
  ConfigValue const* read = value(name);
  if (read == nullptr) return found;
  if (read->sort != Sort::list) {
    refuse(name, *read);
    return found;
  }
  for (ConfigValue const& item : read->items) found.push_back(&item);
  return found;
}

}  // namespace pimbsr::agent
