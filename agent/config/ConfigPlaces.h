#pragma once

#include <map>
#include <string>
#include <string_view>

#include "agent/config/ConfigText.h"

namespace pimbsr::agent {

/// Where in a file stands what its settings speak of. The keys are places as in host::ConfigFault, and such
/// as "interface eth0" and "limits, rps".
class ConfigPlaces {
 public:
  /// Of several calls for one place the first counts.
  void add(std::string const& place, TextPlace at) { places_.try_emplace(place, at); }
  /// Where it stands; where it isn't written, what it is a part of: the place up to the last comma, and so
  /// on. The text as a whole if nothing of it is written.
  TextPlace find(std::string_view place) const;

 private:
  std::map<std::string, TextPlace, std::less<>> places_;
};

/// What a place is called in the file itself, its key with what it names there: "candidate-bsr.priority",
/// "interface.eth0.border: 239.1.0.0/16".
std::string keyOf(std::string_view place);

}  // namespace pimbsr::agent
