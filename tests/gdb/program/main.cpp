// Values that scripts/gdb-printers.py shows; tests/gdb/gdb_test.py stops at `stop`.

#include "model/Lanet.h"
#include "model/Status.h"
#include "runtime/Collections.h"
#include "runtime/HashMap.h"

using Lanet::IpGenAddr;
using Zet::make;
using Zet::Ptr;

namespace {

struct Base : Zet::PtrInterface {};
struct Derived final : Base {};

/// A key whose hash a test chooses.
struct Chosen {
  Zet::U32 number;
  friend auto operator<=>(Chosen, Chosen) = default;
};
[[maybe_unused]] Zet::U32 rhash(Chosen) { return 1; }

struct Collections {
  Zet::ValueMap<int, IpGenAddr> empty;
  Zet::ValueMap<int, IpGenAddr> few;
  Zet::ValueMap<int, IpGenAddr> many;
  Zet::ValueMap<int, Chosen> chain;
};

[[gnu::noinline]] void stop(void const*) { asm volatile(""); }

void fill(Collections& maps) {
  maps.few.insert(make<Zet::ValueMember<int, IpGenAddr>>(IpGenAddr::parse("192.0.2.1"), 7));
  for (Zet::U32 i = 0; i < 20; ++i) {
    IpGenAddr key(Lanet::IpAddr::fromHost(0xc0000200 + i));
    maps.many.insert(make<Zet::ValueMember<int, IpGenAddr>>(key, static_cast<int>(i)));
    maps.chain.insert(make<Zet::ValueMember<int, Chosen>>(Chosen{i}, static_cast<int>(i)));
  }
}

}  // namespace

int main() {
  Ptr<Base> object = make<Derived>();
  Ptr<Base> null;
  Zet::String8 text("a \"quoted\" text");
  Zet::String8 emptyText;
  Zet::Name name("eth0");
  Lanet::IpAddr v4 = Lanet::IpAddr::parse("192.0.2.1");
  Lanet::Ip6Addr v6 = Lanet::Ip6Addr::parse("2001:db8::1");
  IpGenAddr general(v4), general6(v6), unset;
  Lanet::Prefix prefix = Lanet::Prefix::parse("239.1.0.0/16");
  Lanet::IpGenPrefix zone(prefix), noZone;
  Lanet::IntfId intf(name), noIntf;
  Collections maps;
  fill(maps);
  Zet::ValueMap<int, IpGenAddr>::Iterator walk = maps.few.iterator();
  Zet::ValidPtr<Base> valid(object);
  auto entity = Routing::Pim::Bsr::rpCandidateFactory(general);
  entity->prefixOptionsIs(zone);
  void const* const used[] = {&object,  &null,     &text,  &emptyText, &name,  &v4,   &v6,
                              &general, &general6, &unset, &prefix,    &zone,  &intf, &noZone,
                              &noIntf,  &maps,     &walk,  &valid,     &entity};
  stop(used);
  return 0;
}
