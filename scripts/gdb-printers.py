"""Printers for gdb: `source scripts/gdb-printers.py` shows counted pointers, strings, collections, addresses,
prefixes and interfaces by value. They read memory, but for the first member of a chain that has an index: the
process itself is asked for that."""

import ipaddress

import gdb
import gdb.printing


def network(value):
    """The text of an address, a prefix or an interface."""
    return PRINTERS[value.type.strip_typedefs().unqualified().name](value).to_string()


def bytes_of(array):
    return bytes(int(array["_M_elems"][i]) for i in range(16))


class PtrPrinter:
    """The object, by its dynamic type."""

    def __init__(self, value):
        self.object = value["object_"]

    def to_string(self):
        if not self.object:
            return "null"
        return f"({self.object.dynamic_type}) {int(self.object):#x}"


class StringPrinter:
    def __init__(self, value):
        self.data = value["data_"]

    def to_string(self):
        if not self.data:
            return ""
        text = (self.data + 1).cast(gdb.lookup_type("unsigned char").pointer())
        return text.lazy_string(length=int(self.data["length"]))

    def display_hint(self):
        return "string"


class HashMapPrinter:
    """Members by key, in the order of a walk."""

    def __init__(self, value):
        self.value = value
        self.member = value.type.strip_typedefs().template_argument(0)

    def to_string(self):
        return f"{int(self.value['size_'])} members"

    def children(self):
        for number, at in enumerate(self.members()):
            object_ = at.dereference()
            fields = [field.name for field in object_.type.fields()]
            yield f"{number} key", object_["zetKey_"]
            yield f"{number} value", object_["value"] if "value" in fields else at

    def display_hint(self):
        return "map"

    def members(self):
        bits = int(self.value["bits_"])
        for number in range(1 << bits):
            slot = int(self.value["many_"][number] if bits else self.value["one_"])
            at = self.head(slot)
            while at:
                yield at
                at = at.dereference()["zetNext_"].cast(self.member.pointer())

    def head(self, slot):
        """The first member of a bucket."""
        if slot & 1:
            slot = int(gdb.parse_and_eval(f"((Zet::ChainIndex*){slot - 1})->first()"))
        return gdb.Value(slot).cast(self.member.pointer())


class IpAddrPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        order = "big" if "big endian" in gdb.execute("show endian", to_string=True) else "little"
        return str(ipaddress.IPv4Address(int(self.value["net_"]).to_bytes(4, order)))


class Ip6AddrPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return str(ipaddress.IPv6Address(bytes_of(self.value["bytes_"])))


class IpGenAddrPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        octets = bytes_of(self.value["bytes_"])
        families = {1: ipaddress.IPv4Address(octets[:4]), 2: ipaddress.IPv6Address(octets)}
        return str(families.get(int(self.value["family_"]), "unset"))


class PrefixPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        address = network(self.value["address_"])
        return address if address == "unset" else f"{address}/{int(self.value['length_'])}"


class IntfIdPrinter:
    def __init__(self, value):
        self.name = StringPrinter(value["name_"])

    def to_string(self):
        return self.name.to_string() or "unset"


PRINTERS = {"Lanet::IpAddr": IpAddrPrinter, "Lanet::Ip6Addr": Ip6AddrPrinter,
            "Lanet::IpGenAddr": IpGenAddrPrinter, "Lanet::Prefix": PrefixPrinter,
            "Lanet::IpGenPrefix": PrefixPrinter, "Lanet::IntfId": IntfIdPrinter,
            "Zet::StringN<unsigned char>": StringPrinter, "Zet::Name": StringPrinter}
TEMPLATES = {"Zet::Ptr": PtrPrinter, "Zet::ValidPtr": PtrPrinter, "Zet::HashMap": HashMapPrinter}


def lookup(value):
    """The printer of a value, or None."""
    kind = value.type.strip_typedefs().unqualified()
    if kind.code != gdb.TYPE_CODE_STRUCT or not kind.name:
        return None
    printer = PRINTERS.get(kind.name)
    if kind.name.endswith(">"):  # a class within a template, such as an iterator, has a name after the `>`
        printer = printer or TEMPLATES.get(kind.name.partition("<")[0])
    return printer(value) if printer else None


gdb.pretty_printers.append(lookup)
