#include "vq_ctx/ctx_shader.h"

#include <new>

#include "vq_core/core_memory.h"

CtxGasTraversal::~CtxGasTraversal() { core_aligned_free(data_); }

void* CtxGasTraversal::grow(std::size_t bytes) {
  core_aligned_free(data_);
  capacity_ = 0;
  data_ = core_aligned_alloc(bytes, 64);  // no more, so that a sanitizer sees what goes beyond it
  if (data_ == nullptr) throw std::bad_alloc();
  capacity_ = bytes;
  return data_;
}

CtxShader::~CtxShader() {
  if (nested_release != nullptr) nested_release(nested_first);
}

CtxGasTraversal& CtxShader::add_gas_traversal() {
  traversals_.push_back(std::make_unique<CtxGasTraversal>());
  return *traversals_[traversals_in_use_++];
}
