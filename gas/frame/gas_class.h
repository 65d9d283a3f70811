// gas/frame/gas_class.h
//
// Class records of the library's classes for the host: name, record of the base class, and a destructor entry that is
// the same for all.
#pragma once
#include "vq_core/core_class_info.h"

/// The destructor entry of every class record of this library. Destroys and frees the object, or with `is_array` each
/// element of the array, last first, and then its block; a null object does nothing. Always true.
bool ___class_destructor__(void* object, const bool& is_array);

/// Makes the record of one class; called once per class, from a function-local static of its class_info().
const CoreClassInfo& gas_new_class(const char* name, const CoreClassInfo& base);
