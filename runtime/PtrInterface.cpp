#include "runtime/PtrInterface.h"

namespace Zet {

void PtrInterface::handleZeroRef() {
  mark(heldBit, true);
  delete this;
}

}  // namespace Zet
