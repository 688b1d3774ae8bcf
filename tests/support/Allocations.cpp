#include "tests/support/Allocations.h"

#include <dlfcn.h>

#include <cstdlib>
#include <new>

static int allocations = 0;
static int untilFailure = 0;  ///< allocations up to the one that fails; 0 for none

using New = void* (*)(std::size_t);

static void* allocateUnlessFailing(New allocate, std::size_t size) {
  bool const isFailing = untilFailure > 0 && --untilFailure == 0;
  void* memory = isFailing ? nullptr : allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

#if defined(__SANITIZE_ADDRESS__)

// The sanitizer keeps its own operators, which check that each delete meets its new. Of its library, not
// every compiler installs the header that declares this.
using OnAllocation = void (*)(void const volatile*, std::size_t);
using OnFree = void (*)(void const volatile*);
extern "C" int __sanitizer_install_malloc_and_free_hooks(OnAllocation, OnFree);

[[maybe_unused]] static int const hooked = __sanitizer_install_malloc_and_free_hooks(
    [](void const volatile*, std::size_t) { ++allocations; }, [](void const volatile*) {});

// The sanitizer's operators new and new[] by their names in the symbol table.
static void* allocate(std::size_t size) {
  static New const next = reinterpret_cast<New>(dlsym(RTLD_NEXT, "_Znwm"));
  return next(size);
}
static void* allocateArray(std::size_t size) {
  static New const next = reinterpret_cast<New>(dlsym(RTLD_NEXT, "_Znam"));
  return next(size);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return allocateUnlessFailing(allocateArray, size);
}

#else

static void* allocate(std::size_t size) {
  ++allocations;
  return std::malloc(size);
}
// What is inlined would show the compiler a free() for a new; it takes that for a mismatch.
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

#endif

[[gnu::noinline]] void* operator new(std::size_t size) { return allocateUnlessFailing(allocate, size); }

namespace test {

int allocationCount() { return allocations; }

FailingAllocation::FailingAllocation(int number) { untilFailure = number; }
FailingAllocation::~FailingAllocation() { untilFailure = 0; }
bool FailingAllocation::hasFailed() const { return untilFailure == 0; }

}  // namespace test
