#include "model/IO.h"

namespace Routing::Pim::IO {

Zet::Ptr<Packet::BootstrapMessage> MessageInfo::bootstrapMessage() const {
  return dynamic_cast<Packet::BootstrapMessage*>(message().ptr());
}

Zet::Ptr<Packet::CrpAdvMessage> MessageInfo::crpAdvMessage() const {
  return dynamic_cast<Packet::CrpAdvMessage*>(message().ptr());
}

}  // namespace Routing::Pim::IO
