// host/vq_core/core_assert.h
//
// CORE_ASSERT states what our own code guarantees. It never handles input and its condition never has an effect:
// builds with NDEBUG do not evaluate it.
#pragma once
#include <cassert>

#ifdef NDEBUG
// sizeof keeps the condition compiled, so that a variable used only here is not "unused" in a release build.
#define CORE_ASSERT(condition) static_cast<void>(sizeof(static_cast<bool>(condition)))
#else
#define CORE_ASSERT(condition) assert(condition)
#endif
