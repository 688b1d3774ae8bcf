#include "model/SourceIntf.h"

namespace Ip::SourceIntf {

Zet::Ptr<SourceIntf> SourceIntfSm::registerSourceIntf(Lanet::IntfId const& intfId) {
  return sourceIntfIs(intfId);
}

}  // namespace Ip::SourceIntf
