#include "agent/base/FileDescriptor.h"

#include <unistd.h>

namespace pimbsr::agent {

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) close(fd_);
}

}  // namespace pimbsr::agent
