#pragma once

#include <map>
#include <string>

#include "agent/config/Settings.zet.h"
#include "host/Configuration.h"
#include "host/Corrections.h"
#include "host/IngressSettings.h"

namespace pimbsr::agent {

using Zet::U16;
using Zet::U32;
using Zet::U64;
using Zet::U8;

/// All settings of a configuration file, with the defaults of absent keys.
struct Settings : file::Control, file::State {
  std::map<std::string, InterfaceSettings> interfaces;  ///< those that speak PIM, by name; none by default
  host::Configuration router;
  host::IngressSettings ingress = host::standardIngress;
  host::CorrectionSettings corrections = host::allCorrections;
  std::map<std::string, int> traces;  ///< level 0 to 9 by handle

  bool operator==(Settings const&) const = default;
};

}  // namespace pimbsr::agent
