#include "gas/frame/gas_class.h"

#include "vq_core/core_base_type.h"

// The host's array header holds count and stride of an array of any class, so that one function destroys them all.
bool ___class_destructor__(void* object, const bool& is_array) { return core_destroy_object(object, is_array); }

const CoreClassInfo& gas_new_class(const char* name, const CoreClassInfo& base) {
  return CoreClassInfo::new_class(name, ___class_destructor__, base, nullptr);
}
