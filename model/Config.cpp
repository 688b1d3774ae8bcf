#include "model/Config.h"

namespace Routing::Pim::Bsr {

Zet::Ptr<IntfConfig> IntfConfig::IntfConfigIs(Zet::Name const& name) {
  return Zet::ValidPtr<IntfConfig>(new IntfConfig(name));
}

}  // namespace Routing::Pim::Bsr
