"""How declared names and types are written in C++."""

commas = ", ".join


def upper(name):
    return name[0].upper() + name[1:]


def cpp(t):
    """A declared type as it is stored."""
    name = t.name + (" const" if t.const else "")
    return f"{name}*" if t.raw else f"Zet::Ptr<{name}>" if t.pointer else name


def by_ref(t):
    return cpp(t) if t.raw else f"{cpp(t)} const&"
