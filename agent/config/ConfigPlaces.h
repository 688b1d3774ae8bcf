#pragma once

#include <map>
#include <string>

#include "agent/config/ConfigText.h"
#include "host/ConfigPlace.h"

namespace pimbsr::agent {

/// The places of settings in a file.
class ConfigPlaces {
 public:
  /// The first call for a place counts.
  void add(host::ConfigPlace const& place, TextPlace at) { places_.try_emplace(place, at); }
  /// Where a setting is; if it isn't in the file, its item or else its part; the text as a whole without
  /// these.
  TextPlace find(host::ConfigPlace place) const;

 private:
  std::map<host::ConfigPlace, TextPlace> places_;
};

/// The name of a setting in the file, its key with the item: "candidate-bsr.priority",
/// "interface.eth0.border: 239.1.0.0/16".
std::string keyOf(host::ConfigPlace const& place);

}  // namespace pimbsr::agent
