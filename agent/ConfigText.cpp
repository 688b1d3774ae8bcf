#include "agent/ConfigText.h"

// The parser has assertions that a text can reach, such as a header that begins with an equals sign. They
// must refuse the text and not end the process, so the parser is compiled here, with assertions that throw.
#undef NDEBUG
#undef TOML_SHARED_LIB
#undef TOML_HEADER_ONLY
#define TOML_HEADER_ONLY 1
namespace pimbsr::agent {
struct ParserStuck {};
[[noreturn]] static void throwParserStuck() { throw ParserStuck(); }
}  // namespace pimbsr::agent
#define TOML_ASSERT(condition) ((condition) ? void() : ::pimbsr::agent::throwParserStuck())
#include <toml++/toml.h>

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace pimbsr::agent {

using Sort = ConfigValue::Sort;

// What the parser can't take --------------------------------------------------------------------------

namespace {

bool isBeyondAscii(char c) { return static_cast<unsigned char>(c) >= 0x80; }

/// Whether a byte begins a character or is one by itself.
bool isStart(char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }

/// Walks over a text with just enough of TOML to tell keys and brackets from texts and comments, before the
/// parser does: that recurses over what nests, dotted keys without a bound, and where white space may stand
/// its behaviour on characters beyond ASCII is undefined.
class TextScan {
 public:
  explicit TextScan(std::string_view text) : text_(text), at_(text.starts_with("\xef\xbb\xbf") ? 3 : 0) {}

  /// The first thing that can't be parsed, if any.
  std::optional<ConfigFinding> refusal() {
    while (at_ < text_.size()) {
      char c = text_[at_];
      if (c == '"' || c == '\'') {
        if (!skipText(c)) return beyondAscii();
      } else if (c == '#') {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (isBeyondAscii(c)) {
        return beyondAscii();
      } else {
        count(c);
        if (dots_ > deepestConfigText || depth_ > deepestConfigText) return tooDeep();
        ++at_;
      }
    }
    return std::nullopt;
  }

 private:
  void count(char c) {
    if (c == '.') ++dots_;
    if (c == '[' || c == '{') ++depth_;
    if ((c == ']' || c == '}') && depth_ > 0) --depth_;
    if (std::string_view("[]{},=\n").find(c) != std::string_view::npos) dots_ = 0;
  }

  bool isTriple(char quote) const { return text_.substr(at_, 3) == std::string(3, quote); }

  /// False, with the position there, for a character beyond ASCII that ends the white space of a broken line.
  bool skipText(char quote) {
    bool triple = isTriple(quote);
    at_ += triple ? 3 : 1;
    for (; at_ < text_.size(); ++at_) {
      char c = text_[at_];
      if (c == '\\' && quote == '"') {
        if (triple && !skipBreak()) return false;
        ++at_;
      } else if (!triple && c == '\n') {
        return true;  // the parser refuses this text right here
      } else if (c == quote && (!triple || isTriple(quote))) {
        break;
      }
    }
    at_ = std::min(at_ + (triple ? 3 : 1), text_.size());
    // Up to two quotes may stand before the three that end a text.
    for (int more = 0; triple && more < 2 && at_ < text_.size() && text_[at_] == quote; ++more) ++at_;
    return true;
  }

  /// Goes to the last of the white space behind a backslash, if there is any.
  bool skipBreak() {
    std::size_t next = std::min(text_.find_first_not_of(" \t\r\n\v\f", at_ + 1), text_.size());
    if (next < text_.size() && isBeyondAscii(text_[next])) {
      at_ = next;
      return false;
    }
    if (next > at_ + 1) at_ = next - 2;
    return true;
  }

  ConfigFinding tooDeep() const {
    return {place(), fmt::format("nested more than {} deep; no key of a configuration is deeper than 4",
                                 deepestConfigText)};
  }
  ConfigFinding beyondAscii() const {
    return {place(), "a character beyond ASCII; it may stand in a text in quotes, and in a comment"};
  }
  TextPlace place() const {
    TextPlace place{1, 1};
    for (char c : text_.substr(0, at_)) {
      if (c == '\n') {
        place = {place.line + 1, 1};
      } else if (isStart(c)) {
        ++place.column;
      }
    }
    return place;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  int depth_ = 0;
  int dots_ = 0;
};

// Values ----------------------------------------------------------------------------------------------

TextPlace placeOf(toml::source_region const& region) { return {region.begin.line, region.begin.column}; }

ConfigValue valueOf(toml::node const& node);

ConfigValue tableOf(toml::table const& table) {
  ConfigValue value;
  for (auto const& [key, node] : table) {
    value.entries.push_back({std::string(key.str()), placeOf(key.source()), valueOf(node)});
  }
  auto byPlace = [](ConfigEntry const& a, ConfigEntry const& b) { return a.at < b.at; };
  std::stable_sort(value.entries.begin(), value.entries.end(), byPlace);
  return value;
}

ConfigValue listOf(toml::array const& list) {
  ConfigValue value{.sort = Sort::list};
  for (toml::node const& node : list) value.items.push_back(valueOf(node));
  return value;
}

char const* nameOf(toml::node_type type) {
  return type == toml::node_type::floating_point ? "a decimal number" : "a date or time";
}

ConfigValue plainValueOf(toml::node const& node) {
  if (toml::table const* table = node.as_table()) return tableOf(*table);
  if (toml::array const* list = node.as_array()) return listOf(*list);
  if (auto const* text = node.as_string()) return {.sort = Sort::text, .text = text->get()};
  if (auto const* number = node.as_integer()) return {.sort = Sort::integer, .number = number->get()};
  if (auto const* flag = node.as_boolean()) return {.sort = Sort::boolean, .flag = flag->get()};
  return {.sort = Sort::other, .text = nameOf(node.type())};
}

ConfigValue valueOf(toml::node const& node) {
  ConfigValue value = plainValueOf(node);
  value.at = placeOf(node.source());
  return value;
}

ParsedText refused(TextPlace at, std::string const& text) { return {.root = {}, .faults = {{at, text}}}; }

bool isStuck(std::string_view text) {
  try {
    (void)toml::parse(text);
  } catch (toml::parse_error const&) {
    return false;
  } catch (ParserStuck const&) {
    return true;
  }
  return false;
}

/// The line at which the parser gets stuck, which says nothing of it: the last one of the shortest beginning
/// of the text that it gets stuck in.
TextPlace stuckAt(std::string_view text) {
  std::vector<std::size_t> ends;
  for (std::size_t at = text.find('\n'); at != text.npos; at = text.find('\n', at + 1))
    ends.push_back(at + 1);
  auto isFine = [&](std::size_t end) { return !isStuck(text.substr(0, end)); };
  auto end = std::partition_point(ends.begin(), ends.end(), isFine);
  return {static_cast<Zet::U32>(end - ends.begin()) + 1, 1};
}

}  // namespace

ParsedText parseConfigText(std::string_view text) {
  if (text.size() > longestConfigText) {
    return refused({}, fmt::format("longer than {} bytes, which no configuration is", longestConfigText));
  }
  if (std::optional<ConfigFinding> found = TextScan(text).refusal()) return refused(found->at, found->text);
  try {
    return {.root = valueOf(toml::parse(text)), .faults = {}};
  } catch (toml::parse_error const& error) {
    return refused(placeOf(error.source()), fmt::format("not TOML: {}", error.description()));
  } catch (ParserStuck const&) {
    return refused(stuckAt(text), "not TOML: this line is neither a table, nor a key and its value");
  }
}

// Words -----------------------------------------------------------------------------------------------

/// A text in quotes with the escapes that both TOML and people read.
static std::string escaped(std::string_view text) {
  std::string out;
  for (char c : text) {
    auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (byte < 0x20 || byte == 0x7f) {
      out += fmt::format("\\u{:04X}", byte);
    } else {
      out += c;
    }
  }
  return '"' + out + '"';
}

std::string inQuotes(std::string_view text) {
  static constexpr int most = 60;
  int characters = 0;
  std::size_t at = 0;
  while (at < text.size() && (!isStart(text[at]) || characters++ < most)) ++at;
  return escaped(text.substr(0, at)) + (at < text.size() ? "..." : "");
}

std::string describe(ConfigValue const& value) {
  switch (value.sort) {
    case Sort::boolean:
      return value.flag ? "true" : "false";
    case Sort::integer:
      return std::to_string(value.number);
    case Sort::text:
      return "the text " + inQuotes(value.text);
    case Sort::list:
      return "a list";
    case Sort::table:
      return "a table";
    case Sort::other:
      break;
  }
  return value.text;
}

std::string tomlKey(std::string_view key) {
  auto isBare = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  };
  bool bare = !key.empty() && std::all_of(key.begin(), key.end(), isBare);
  return bare ? std::string(key) : escaped(key);
}

std::string tomlText(std::string_view text) { return escaped(text); }

}  // namespace pimbsr::agent
