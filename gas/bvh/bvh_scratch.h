// gas/bvh/bvh_scratch.h
//
// Memory for the stack of one traversal.
#pragma once
#include "vq_ctx/ctx_shader.h"

/// Holds the thread's next free traversal scratch for its lifetime. Throws std::bad_alloc.
class BvhScratch {
 public:
  explicit BvhScratch(CtxShader& shader) : shader_(shader), scratch_(shader.new_gas_traversal()) {}
  ~BvhScratch() { shader_.free_gas_traversal(scratch_); }
  BvhScratch(const BvhScratch&) = delete;
  BvhScratch& operator=(const BvhScratch&) = delete;
  void* reserve(std::size_t bytes) { return scratch_.reserve(bytes); }

 private:
  CtxShader& shader_;
  CtxGasTraversal& scratch_;
};
