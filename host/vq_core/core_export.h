// host/vq_core/core_export.h
//
// Which symbols the shared libraries export. Everything is compiled with hidden visibility; VQ_EXPORT, on a class or
// function, makes its symbols visible to programs and to the other libraries:
//
//   class VQ_EXPORT PolyMesh final : public GeometryObject { ... };       all members that are not inline, vtable, RTTI
//   VQ_EXPORT void* core_aligned_alloc(std::size_t bytes);
//   template <class Self> class VQ_EXPORT GasStructure : public ...;      instances whose arguments are exported too,
//                                                                         enumerations among them
//
// Mark what has code in a library, or virtual functions, or is thrown, and is used outside of its library. Plain
// records and types with inline functions alone need no mark. tests/package has the list of all exported names.
#pragma once

// One macro serves all libraries: ELF does not distinguish export from import. An attribute cannot be named otherwise.
#define VQ_EXPORT __attribute__((visibility("default")))
