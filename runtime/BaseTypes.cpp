#include "runtime/Entity.h"
#include "runtime/Machine.h"
#include "runtime/NboAttrLogRow.h"
#include "runtime/Reflection.h"

namespace Zet {

// What all entities and all machines have. Their numbers are below those of any declared attribute.

ZetType const& Entity::_fwkType() {
  static AttributeRow const rows[] = {
      {.id = attrIsNondestructing,
       .name = "isNondestructing",
       .kind = AttributeKind::value,
       .type = "bool",
       .start = "false",
       .sentence = "Carried for management; nothing here reads it. A change isn't notified.",
       .read = [](PtrInterface const& o,
                  String8 const&) { return valueToStrep(static_cast<Entity const&>(o).isNondestructing()); },
       .write =
           [](PtrInterface& o, String8 const&, String8 const& text) {
             static_cast<Entity&>(o).isNondestructingIs(strepToValue<bool>(text));
           },
       .log = NboAttrLog::formOf<
           NboAttrLog::valueForm<&Entity::isNondestructing, &Entity::isNondestructingIs>>()}};
  static ZetType const type{"Zet::Entity", "entity", nullptr, rows, "What every entity has."};
  return type;
}

ZetType const& Machine::_fwkType() {
  static AttributeRow const rows[] = {
      {.id = attrZetFwkActivity,
       .name = "zetFwkActivity",
       .kind = AttributeKind::constructor,
       .type = "Zet::ActivityConfig",
       .sentence = "The activity that the machine runs on",
       .read = [](PtrInterface const& o,
                  String8 const&) { return strep(static_cast<Machine const&>(o).zetFwkActivity()); },
       .member = [](PtrInterface const& o, String8 const&) -> Ptr<PtrInterface> {
         return static_cast<Machine const&>(o).zetFwkActivity();
       }}};
  static ZetType const type{"Zet::Machine", "machine", nullptr, rows, "What every machine has."};
  return type;
}

[[maybe_unused]] static bool const areBasesKnown =
    zetTypeIs(Entity::_fwkType()) && zetTypeIs(Machine::_fwkType());

}  // namespace Zet
