#pragma once

#include <map>

#include "model/Lanet.h"
#include "runtime/Ptr.h"

/// Route tables as their readers see them.
namespace Slosh {

/// Base of a table: every operation that a table doesn't provide raises InternalException with its own name.
class PIMBSR_API SloshBaseDummy : public Zet::PtrInterface {
 public:
  virtual void type() const;
  virtual void capacity() const;
  virtual void maxSize() const;
  virtual void members() const;
  virtual void first() const;
  virtual void next() const;
  virtual void lookup() const;
  virtual void cleanup();
  virtual void validate();
  virtual void validateFiles();
  virtual void detach();
  virtual void initialize();
  virtual void mountStatus() const;
  virtual void readerCounters() const;
};

/// What a read-only table answers to an attempt to change it, and to the queries that it doesn't serve. Each
/// raises InternalException.
class PIMBSR_API ReadOnlySloshTable : public SloshBaseDummy {
 public:
  void cleanup() override;
  void validate() override;
  void validateFiles() override;
  [[noreturn]] void writerCounters() const;
  void readerCounters() const override;

 protected:
  [[noreturn]] static void throwOnWrite();
  [[noreturn]] static void throwOnRemove();
};

/// A table as its writer keeps it; readers share it by reference.
template <class V, class K>
class SloshTable : public Zet::PtrInterface {
 public:
  std::map<K, V> entries;
};

/// A table that is only read. A key without an entry reads as the default value.
template <class V, class K>
class SloshMap : public ReadOnlySloshTable {
 public:
  explicit SloshMap(Zet::ValidPtr<SloshTable<V, K> const> const& table) : table_(table) {}

  using SloshBaseDummy::lookup;
  V lookup(K const& key) const {
    auto at = table_->entries.find(key);
    return at == table_->entries.end() ? V() : at->second;
  }
  /// Raises InternalException: the table is read-only.
  [[noreturn]] void write(K const&, V const&) { throwOnWrite(); }
  [[noreturn]] void remove(K const&) { throwOnRemove(); }

 private:
  Zet::Ptr<SloshTable<V, K> const> table_;
};

namespace Fib {

/// What a route leads to.
enum class RouteType : U32 {
  unset = 0,
  local = 1,      ///< this system itself
  connected = 2,  ///< a network on an interface
  remote = 3      ///< a next hop
};

/// One unicast route. The default value means no route.
struct Route {
  RouteType type = RouteType::unset;
  Lanet::IntfId intfId;      ///< interface that it leads out of
  Lanet::IpGenAddr nextHop;  ///< unset for local and connected routes
  U32 metric = 0;            ///< lower wins

  bool operator==(Route const&) const = default;
};

}  // namespace Fib
}  // namespace Slosh
