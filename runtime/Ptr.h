#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "runtime/Exceptions.h"
#include "runtime/PtrInterface.h"

namespace Zet {

/// Counted pointer to an object derived from PtrInterface. Null by default; as cheap to move as a plain
/// pointer.
template <class T>
class Ptr {
 public:
  using Target = T;  ///< type of the object

  Ptr() = default;
  /// Null.
  Ptr(std::nullptr_t) {}
  /// Takes a reference; null gives a null pointer. The object ends with its last reference.
  Ptr(T* object) : object_(object) {
    if (object_ != nullptr) object_->newRef();
  }
  /// Takes a reference of its own.
  Ptr(Ptr const& other) : Ptr(other.object_) {}
  /// Takes the reference over and leaves null.
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  /// From a pointer to a derived type, or to one that isn't constant.
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other) : Ptr(other.ptr()) {}
  ~Ptr() {
    if (object_ != nullptr) object_->deleteRef();
  }

  /// The former object is released last, so that its end may look at what this pointer holds now.
  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  /// The object, without a reference; null if there is none.
  T* ptr() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  bool operator!() const { return object_ == nullptr; }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) {
    return a.ptr() == b.ptr();
  }
  friend bool operator==(Ptr const& a, T const* b) { return a.object_ == b; }
  friend bool operator==(Ptr const& a, std::nullptr_t) { return a.object_ == nullptr; }

 private:
  T* object_ = nullptr;
};

/// Makes an object and holds its first reference.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

/// A pointer parameter that must not be null: a null raises RangeException "null ValidPtr".
template <class T>
class ValidPtr : public Ptr<T> {
 public:
  /// Takes a reference.
  ValidPtr(T* object) : Ptr<T>(object) { check(); }
  /// The same of a pointer to T or to a derived type.
  template <class U>
  requires std::is_convertible_v<U*, T*> ValidPtr(Ptr<U> const& object) : Ptr<T>(object) { check(); }

 private:
  void check() const {
    if (this->ptr() == nullptr) throwRangeException("null ValidPtr");
  }
};

}  // namespace Zet

/// Hashes the address, by which pointers are compared.
template <class T>
struct std::hash<Zet::Ptr<T>> {
  std::size_t operator()(Zet::Ptr<T> const& p) const { return std::hash<T*>()(p.ptr()); }
};
