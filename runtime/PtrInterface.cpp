#include "runtime/PtrInterface.h"

namespace Zet {

void PtrInterface::handleZeroRef() {
  // Destructors of members may take and drop references to this object; the held bit keeps them from deleting
  // it again.
  mark(heldBit, true);
  delete this;
}

}  // namespace Zet
