#include "runtime/Log.h"

#include "runtime/Context.h"

namespace Zet {

// The limit is asked before the text is made, so that a message held back costs no formatting.
void log(LogHandle const& handle, String8 const& argument) {
  if (!Context::current().takeFromLogLimit(handle)) return;
  String8 text = format(handle.format(), argument.charPtr());
  Context::current().log(handle, std::string(text.view()));
}

}  // namespace Zet
