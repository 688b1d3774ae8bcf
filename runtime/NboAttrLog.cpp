#include "runtime/NboAttrLog.h"

#include <algorithm>

namespace Zet::NboAttrLog {

void throwMalformed(std::string_view text) { throw MalformedException(text); }

void Out::grow(std::size_t size) {
  std::size_t const used = this->size();
  std::size_t const capacity = std::max<std::size_t>({256, 2 * used, used + size});
  std::unique_ptr<U8[]> memory(new U8[capacity]);
  std::copy_n(start(), used, memory.get());
  memory_ = std::move(memory);
  at_ = start() + used;
  end_ = start() + capacity;
}

void Out::overwrite(std::size_t place, U32 number) {
  number = networkOrder(number);
  std::memcpy(start() + place, &number, sizeof number);
}

void putRaw(Out& out, std::string_view bytes) {
  std::copy(bytes.begin(), bytes.end(), out.add(bytes.size()));
}

void putBytes(Out& out, std::string_view bytes) {
  putNumber(out, static_cast<U32>(bytes.size()));
  putRaw(out, bytes);
}

std::string_view getBytes(In& in) {
  auto const bytes = in.take(getNumber<U32>(in));
  return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

bool getBool(In& in) {
  U8 const number = getNumber<U8>(in);
  if (number > 1) throwMalformed("no bool");
  return number == 1;
}

}  // namespace Zet::NboAttrLog
