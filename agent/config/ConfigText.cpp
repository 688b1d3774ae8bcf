#include "agent/config/ConfigText.h"

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

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";

/// The place of a byte, which the text has or which ends it.
TextPlace placeIn(std::string_view text, std::size_t at) {
  TextPlace place{1, 1};
  for (std::size_t i = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0; i < at; ++i) {
    if (text[i] == '\n') {
      place = {place.line + 1, 1};
    } else if (isStart(text[i])) {
      ++place.column;
    }
  }
  return place;
}

/// How many bytes the character has that a text begins with; 0 if it begins with none of UTF-8 (RFC 3629).
std::size_t characterLength(std::string_view text) {
  struct Form {
    unsigned char mask, begin;
    std::uint32_t least;
  };
  static constexpr Form forms[] = {
      {0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};
  auto first = static_cast<unsigned char>(text[0]);
  auto isIt = [&](Form const& form) { return (first & form.mask) == form.begin; };
  auto form = std::find_if(std::begin(forms), std::end(forms), isIt);
  auto length = static_cast<std::size_t>(form - std::begin(forms)) + 1;
  if (form == std::end(forms) || length > text.size()) return 0;
  std::uint32_t point = first & ~form->mask;
  for (char c : text.substr(1, length - 1)) {
    if (isStart(c)) return 0;
    point = point << 6 | (static_cast<unsigned char>(c) & 0x3f);
  }
  bool isSurrogate = point >= 0xd800 && point <= 0xdfff;
  return point >= form->least && point <= 0x10ffff && !isSurrogate ? length : 0;
}

std::optional<ConfigFinding> notUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    std::size_t length = characterLength(text.substr(at));
    if (length == 0) {
      return ConfigFinding{placeIn(text, at),
                           fmt::format("byte 0x{:02X} is not UTF-8, which TOML is written in",
                                       static_cast<unsigned char>(text[at]))};
    }
    at += length;
  }
  return std::nullopt;
}

/// Walks over a text of UTF-8 with just enough of TOML to tell keys and brackets from texts and comments,
/// before the parser does: that recurses over what nests, dotted keys without a bound, and where white space
/// may stand its behaviour on characters beyond ASCII is undefined.
class TextScan {
 public:
  explicit TextScan(std::string_view text) : text_(text), at_(text.starts_with(byteOrderMark) ? 3 : 0) {}

  /// The first thing that can't be parsed, if any.
  std::optional<ConfigFinding> refusal() {
    while (at_ < text_.size() && !unclosed_) {  // the parser comes no further than a text that is not closed
      char c = text_[at_];
      if ((c == '"' || c == '\'') && opensText()) {
        if (!skipText(c)) return beyondAscii();
      } else if (c == '#') {
        at_ = std::min(text_.find('\n', at_), text_.size());
      } else if (isBeyondAscii(c)) {
        return beyondAscii();
      } else {
        count(c);
        if (dots_ > deepestConfigText || open_.size() > deepestConfigText) return tooDeep();
        ++at_;
      }
    }
    return std::nullopt;
  }

  /// The text in quotes that has no closing one, if the scan came upon it.
  std::optional<ConfigFinding> const& unclosed() const { return unclosed_; }

 private:
  void count(char c) {
    if (c == '.') ++dots_;
    bool isEnd = std::string_view(" \t\r\n,]}").find(c) != std::string_view::npos;
    inBareValue_ =
        inValue_ && !isEnd && (inBareValue_ || std::string_view("[{=").find(c) == std::string_view::npos);
    if (inBareValue_) return;
    if (c == '[' || c == '{') open_ += c == '[' && !inValue_ ? headerMark : c;
    if ((c == ']' || c == '}') && !open_.empty()) open_.pop_back();
    if (std::string_view("[]{},=\n").find(c) == std::string_view::npos) return;
    dots_ = 0;
    inValue_ = c == '=' || open_.ends_with('[');
  }

