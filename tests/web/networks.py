"""Scenarios for the tests of the page: networks of any size, in two regions that are partitioned.

Usage: networks.py ROUTERS: prints one of so many routers."""

import random
import sys


class Network:
    """Routers r0, r1 ... of which the second half is a region of its own, with a scoped zone in it."""

    def __init__(self, routers):
        self.routers, self.half = routers, routers // 2
        self.random = random.Random(1)
        self.links = []
        for first, count in ((0, self.half), (self.half, routers - self.half)):
            self.add_region(first, count)
        self.links += [[0, self.half], [self.half // 2, self.half + self.half // 2]]
        self.zone = set(range(self.half + 3, self.half + 3 + routers // 6))

    def add_region(self, first, count):
        """A tree with some LANs in it, and some links between routers that are near in it."""
        router = first + 1
        while router < first + count:
            parent = first + (router - first - 1) // 2
            size = 3 if self.random.random() < 0.1 and router + 3 < first + count else 1
            self.links.append([parent, *range(router, router + size)])
            router += size
        for _ in range(count // 6):
            one = self.random.randrange(first, first + count - 1)
            other = min(first + count - 1, one + self.random.randrange(1, 6))
            if other != one:
                self.links.append([one, other])

    def interfaces(self):
        for number, routers in enumerate(self.links):
            inside = [router for router in routers if router in self.zone]
            for host, router in enumerate(routers, 1):
                yield f"interface r{router} l{number} 10.{number >> 8}.{number & 255}.{host}"
                if router in inside and len(inside) < len(routers):
                    yield f"border r{router} l{number} 239.1.0.0/16"

    def scenario(self):
        half, chief = self.half, self.half + 1
        lines = [f"link l{number} prefix 10.{number >> 8}.{number & 255}.0/24"
                 for number in range(len(self.links))]
        lines += [f"router r{router} loopback 172.{16 + (router >> 8)}.{router & 255}.1"
                  for router in range(self.routers)]
        lines += self.interfaces()
        lines += ["candidate-bsr r0 global priority 200", f"candidate-bsr r{chief} global priority 100",
                  f"candidate-bsr r{half + 3} 239.1.0.0/16 priority 10", "candidate-rp r2 global priority 10",
                  f"candidate-rp r{half + 2} global priority 10",
                  "at 300 partition " + " ".join(f"r{router}" for router in range(half, self.routers)),
                  "at 700 heal", "at 800 crash r0", "run until 1100", ""]
        return "\n".join(lines)


if __name__ == "__main__":
    print(Network(int(sys.argv[1])).scenario(), end="")
