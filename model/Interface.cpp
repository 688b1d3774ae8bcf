#include "model/Interface.h"

namespace Interface {

U32 AllIntfStatusDir::mtu(Lanet::IntfId const& intfId) const {
  Zet::Ptr<IntfStatus> status = intfStatus(intfId);
  return status && status->mtu() != 0 ? status->mtu() : mtuDefault();
}

}  // namespace Interface
