#pragma once

#include <map>

#include "model/Lanet.h"
#include "runtime/Ptr.h"

/// Route tables as their readers see them.
namespace Slosh {

/// Base of a table: every operation that a table doesn't provide raises InternalException with its own name.
class PIMBSR_API SloshBaseDummy : public Zet::PtrInterface {
 public:
  virtual void type() const;            ///< query for the kind of table; raises
  virtual void capacity() const;        ///< query for the capacity; raises
  virtual void maxSize() const;         ///< query for the maximum size; raises
  virtual void members() const;         ///< query for the members; raises
  virtual void first() const;           ///< query for the first entry; raises
  virtual void next() const;            ///< query for the entry after another one; raises
  virtual void lookup() const;          ///< query for an entry, without a key here; raises
  virtual void cleanup();               ///< request to clean up; raises
  virtual void validate();              ///< request to check the table; raises
  virtual void validateFiles();         ///< request to check the files of the table; raises
  virtual void detach();                ///< request to detach from the table; raises
  virtual void initialize();            ///< request to set the table up; raises
  virtual void mountStatus() const;     ///< query whether the table is mounted; raises
  virtual void readerCounters() const;  ///< query for the counters of readers; raises
};

/// What a read-only table answers to an attempt to change it, and to the queries that it doesn't serve. Each
/// raises InternalException.
class PIMBSR_API ReadOnlySloshTable : public SloshBaseDummy {
 public:
  void cleanup() override;                   ///< raises: it would change the table
  void validate() override;                  ///< raises: it is for the writer
  void validateFiles() override;             ///< raises: it is for the writer
  [[noreturn]] void writerCounters() const;  ///< raises: no writer is counted
  void readerCounters() const override;      ///< raises: no reader is counted

 protected:
  [[noreturn]] static void throwOnWrite();   ///< for the table's own write(), which knows the types
  [[noreturn]] static void throwOnRemove();  ///< for the table's own remove(), which knows the types
};

/// A table as its writer keeps it; readers share it by reference.
template <class V, class K>
class SloshTable : public Zet::PtrInterface {
 public:
  std::map<K, V> entries;  ///< value by key; the writer changes it directly
};

/// A table that is only read. A key without an entry reads as the default value.
template <class V, class K>
class SloshMap : public ReadOnlySloshTable {
 public:
  /// Reads this table as it is at each lookup; RangeException for null.
  explicit SloshMap(Zet::ValidPtr<SloshTable<V, K> const> const& table) : table_(table) {}

  /// Without a key it raises, as in the base.
  using SloshBaseDummy::lookup;
  /// The value of exactly this key; V() where the table has none.
  V lookup(K const& key) const {
    auto at = table_->entries.find(key);
    return at == table_->entries.end() ? V() : at->second;
  }
  /// Raises InternalException: the table is read-only.
  [[noreturn]] void write(K const&, V const&) { throwOnWrite(); }
  /// Raises InternalException: the table is read-only.
  [[noreturn]] void remove(K const&) { throwOnRemove(); }

 private:
  Zet::Ptr<SloshTable<V, K> const> table_;
};

namespace Fib {

/// What a route leads to.
enum class RouteType : U32 {
  unset = 0,      ///< leads nowhere
  local = 1,      ///< this system itself
  connected = 2,  ///< a network on an interface
  remote = 3      ///< a next hop
};

/// One unicast route. The default value means no route.
struct Route {
  RouteType type = RouteType::unset;  ///< what it leads to
  Lanet::IntfId intfId;               ///< interface that it leads out of
  Lanet::IpGenAddr nextHop;           ///< unset for local and connected routes
  U32 metric = 0;                     ///< lower wins

  bool operator==(Route const&) const = default;
};

}  // namespace Fib
}  // namespace Slosh
