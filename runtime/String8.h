#pragma once

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <iterator>
#include <string_view>
#include <utility>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

/// Immutable byte string whose bytes are shared by reference.
///
/// A copy costs one atomic increment; the count is atomic, so a copy may be released on another thread. The
/// empty string holds no allocation. Bytes may be any, zeros included.
template <class C>
class PIMBSR_API StringN {
  static_assert(sizeof(C) == 1, "a string of bytes");

 public:
  /// A position in a string, good while the string lives. It also knows its distance from the start.
  class IteratorConst {
   public:
    using iterator_category = std::forward_iterator_tag;  ///< moves forward alone
    using value_type = C;                                 ///< a byte
    using difference_type = std::ptrdiff_t;               ///< bytes between positions
    using pointer = C const*;                             ///< to a byte
    using reference = C const&;                           ///< to a byte

    IteratorConst() = default;
    C const& operator*() const { return *at_; }
    IteratorConst& operator++() {
      ++at_;
      return *this;
    }
    IteratorConst operator++(int) {
      IteratorConst before = *this;
      ++at_;
      return before;
    }
    friend bool operator==(IteratorConst a, IteratorConst b) { return a.at_ == b.at_; }
    /// Bytes from `b` to `a`, which are positions in one string.
    friend std::ptrdiff_t operator-(IteratorConst a, IteratorConst b) { return a.at_ - b.at_; }
    /// Bytes before this position; 0 on the first.
    std::ptrdiff_t column() const { return at_ - start_; }

   private:
    friend class StringN;
    IteratorConst(C const* start, C const* at) : start_(start), at_(at) {}

    C const* start_ = nullptr;
    C const* at_ = nullptr;
  };

  StringN() = default;
  /// Copies up to the terminating zero; null gives the empty string.
  StringN(char const* text) : StringN(viewOf(text)) {}
  /// Copies the bytes; more than 4294967295 of them raise RangeException.
  StringN(std::string_view text);
  /// Shares the bytes.
  StringN(StringN const& other) noexcept : data_(other.data_) { hold(); }
  /// Takes the bytes over and leaves the empty string.
  StringN(StringN&& other) noexcept : data_(std::exchange(other.data_, nullptr)) {}
  StringN& operator=(StringN other) noexcept {
    std::swap(data_, other.data_);
    return *this;
  }
  ~StringN() { release(); }

  /// Number of bytes.
  U32 length() const { return data_ == nullptr ? 0 : data_->length; }
  /// Whether it has no bytes.
  bool empty() const { return data_ == nullptr; }
  /// The bytes, followed by a zero; never null, good while this string or a copy lives.
  char const* charPtr() const { return data_ == nullptr ? "" : bytes(data_); }
  /// The bytes, zeros included; good while this string or a copy lives.
  std::string_view view() const { return {charPtr(), length()}; }
  /// The position of the first byte; end() for the empty string.
  IteratorConst begin() const { return {start(), start()}; }
  /// The position after the last byte.
  IteratorConst end() const { return {start(), start() + length()}; }

  StringN& operator+=(StringN const& tail) { return *this = *this + tail; }
  /// A 32-bit hash that depends on the bytes alone.
  U32 hash() const;

  friend StringN operator+(StringN const& a, StringN const& b) { return concat(a, b); }
  friend bool operator==(StringN const& a, StringN const& b) {
    return a.data_ == b.data_ || a.view() == b.view();
  }
  friend bool operator==(StringN const& a, char const* b) { return a.view() == viewOf(b); }
  /// Order of unsigned bytes; a prefix precedes the strings that it begins.
  friend bool operator<(StringN const& a, StringN const& b) { return a.view() < b.view(); }

 private:
  struct Data {
    std::atomic<U32> count;
    U32 length;
  };

  static std::string_view viewOf(char const* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
  }
  static Data* newData(std::size_t length);
  static StringN concat(StringN const& a, StringN const& b);
  static char* bytes(Data* data) { return reinterpret_cast<char*>(data + 1); }
  static void destroy(Data* data);
  C const* start() const { return reinterpret_cast<C const*>(charPtr()); }
  void hold() const {
    if (data_ != nullptr) data_->count.fetch_add(1, std::memory_order_relaxed);
  }
  void release() const {
    if (data_ != nullptr && data_->count.fetch_sub(1, std::memory_order_acq_rel) == 1) destroy(data_);
  }

  Data* data_ = nullptr;
};

extern template class StringN<unsigned char>;
/// The string of the engine, whose bytes a walk gives as unsigned numbers.
using String8 = StringN<unsigned char>;

/// A string used as the name of an entity.
class Name : public String8 {
 public:
  using String8::String8;
  Name() = default;
  /// Shares the bytes of a string; any will do.
  Name(String8 const& text) : String8(text) {}
};

/// What printf would print, at any length; raises RangeException if the format cannot be followed.
PIMBSR_API String8 format(char const* fmt, ...) __attribute__((format(printf, 1, 2)));

/// Writes the bytes as they are.
PIMBSR_API std::ostream& operator<<(std::ostream& out, String8 const& text);

}  // namespace Zet
