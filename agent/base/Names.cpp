#include "agent/base/Names.h"

namespace pimbsr::agent {

using host::MessageKind;

std::string_view keyOf(MessageKind kind) {
  switch (kind) {
    case MessageKind::bootstrap:
      return "bsm";
    case MessageKind::crpAdv:
      return "crpAdv";
    case MessageKind::hello:
      return "hello";
    case MessageKind::other:
      return "other";
    case MessageKind::malformed:
      return "malformed";
    case MessageKind::unread:
      return "unread";
    default:
      return "notPim";
  }
}

}  // namespace pimbsr::agent
