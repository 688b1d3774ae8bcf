#include "runtime/Strep.h"

#include <charconv>
#include <cstring>
#include <string>

#include "runtime/Exceptions.h"

namespace Zet {

static bool isWhiteSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
static bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

static long long column(StrepPos cur) { return cur.column(); }

[[noreturn]] static void throwNeeded(char const* what, StrepPos cur) {
  throwRangeException(format("needed %s at column %lld", what, column(cur)).view());
}

static std::string_view rest(StrepPos cur, StrepPos end) {
  return cur == end
             ? std::string_view()
             : std::string_view(reinterpret_cast<char const*>(&*cur), static_cast<std::size_t>(end - cur));
}

static void advance(StrepPos& cur, std::size_t bytes) {
  while (bytes-- > 0) ++cur;
}

void skipWhiteSpace(StrepPos& cur, StrepPos end) {
  while (cur != end && isWhiteSpace(*cur)) ++cur;
}

// A blank of the token stands for any white space, or none, since texts are written by hand too.
void needString(StrepPos& cur, StrepPos end, char const* token) {
  for (char const* want = token; *want != '\0'; ++want) {
    if (*want == ' ') {
      skipWhiteSpace(cur, end);
    } else if (cur == end || *cur != static_cast<unsigned char>(*want)) {
      throwNeeded(format("\"%s\"", token).charPtr(), cur);
    } else {
      ++cur;
    }
  }
}

// Only what would end the text is escaped; all other bytes are as they are, so that any bytes come back.
String8 readQuoted(StrepPos& cur, StrepPos end) {
  if (cur == end || *cur != '\'') throwNeeded("a string in single quotes", cur);
  std::string bytes;
  for (++cur; cur != end && *cur != '\''; ++cur) {
    if (*cur == '\\') {
      ++cur;
      if (cur == end || (*cur != '\\' && *cur != '\''))
        throwNeeded("a quote or backslash after a backslash", cur);
    }
    bytes.push_back(static_cast<char>(*cur));
  }
  if (cur == end) throwNeeded("a closing quote", cur);
  ++cur;
  return String8(bytes);
}

// The number is read by from_chars, which knows no locale; it takes no plus sign, so that is skipped first.
template <class T>
static T readDigits(StrepPos& cur, StrepPos end) {
  std::string_view text = rest(cur, end);
  bool hasPlus = text.size() > 1 && text[0] == '+' && isDigit(static_cast<unsigned char>(text[1]));
  T number = 0;
  auto [stop, error] = std::from_chars(text.data() + (hasPlus ? 1 : 0), text.data() + text.size(), number);
  if (error == std::errc::invalid_argument) throwNeeded("a number", cur);
  if (error == std::errc::result_out_of_range) {
    throwRangeException(format("number beyond 64 bits at column %lld", column(cur)).view());
  }
  advance(cur, static_cast<std::size_t>(stop - text.data()));
  return number;
}

S64 readInteger(StrepPos& cur, StrepPos end) { return readDigits<S64>(cur, end); }

U64 readUnsigned(StrepPos& cur, StrepPos end) { return readDigits<U64>(cur, end); }

double readDouble(StrepPos& cur, StrepPos end) { return readDigits<double>(cur, end); }

bool readBool(StrepPos& cur, StrepPos end) {
  std::string_view text = rest(cur, end);
  for (bool value : {true, false}) {
    std::string_view name = value ? "True" : "False";
    if (!text.starts_with(name)) continue;
    advance(cur, name.size());
    return value;
  }
  throwNeeded("True or False", cur);
}

// 64 bytes hold every number: the longest is a double in its shortest form, with 24 characters.
template <class T>
static String8 digits(T value) {
  char buffer[64];
  auto [stop, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return String8(std::string_view(buffer, static_cast<std::size_t>(stop - buffer)));
}

String8 valueToStrep(U8 value) { return digits(value); }
String8 valueToStrep(U16 value) { return digits(value); }
String8 valueToStrep(U32 value) { return digits(value); }
String8 valueToStrep(U64 value) { return digits(value); }
String8 valueToStrep(S32 value) { return digits(value); }
String8 valueToStrep(S64 value) { return digits(value); }
String8 valueToStrep(double value) { return digits(value); }

String8 valueToStrep(String8 const& value) {
  std::string quoted = "'";
  for (char c : value.view()) {
    if (c == '\'' || c == '\\') quoted.push_back('\\');
    quoted.push_back(c);
  }
  quoted.push_back('\'');
  return String8(quoted);
}

void throwIntegerTooWide(String8 const& value, int bits, bool isSigned) {
  throwRangeException(
      format("%s is no %s number of %d bits", value.charPtr(), isSigned ? "signed" : "unsigned", bits)
          .view());
}

void needEnd(StrepPos cur, String8 const& text) {
  if (cur == text.end()) return;
  throwRangeException(format("junk at column %lld deserializing %s", column(cur), text.charPtr()).view());
}

// Adds the attribute: the column alone is of no use to who has written a text of many. Other exceptions pass,
// since they are no errors of the text.
void rethrowFromDeserializeAttr(String8 const& attributeName) {
  try {
    throw;
  } catch (RangeException const& e) {
    throwRangeException(format("attribute '%s': %s", attributeName.charPtr(), e.what()).view());
  }
}

static char const* bareName(char const* typeName) {
  char const* colon = std::strrchr(typeName, ':');
  return colon == nullptr ? typeName : colon + 1;
}

static void needOpening(StrepPos& cur, StrepPos end, char const* typeName) {
  needString(cur, end, " Value");
  needString(cur, end, " (");
  needString(cur, end, format(" '%s'", typeName).charPtr());
  needString(cur, end, " ,");
  needString(cur, end, " **");
  needString(cur, end, " {");
}

static void readOneAttr(StrepPos& cur, StrepPos end, char const* typeName, AttrReader const& readAttr) {
  // The name is copied first, since the error text names it after the cursor has moved on.
  String8 name = readQuoted(cur, end);
  needString(cur, end, " : ");
  bool isKnown = false;
  try {
    isKnown = readAttr(name, cur, end);
  } catch (RangeException const&) {
    rethrowFromDeserializeAttr(name);
  }
  if (!isKnown)
    throwRangeException(format("%s has no such attribute: %s", bareName(typeName), name.charPtr()).view());
}

void readStructured(StrepPos& cur, StrepPos end, char const* typeName, AttrReader const& readAttr) {
  needOpening(cur, end, typeName);
  for (bool isFirst = true;; isFirst = false) {
    skipWhiteSpace(cur, end);
    if (cur == end) throwRangeException(format("premature end of value type %s", bareName(typeName)).view());
    if (*cur == '}') break;
    if (!isFirst) needString(cur, end, ", ");
    readOneAttr(cur, end, typeName, readAttr);
  }
  needString(cur, end, "} ");
  needString(cur, end, ") ");
}

StructuredText::StructuredText(char const* typeName) : text_(format("Value('%s', ** {", typeName)) {}

StructuredText& StructuredText::attr(char const* name, String8 const& value) {
  text_ += format("%s'%s': ", isFirst_ ? "" : ", ", name) + value;
  isFirst_ = false;
  return *this;
}

String8 StructuredText::text() const { return text_ + "})"; }

}  // namespace Zet
