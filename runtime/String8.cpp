#include "runtime/String8.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <ostream>
#include <vector>

#include "runtime/Exceptions.h"

namespace Zet {

template <class C>
StringN<C>::StringN(std::string_view text) {
  if (text.empty()) return;
  data_ = newData(text.size());
  std::memcpy(bytes(data_), text.data(), text.size());
}

// One allocation for count, length and bytes. The zero at the end is for charPtr().
template <class C>
typename StringN<C>::Data* StringN<C>::newData(std::size_t length) {
  if (length > std::numeric_limits<U32>::max()) throwRangeException("string longer than 4294967295 bytes");
  Data* data = ::new (::operator new(sizeof(Data) + length + 1)) Data{1, static_cast<U32>(length)};
  bytes(data)[length] = '\0';
  return data;
}

template <class C>
void StringN<C>::destroy(Data* data) {
  data->~Data();
  ::operator delete(data);
}

template <class C>
StringN<C> StringN<C>::concat(StringN const& a, StringN const& b) {
  if (a.empty()) return b;
  if (b.empty()) return a;
  StringN joined;
  joined.data_ = newData(std::size_t{a.length()} + b.length());
  std::memcpy(bytes(joined.data_), a.charPtr(), a.length());
  std::memcpy(bytes(joined.data_) + a.length(), b.charPtr(), b.length());
  return joined;
}

// FNV-1a spreads well but leaves the high bits of short strings weak, so its result is mixed once more.
template <class C>
U32 StringN<C>::hash() const {
  U32 h = 2166136261U;
  for (char byte : view()) h = (h ^ static_cast<U8>(byte)) * 16777619U;
  h = (h ^ (h >> 16)) * 0x85ebca6bU;
  h = (h ^ (h >> 13)) * 0xc2b2ae35U;
  return h ^ (h >> 16);
}

template class StringN<unsigned char>;

// The second try of format(), whose first has found the length.
static String8 formatLong(char const* fmt, std::va_list arguments, std::size_t length) {
  std::vector<char> buffer(length + 1);
  std::vsnprintf(buffer.data(), buffer.size(), fmt, arguments);
  return String8(std::string_view(buffer.data(), length));
}

String8 format(char const* fmt, ...) {
  char buffer[256];
  std::va_list arguments;
  std::va_list again;
  va_start(arguments, fmt);
  va_copy(again, arguments);
  int length = std::vsnprintf(buffer, sizeof buffer, fmt, arguments);
  va_end(arguments);
  String8 text;
  if (length >= 0) {
    auto size = static_cast<std::size_t>(length);
    text = size < sizeof buffer ? String8(std::string_view(buffer, size)) : formatLong(fmt, again, size);
  }
  va_end(again);
  if (length < 0) throwRangeException("format that cannot be followed");
  return text;
}

std::ostream& operator<<(std::ostream& out, String8 const& text) { return out << text.view(); }

}  // namespace Zet
