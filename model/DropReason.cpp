#include "model/DropReason.h"

namespace pimbsr {

[[gnu::tls_model("initial-exec")]] static thread_local constinit DropListener* currentListener = nullptr;

DropListener::Scope::Scope(DropListener& listener) : former_(currentListener) { currentListener = &listener; }

DropListener::Scope::~Scope() { currentListener = former_; }

void reportDrop(DropReason reason) {
  if (currentListener != nullptr) currentListener->onDrop(reason);
}

}  // namespace pimbsr
