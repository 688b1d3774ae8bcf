#pragma once

#include <map>
#include <string>

#include "agent/config/ConfigText.h"
#include "host/ConfigPlace.h"

namespace pimbsr::agent {

/// Where in a file its settings are.
class ConfigPlaces {
 public:
  /// Of several calls for one place the first counts.
  void add(host::ConfigPlace const& place, TextPlace at) { places_.try_emplace(place, at); }
  /// Where a place is; where it isn't written, the item or else the part that it belongs to. The text as a
  /// whole if nothing of it is written.
  TextPlace find(host::ConfigPlace place) const;

 private:
  std::map<host::ConfigPlace, TextPlace> places_;
};

/// What a place is called in the file itself, its key with what it names there: "candidate-bsr.priority",
/// "interface.eth0.border: 239.1.0.0/16".
std::string keyOf(host::ConfigPlace const& place);

}  // namespace pimbsr::agent
