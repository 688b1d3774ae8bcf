#include "tests/support/Mirror.h"

#include <stdexcept>

namespace test {

namespace {

/// Notes each member of a collection.
class Lines : public Zet::MemberVisitor {
 public:
  explicit Lines(std::string const& indent) : indent_(indent) {}
  void onMember(Zet::String8 const& key, Zet::String8 const& value,
                Zet::PtrInterface const* object) override {
    text += indent_ + std::string(key.view()) + ": " +
            (object != nullptr ? "\n" + logged(*object, indent_ + "  ") : std::string(value.view()) + "\n");
  }
  std::string text;

 private:
  std::string indent_;
};

std::string textOf(Zet::PtrInterface const& object, Zet::AttributeRow const& row, std::string const& indent) {
  if (row.walk != nullptr) {
    Lines lines(indent + "  ");
    row.walk(object, lines);
    return "\n" + lines.text;
  }
  if (row.member != nullptr) {
    auto member = row.member(object, "");
    return member ? "\n" + logged(*member, indent + "  ") : std::string("none\n");
  }
  return std::string(row.read(object, "").view()) + "\n";
}

}  // namespace

std::string logged(Zet::PtrInterface const& object, std::string const& indent) {
  std::string text;
  Zet::NboAttrLog::forLogged(object.fwkType(), [&](Zet::AttributeRow const& row) {
    text += indent + row.name + "=" + textOf(object, row, indent);
  });
  return text;
}

void Tape::send(std::span<Zet::U8 const> given) {
  ++sends;
  if (fails) throw std::runtime_error("the channel is closed");
  bytes.insert(bytes.end(), given.begin(), given.end());
  if (onSend) onSend();
}

}  // namespace test
