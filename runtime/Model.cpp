#include "runtime/Model.h"

namespace Zet {

void throwNullReactor(char const* type, char const* attribute) {
  std::string a = attribute;
  throwRangeException("null _" + a + " parameter to mutator for " + type + "::" + a + " not allowed\"");
}

}  // namespace Zet
