#include "gas/gas_nested_query.h"

#include <new>

#include "vq_ctx/ctx_shader.h"

namespace {

template <class T>
bool grow(CoreAlignedArray<T>& array, uint count) {
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

bool GasRayCtx::reserve(uint ray_count) { return grow(rays, ray_count) && grow(matrices, ray_count); }

bool GasRayCtx::reserve_second_matrices(uint ray_count) { return grow(matrices2, ray_count); }

GasNestedScope::GasNestedScope(CtxShader& shader) : shader_(shader), outer_(shader.nested_current) {
  GasNestedQueryCtx*& slot = outer_ != nullptr ? outer_->next : shader.nested_first;
  if (slot == nullptr) {
    slot = new (std::nothrow) GasNestedQueryCtx;
    shader.nested_release = release_chain;
  }
  record_ = slot;
  if (record_ != nullptr) shader.nested_current = record_;
}

GasNestedScope::~GasNestedScope() { shader_.nested_current = outer_; }
