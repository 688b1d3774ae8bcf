#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "host/ConfigKey.h"
#include "host/Corrections.zet.h"
#include "model/CorrectionSwitch.h"
#include "runtime/Export.h"

namespace pimbsr::host {

/// Every correction in use, as agent, simulator and replay have it unless their operator says otherwise.
inline constexpr CorrectionSettings allCorrections = [] {
  CorrectionSettings all;
  defaultCorrectionsIs(all);
  return all;
}();

/// One correction under the name that operators use. All texts are literals.
struct Correction {
  ConfigKey const* key;            ///< its name, and what is done with it; never null
  bool CorrectionSettings::*isOn;  ///< its switch
  std::string_view engine;         ///< what the machines do by themselves
  std::string_view source;         ///< the section of RFC 5059, or the reason
};

/// All corrections, in the order in which they are documented.
PIMBSR_API std::span<Correction const> corrections();

/// The switches of one router, one for each correction; all off at first. A reference to one stays valid.
class PIMBSR_API CorrectionSwitches {
 public:
  /// All off, none has acted.
  CorrectionSwitches();
  CorrectionSwitches(CorrectionSwitches const&) = delete;
  CorrectionSwitches& operator=(CorrectionSwitches const&) = delete;

  /// Turns each on or off. The effects of a correction stay.
  void settingsAre(CorrectionSettings const& settings);
  /// The switch of one correction.
  CorrectionSwitch& of(bool CorrectionSettings::*isOn);
  /// The same, to read.
  CorrectionSwitch const& of(bool CorrectionSettings::*isOn) const;

 private:
  std::vector<CorrectionSwitch> switches_;  ///< in the order of corrections()
};

}  // namespace pimbsr::host
