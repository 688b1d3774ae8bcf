#pragma once

#include <bit>
#include <concepts>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "runtime/Bits.h"
#include "runtime/EnumText.h"
#include "runtime/Exceptions.h"
#include "runtime/Ptr.h"
#include "runtime/String8.h"
#include "runtime/Types.h"
#include "runtime/ValueType.h"

/// The attribute log's form of values: fields one after the other in network byte order, with nothing
/// between.
///
///   bool, numbers  their width; a bool is 0 or 1, a double its 64 bits
///   enumerations   a U32
///   strings        a U32 with the length, then the bytes
///   value types    their fields in declared order
///   network values what model/Lanet.h says
namespace Zet::NboAttrLog {

/// Bytes that aren't what they should be: too few, or no value of the type at all.
class PIMBSR_API MalformedException : public Exception {
  using Exception::Exception;
};
/// Raises MalformedException with that text.
[[noreturn]] PIMBSR_API void throwMalformed(std::string_view text);

/// Takes the form of values, one after the other.
class PIMBSR_API Out : public PtrInterface {
 public:
  Out() = default;

  /// So many bytes at the end, which the caller fills.
  U8* add(std::size_t size) {
    if (static_cast<std::size_t>(end_ - at_) < size) grow(size);
    U8* place = at_;
    at_ += size;
    return place;
  }
  /// All bytes so far; good until more are added.
  std::span<U8 const> bytes() const { return {start(), size()}; }
  /// Number of bytes so far.
  std::size_t size() const { return static_cast<std::size_t>(at_ - start()); }
  /// Cuts off what follows the first `size` bytes. The memory stays for what comes next.
  void sizeIs(std::size_t size) { at_ = start() + size; }
  /// Writes over bytes that are there already.
  void overwrite(std::size_t place, U32 number);

 private:
  U8* start() const { return memory_.get(); }
  void grow(std::size_t size);

  std::unique_ptr<U8[]> memory_;
  U8* at_ = nullptr;
  U8* end_ = nullptr;
};

/// Reads the form of values out of bytes, which must outlive it. It never reads past their end: too few raise
/// MalformedException.
class PIMBSR_API In {
 public:
  /// Begins at the first byte.
  explicit In(std::span<U8 const> bytes) : bytes_(bytes) {}

  /// The next `size` bytes.
  std::span<U8 const> take(std::size_t size) {
    if (size > left()) throwMalformed("truncated");
    at_ += size;
    return bytes_.subspan(at_ - size, size);
  }
  /// Number of bytes not read yet.
  std::size_t left() const { return bytes_.size() - at_; }
  /// Number of bytes read.
  std::size_t place() const { return at_; }
  /// Goes back to a former place.
  void placeIs(std::size_t place) { at_ = place; }
  /// Bytes from a former place on to the present one.
  std::string_view since(std::size_t place) const {
    return {reinterpret_cast<char const*>(bytes_.data()) + place, at_ - place};
  }
  /// Raises MalformedException unless all was read.
  void needEnd() const {
    if (left() != 0) throwMalformed("bytes after the end");
  }

 private:
  std::span<U8 const> bytes_;
  std::size_t at_ = 0;
};

/// A value type of another module that writes its own form and reads it.
template <class T>
concept OwnForm = requires(T const& value, Out& out, In& in) {
  value.zetPut(out);
  { T::zetGet(in) } -> std::same_as<T>;
};

/// The form of an unsigned number of so many bytes, and its inverse.
template <std::unsigned_integral T>
T networkOrder(T number) {
  if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) return number;
  if constexpr (sizeof(T) == 2) return __builtin_bswap16(number);
  if constexpr (sizeof(T) == 4) return __builtin_bswap32(number);
  if constexpr (sizeof(T) == 8) return __builtin_bswap64(number);
}

/// Writes a number by its width.
template <std::unsigned_integral T>
void putNumber(Out& out, T number) {
  number = networkOrder(number);
  std::memcpy(out.add(sizeof number), &number, sizeof number);
}
/// Reads what putNumber() wrote.
template <std::unsigned_integral T>
T getNumber(In& in) {
  T number;
  std::memcpy(&number, in.take(sizeof number).data(), sizeof number);
  return networkOrder(number);
}

/// A bool, a number or an enumeration.
template <class T>
concept PlainNumber = std::is_arithmetic_v<T> || std::is_enum_v<T>;

/// The number that is the form of a plain one.
template <PlainNumber T>
auto formNumber(T value) {
  if constexpr (std::same_as<T, bool>) {
    return static_cast<U8>(value);
  } else if constexpr (std::same_as<T, double>) {
    return std::bit_cast<U64>(value);
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<U32>(value);
  } else {
    return static_cast<std::make_unsigned_t<T>>(value);
  }
}

/// Writes bytes without their length.
PIMBSR_API void putRaw(Out& out, std::string_view bytes);
/// Writes the length of the bytes, which must fit 32 bits, and the bytes.
PIMBSR_API void putBytes(Out& out, std::string_view bytes);
/// Reads what putBytes() wrote; they stay where `in` has them.
PIMBSR_API std::string_view getBytes(In& in);
/// Reads a byte; one that is neither 0 nor 1 raises MalformedException.
PIMBSR_API bool getBool(In& in);

/// Writes a value of any type that an entity holds.
template <class T>
void put(Out& out, T const& value) {
  if constexpr (OwnForm<T>) {
    value.zetPut(out);
  } else if constexpr (PlainNumber<T>) {
    putNumber(out, formNumber(value));
  } else if constexpr (std::derived_from<T, String8>) {
    putBytes(out, value.view());
  } else {
    std::apply(
        [&](auto const&... field) {
          (put(out, FieldType<T, std::remove_cvref_t<decltype(field)>>(std::invoke(field.get, value))), ...);
        },
        T::zetFields());
  }
}

/// Reads a value. Raises MalformedException for bytes that are no value of the type, and RangeException with
/// the fixed text for a value out of its range; all bytes of a number out of range have been read then.
template <class T>
T get(In& in);

/// Reads a value field by field. Raises what get() of a field raises, and what its setter does.
template <class T>
T getFields(In& in) {
  T value;
  auto one = [&](auto const& field) {
    setField(value, field, get<FieldType<T, std::remove_cvref_t<decltype(field)>>>(in));
  };
  std::apply([&](auto const&... field) { (one(field), ...); }, T::zetFields());
  return value;
}

template <class T>
T get(In& in) {
  if constexpr (OwnForm<T>) {
    return T::zetGet(in);
  } else if constexpr (std::same_as<T, bool>) {
    return getBool(in);
  } else if constexpr (std::same_as<T, double>) {
    return std::bit_cast<double>(getNumber<U64>(in));
  } else if constexpr (std::integral<T>) {
    return static_cast<T>(getNumber<std::make_unsigned_t<T>>(in));
  } else if constexpr (std::is_enum_v<T>) {
    return static_cast<T>(enumInstance(enumText(T{}), getNumber<U32>(in)));
  } else if constexpr (std::derived_from<T, String8>) {
    return T(getBytes(in));
  } else {
    return getFields<T>(in);
  }
}

/// Streams the form of a value: out << priority << address.
template <class T>
Ptr<Out> operator<<(Ptr<Out> out, T const& value) {
  put(*out, value);
  return out;
}

}  // namespace Zet::NboAttrLog