  /// Whether a quote stands where a text may begin. Behind a number or a bare key it doesn't, and the parser
  /// may read on over it as if it were a letter.
  bool opensText() const {
    if (inBareValue_) return false;
    if (at_ == 0 || isBeyondAscii(text_[at_ - 1])) return true;  // the text or its byte order mark
    std::string_view before = inValue_ ? " \t\r\n=,[" : " \t\r\n.,[{";
    return before.find(text_[at_ - 1]) != before.npos;
  }

  bool isTriple(char quote) const { return text_.substr(at_, 3) == std::string(3, quote); }

  /// False, with the position there, for a character beyond ASCII that ends the white space of a broken line.
  bool skipText(char quote) {
    bool triple = isTriple(quote);
    std::size_t begin = at_;
    at_ += triple ? 3 : 1;
    for (; at_ < text_.size(); ++at_) {
      char c = text_[at_];
      if (!triple && c == '\n') {
        break;
      } else if (c == '\\' && quote == '"') {
        if (triple && !skipBreak()) return false;
        if (triple || text_.substr(at_ + 1, 1) != "\n") ++at_;
      } else if (c == quote && (!triple || isTriple(quote))) {
        break;
      }
    }
    if (at_ >= text_.size() || text_[at_] != quote) {
      at_ = std::min(at_, text_.size());
      unclosed_ = {placeIn(text_, begin), triple
                                              ? "the text that begins here has no three closing quotes"
                                              : "the text that begins here has no closing quote on its line"};
      return true;
    }
    at_ += triple ? 3 : 1;
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
  TextPlace place() const { return placeIn(text_, at_); }

  std::string_view text_;
  std::size_t at_ = 0;
  static constexpr char headerMark = 'h';
  std::string open_;  ///< the brackets that are open, the one of a table's header as headerMark
  bool inValue_ = false;
  bool inBareValue_ = false;  ///< within a number or another value without quotes
  int dots_ = 0;
  std::optional<ConfigFinding> unclosed_;
};

// Values ----------------------------------------------------------------------------------------------

/// As many characters of a text as are told of it.
std::string_view beginningOf(std::string_view text) {
  static constexpr int most = 60;
  int characters = 0;
  std::size_t at = 0;
  while (at < text.size() && (!isStart(text[at]) || characters++ < most)) ++at;
  return text.substr(0, at);
}

std::string cutOff(std::string_view text) {
  std::string_view shown = beginningOf(text);
  return std::string(shown) + (shown.size() < text.size() ? "..." : "");
}

TextPlace placeOf(toml::source_region const& region) { return {region.begin.line, region.begin.column}; }

/// A text, in which what stands from one place to another is found.
class Source {
 public:
  explicit Source(std::string_view text) : text_(text) {
    std::size_t at = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    lines_.push_back(0);
    for (; at < text.size(); ++at) {
      if (isStart(text[at])) characters_.push_back(static_cast<Zet::U32>(at));
      if (text[at] == '\n') lines_.push_back(characters_.size());
    }
  }

  std::string_view between(TextPlace begin, TextPlace end) const {
    std::size_t first = offsetOf(begin);
    return text_.substr(first, offsetOf(end) - first);
  }

 private:
  std::size_t offsetOf(TextPlace place) const {
    std::size_t index = lines_[place.line - 1] + place.column - 1;
    return index < characters_.size() ? characters_[index] : text_.size();
  }

