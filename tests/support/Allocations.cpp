#include "tests/support/Allocations.h"

#include <cstdlib>
#include <new>

static int allocations = 0;

#if defined(__SANITIZE_ADDRESS__)

// The sanitizer keeps its own operators, which check that each delete meets its new. Of its library, not
// every compiler installs the header that declares this.
using OnAllocation = void (*)(void const volatile*, std::size_t);
using OnFree = void (*)(void const volatile*);
extern "C" int __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnFree);

[[maybe_unused]] static int const hooked = __sanitizer_install_malloc_and_free_hooks(
    [](void const volatile*, std::size_t) { ++allocations; }, [](void const volatile*) {});

#else

// What is inlined would show the compiler a free() for a new; it takes that for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

#endif

namespace test {

int allocationCount() { return allocations; }

}  // namespace test
