// gas/bvh/bvh_scratch.h
//
// The memory in which one traversal keeps its stack.
#pragma once
#include "vq_ctx/ctx_shader.h"

/// The thread's next free traversal scratch, taken for as long as this lives. Throws std::bad_alloc.
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