  std::string_view text_;
  std::vector<Zet::U32> characters_;  ///< where each begins
  std::vector<std::size_t> lines_;    ///< which character each begins with
};

ConfigValue valueOf(toml::node const& node, Source const& source);

ConfigValue tableOf(toml::table const& table, Source const& source) {
  ConfigValue value;
  for (auto const& [key, node] : table) {
    value.entries.push_back({std::string(key.str()), placeOf(key.source()), valueOf(node, source)});
  }
  auto byPlace = [](ConfigEntry const& a, ConfigEntry const& b) { return a.at < b.at; };
  std::stable_sort(value.entries.begin(), value.entries.end(), byPlace);
  return value;
}

ConfigValue listOf(toml::array const& list, Source const& source) {
  ConfigValue value{.sort = Sort::list};
  for (toml::node const& node : list) value.items.push_back(valueOf(node, source));
  return value;
}

char const* nameOf(toml::node_type type) {
  switch (type) {
    case toml::node_type::floating_point:
      return "the decimal number";
    case toml::node_type::date:
      return "the date";
    case toml::node_type::time:
      return "the time";
    default:
      return "the date and time";
  }
}

/// A value that no key takes, as it is written.
std::string wordsOf(toml::node const& node, Source const& source) {
  auto end = TextPlace{node.source().end.line, node.source().end.column};
  return fmt::format("{} {}", nameOf(node.type()), cutOff(source.between(placeOf(node.source()), end)));
}

ConfigValue plainValueOf(toml::node const& node, Source const& source) {
  if (toml::table const* table = node.as_table()) return tableOf(*table, source);
  if (toml::array const* list = node.as_array()) return listOf(*list, source);
  if (auto const* text = node.as_string()) return {.sort = Sort::text, .text = text->get()};
  if (auto const* number = node.as_integer()) return {.sort = Sort::integer, .number = number->get()};
  if (auto const* flag = node.as_boolean()) return {.sort = Sort::boolean, .flag = flag->get()};
  return {.sort = Sort::other, .text = wordsOf(node, source)};
}

ConfigValue valueOf(toml::node const& node, Source const& source) {
  ConfigValue value = plainValueOf(node, source);
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
  if (std::optional<ConfigFinding> found = notUtf8(text)) return refused(found->at, found->text);
  TextScan scan(text);
  if (std::optional<ConfigFinding> found = scan.refusal()) return refused(found->at, found->text);
  try {
    return {.root = valueOf(toml::parse(text), Source(text)), .faults = {}};
  } catch (toml::parse_error const& error) {
    TextPlace at = placeOf(error.source());
    // The parser says of a text that isn't closed what it met behind its end.
    auto const& unclosed = scan.unclosed();
    if (unclosed && unclosed->at <= at) return refused(unclosed->at, "not TOML: " + unclosed->text);
    return refused(at, fmt::format("not TOML: {}", error.description()));
  } catch (ParserStuck const&) {
    return refused(stuckAt(text), "not TOML: this line is neither a table, nor a key and its value");
  }
}

// Keys that have another name -------------------------------------------------------------------------

/// How many bytes of a text are a key's former name, with the quote before it; 0 if it is written otherwise.
static std::size_t lengthOfFormer(std::string_view text, ConfigRename const& rename) {
  std::size_t quote = text.starts_with('"') || text.starts_with('\'') ? 1 : 0;
  return text.substr(quote).starts_with(rename.former) ? quote + rename.former.size() : 0;
}

std::string renamedKeys(std::string_view text, std::vector<ConfigRename> renames) {
  std::sort(renames.begin(), renames.end(), [](auto const& a, auto const& b) { return a.at < b.at; });
  auto next = renames.begin();
  std::string out(text.substr(0, text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0));
  TextPlace place{1, 1};
  for (std::size_t at = out.size(); at < text.size();) {
    std::size_t length = 0;
    if (next != renames.end() && next->at == place) {
      length = lengthOfFormer(text.substr(at), *next);
      if (length != 0) out.append(text.substr(at, length - next->former.size())).append(next->name);
      ++next;
    }
    place.column += static_cast<Zet::U32>(length);
    at += length;
    if (length != 0) continue;
    out += text[at];
    if (text[at] == '\n') {
      place = {place.line + 1, 1};
    } else if (isStart(text[at])) {
      ++place.column;
    }
    ++at;
  }
  return out;
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
  std::string_view shown = beginningOf(text);
  return escaped(shown) + (shown.size() < text.size() ? "..." : "");
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
