#pragma once

/// Marks a class or function that users of a shared library may name; what is not marked is hidden. A marked
/// class exports its members and its type information: mark each class that is thrown, caught, derived from
/// or cast to outside its library, and each template whose static members must be the same ones in all
/// libraries.
#define PIMBSR_API __attribute__((visibility("default")))

/// Marks what is no part of a library's interface, but is named by its tests, fuzz targets and benchmarks:
/// exported in their builds, hidden where the library is installed from.
#ifdef PIMBSR_EXPORT_ALL
#define PIMBSR_INTERNAL PIMBSR_API
#else
#define PIMBSR_INTERNAL
#endif
