#include "gas/gas_nested_query.h"

#include <new>

namespace {

template <class T>
bool grow_array(CoreAlignedArray<T>& array, uint count) {
  if (array.get_count() >= count) return true;
  array = CoreAlignedArray<T>(count, 64);
  return bool(array);
}

void release_chain(GasNestedQueryCtx* first) {
  while (first != nullptr) {
    GasNestedQueryCtx* next = first->next;
    delete first;
    first = next;
  }
}

}  // namespace

bool GasRayCtx::grow(uint ray_count) { return grow_array(rays, ray_count) && grow_array(matrices, ray_count); }

bool GasRayCtx::reserve_second_matrices(uint ray_count) { return grow_array(matrices2, ray_count); }

void GasNestedScope::make_record(GasNestedQueryCtx*& slot) const {
  slot = new (std::nothrow) GasNestedQueryCtx;
  shader_.nested_release = release_chain;
}
