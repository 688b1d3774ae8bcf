#include "agent/config/ConfigBlock.h"

#include <fmt/format.h>

#include <algorithm>

#include "runtime/Exceptions.h"

namespace pimbsr::agent {

using Sort = ConfigValue::Sort;

// Texts that have a form ------------------------------------------------------------------------------

bool isInterfaceName(std::string_view name) {
  auto isInvalid = [](char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7f || c == '/' || c == ':';
  };
  return !name.empty() && name.size() <= 15 && name != "." && name != ".." &&
         std::none_of(name.begin(), name.end(), isInvalid);
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

static bool isPath(std::string_view path, std::size_t maxLength) {
  auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
  return path.empty() || (path.front() == '/' && path.size() <= maxLength &&
                          std::none_of(path.begin(), path.end(), isControl));
}

/// Whether a text has the form of its key. Prefixes and addresses are validated when they are parsed.
static bool hasForm(KeyType type, std::string_view text) {
  static constexpr std::size_t maxSocketPathLength = 107, maxPathLength = 4095;
  switch (type) {
    case KeyType::interfaceName:
      return isInterfaceName(text);
    case KeyType::listNames:
      return isListName(text);
    case KeyType::action:
      return text == "permit" || text == "deny";
    case KeyType::path:
      return isPath(text, maxPathLength);
    case KeyType::groupName:
      return isGroupName(text);
    case KeyType::socketPath:
      return isPath(text, maxSocketPathLength);
    default:
      return true;
  }
}

// The table and its keys ------------------------------------------------------------------------------

static std::string invalidText(std::string const& path, ConfigValue const& read, std::string const& valid) {
  return fmt::format("{}: read {}; valid is {}", path, describe(read), valid);
}

ConfigBlock::ConfigBlock(ConfigValue const& value, ConfigSection const& section, std::string const& path,
                         ConfigNotes notes)
    : table_(value.sort == Sort::table ? &value : nullptr), path_(path), at_(value.at), notes_(notes) {
  if (table_ != nullptr) {
    checkKeys(section.name);
  } else {
    notes_.errors.push_back({at_, invalidText(path, value, "a table")});
  }
}

void ConfigBlock::checkKeys(std::string_view section) {
  for (ConfigEntry const& entry : table_->entries) {
    auto isKey = [&](ConfigKey const& key) { return key.section == section && key.name == entry.key; };
    auto isFormer = [&](ConfigKey const& key) { return key.section == section && key.former == entry.key; };
    std::span<ConfigKey const> all = configKeys();
    if (std::any_of(all.begin(), all.end(), isKey)) continue;
    auto former = entry.key.empty() ? all.end() : std::find_if(all.begin(), all.end(), isFormer);
    if (former == all.end()) {
      rejectUnknown(section, entry);
    } else {
      rejectFormer(*former, entry);
    }
  }
}

/// A table in place of a key is probably a name with a dot that lacks quotes.
void ConfigBlock::rejectUnknown(std::string_view section, ConfigEntry const& entry) {
  std::string text = unknownKeyText(section, entry.key);
  std::size_t dot = path_.find('.');
  if (entry.value.sort == Sort::table && dot != path_.npos) {
    text += fmt::format("; a name with a dot must be in quotes: [{}.\"{}.{}\"]", path_.substr(0, dot),
                        path_.substr(dot + 1), entry.key);
  }
  notes_.errors.push_back({entry.at, fmt::format("{}.{}: {}", path_, tomlKey(entry.key), text)});
}

/// A former name can't be renamed if the table has the present name too.
void ConfigBlock::rejectFormer(ConfigKey const& key, ConfigEntry const& entry) {
  std::string text = fmt::format("{}.{}: is now called {}", path_, entry.key, key.name);
  if (has(key)) {
    text += ", which is there too";
  } else {
    text += "; 'pimbsr check --rewrite' renames it in the file";
    notes_.renames.push_back({entry.at, entry.key, key.name});
  }
  notes_.errors.push_back({entry.at, text});
}

ConfigValue const* ConfigBlock::find(ConfigKey const& key) const {
  if (table_ == nullptr) return nullptr;
  auto matches = [&](ConfigEntry const& entry) { return entry.key == key.name; };
  auto found = std::find_if(table_->entries.begin(), table_->entries.end(), matches);
  return found == table_->entries.end() ? nullptr : &found->value;
}

TextPlace ConfigBlock::placeOf(ConfigKey const& key) const {
  ConfigValue const* found = find(key);
  return found == nullptr ? at_ : found->at;
}

void ConfigBlock::addError(TextPlace at, ConfigKey const& key, std::string const& text) {
  notes_.errors.push_back({at, fmt::format("{}: {}", pathOf(key), text)});
}

void ConfigBlock::reject(ConfigKey const& key, ConfigValue const& read) {
  notes_.errors.push_back({read.at, invalidText(pathOf(key), read, validText(key))});
}

void ConfigBlock::rejectItem(ConfigKey const& key, ConfigValue const& read) {
  notes_.errors.push_back({read.at, invalidText(pathOf(key), read, validItemText(key))});
}

// Numbers and flags -----------------------------------------------------------------------------------

static bool isNumberOf(ConfigKey const& key, ConfigValue const& read) {
  auto number = static_cast<U64>(read.number);
  return read.sort == Sort::integer && read.number >= 0 && number >= key.least && number <= key.most;
}

bool ConfigBlock::hasNumber(ConfigKey const& key) const {
  ConfigValue const* read = find(key);
  return read != nullptr && isNumberOf(key, *read);
}

std::optional<U64> ConfigBlock::number(ConfigKey const& key) {
  ConfigValue const* read = find(key);
  if (read == nullptr) return std::nullopt;
  if (isNumberOf(key, *read)) return static_cast<U64>(read->number);
  reject(key, *read);
  return std::nullopt;
}

void ConfigBlock::take(ConfigKey const& key, U64& number) { number = this->number(key).value_or(number); }

void ConfigBlock::take(ConfigKey const& key, U32& number) {
  number = static_cast<U32>(this->number(key).value_or(number));
}

void ConfigBlock::take(ConfigKey const& key, std::optional<U32>& number) {
  if (std::optional<U64> read = this->number(key)) number = static_cast<U32>(*read);
}

void ConfigBlock::take(ConfigKey const& key, bool& flag) {
  ConfigValue const* read = find(key);
  if (read == nullptr) return;
  if (read->sort != Sort::boolean) return reject(key, *read);
  flag = read->flag;
}

// Texts -----------------------------------------------------------------------------------------------

/// The value of a text that the model parses; none if the text isn't valid.
template <class Value>
static std::optional<Value> parsed(std::string_view text) {
  // An empty text would be parsed as the unset value.
  if (text.empty()) return std::nullopt;
  try {
    return Value::parse(Zet::String8(text));
  } catch (Zet::RangeException const&) {
    return std::nullopt;
  }
}

std::optional<std::string> ConfigBlock::text(ConfigKey const& key) {
  ConfigValue const* read = find(key);
  if (read == nullptr) {
    if (key.fallback.empty() && table_ != nullptr)
      addError(at_, key, fmt::format("not there, and needed; valid is {}", validText(key)));
    return std::nullopt;
  }
  if (read->sort == Sort::text && hasForm(key.type, read->text)) return read->text;
  reject(key, *read);
  return std::nullopt;
}

void ConfigBlock::take(ConfigKey const& key, std::string& text) {
  if (std::optional<std::string> read = this->text(key)) text = *read;
}

void ConfigBlock::take(ConfigKey const& key, file::Action& action) {
  std::optional<std::string> read = text(key);
  if (read) action = *read == "permit" ? Acl::Action::permit : Acl::Action::deny;
}

void ConfigBlock::take(ConfigKey const& key, file::Address& address) {
  std::optional<std::string> read = text(key);
  if (read && !(address = parsed<Lanet::IpAddr>(*read))) reject(key, *find(key));
}

void ConfigBlock::take(ConfigKey const& key, file::Prefix& prefix) {
  if (!text(key)) return;
  prefix = prefixOf(key, *find(key));
  if (!prefix || prefix->af() == Lanet::AddressFamily::ipv4) return;
  reject(key, *find(key));
  prefix.reset();
}

std::optional<Lanet::IpGenPrefix> ConfigBlock::prefixOf(ConfigKey const& key, ConfigValue const& read) {
  auto prefix = parsed<Lanet::IpGenPrefix>(read.text);
  if (!prefix) {
    rejectItem(key, read);
    return std::nullopt;
  }
  auto address = parsed<Lanet::IpGenAddr>(std::string_view(read.text).substr(0, read.text.find('/')));
  if (address && *address != prefix->address()) {
    notes_.remarks.push_back(
        {read.at, fmt::format("{}: {} has bits beyond its prefix length, and is read as {}", pathOf(key),
                              read.text, prefix->stringValue().view())});
  }
  return prefix;
}

// Lists -----------------------------------------------------------------------------------------------

std::vector<ConfigValue> const* ConfigBlock::itemsOf(ConfigKey const& key) {
  ConfigValue const* read = find(key);
  if (read == nullptr || read->sort == Sort::list) return read == nullptr ? nullptr : &read->items;
  reject(key, *read);
  return nullptr;
}

std::vector<ConfigValue const*> ConfigBlock::textsOf(ConfigKey const& key) {
  std::vector<ConfigValue const*> found;
  std::vector<ConfigValue> const* items = itemsOf(key);
  if (items == nullptr) return found;
  for (ConfigValue const& item : *items) {
    if (item.sort == Sort::text && hasForm(key.type, item.text)) {
      found.push_back(&item);
    } else {
      rejectItem(key, item);
    }
  }
  return found;
}

void ConfigBlock::take(ConfigKey const& key, file::GroupRanges& ranges) {
  for (ConfigValue const* item : textsOf(key)) {
    if (auto range = prefixOf(key, *item)) ranges.push_back({item->at, *range});
  }
}

void ConfigBlock::take(ConfigKey const& key, file::ListNames& names) {
  for (ConfigValue const* item : textsOf(key)) names.push_back({item->at, item->text});
}

void ConfigBlock::take(ConfigKey const& key, file::Rules& rules) {
  std::vector<ConfigValue> const* items = itemsOf(key);
  if (items == nullptr) return;
  for (ConfigValue const& item : *items) rules.push_back(&item);
}

}  // namespace pimbsr::agent
