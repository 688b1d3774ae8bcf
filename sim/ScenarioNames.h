#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/Lanet.h"
#include "sim/EventQueue.h"

namespace pimbsr::sim {

/// Things by number and by name. A name is found in O(log n), however many there are.
template <class Named>
class NameTable {
 public:
  std::size_t size() const { return all_.size(); }
  Named& operator[](U32 number) { return all_[number]; }
  Named const& operator[](U32 number) const { return all_[number]; }
  auto begin() const { return all_.begin(); }
  auto end() const { return all_.end(); }

  /// The number of what has the name; none if nothing has.
  std::optional<U32> find(std::string_view name) const {
    auto at = numbers_.find(name);
    return at == numbers_.end() ? std::nullopt : std::optional(at->second);
  }
  /// Adds what has a name of its own; its number is the size before.
  void add(Named named) {
    numbers_.emplace(named.name, static_cast<U32>(all_.size()));
    all_.push_back(std::move(named));
  }

 private:
  std::vector<Named> all_;
  std::map<std::string, U32, std::less<>> numbers_;
};

/// What the statements read so far have made, by which the next ones are checked.
struct ScenarioNames {
  struct Link {
    std::string name;
    Lanet::Prefix prefix;
  };
  struct Interface {
    std::string name;
    U32 link = 0;
    Lanet::IpGenAddr address;
  };
  struct Router {
    std::string name;
    Lanet::IpGenAddr loopback;
    std::vector<Interface> interfaces;
  };

  NameTable<Link> links;
  NameTable<Router> routers;
  std::map<Lanet::IpGenAddr, U32> owners;  ///< number of the router that has an address
  double now = 0;                          ///< seconds that the scenario has run by then
};

}  // namespace pimbsr::sim
