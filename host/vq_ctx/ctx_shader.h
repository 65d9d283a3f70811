// host/vq_ctx/ctx_shader.h
//
// The shading context: everything mutable that one render thread needs for its queries. Never shared between threads.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_types.h"

class CtxMotionBlur;
struct GasNestedQueryCtx;
struct Material;
class ShadingVariablesCtx;

/// Scratch of one traversal: bytes that grow to the largest request and stay.
class CtxGasTraversal {
 public:
  CtxGasTraversal() = default;
  ~CtxGasTraversal();
  CtxGasTraversal(const CtxGasTraversal&) = delete;
  CtxGasTraversal& operator=(const CtxGasTraversal&) = delete;

  /// At least `bytes` bytes, aligned to 64. Their contents do not survive the next call. Throws std::bad_alloc, and
  /// then has none.
  void* reserve(std::size_t bytes) { return bytes <= capacity_ ? data_ : grow(bytes); }

 private:
  void* grow(std::size_t bytes);
  void* data_ = nullptr;
  std::size_t capacity_ = 0;
};

class CtxShader {
 public:
  CtxShader() = default;
  ~CtxShader();
  CtxShader(const CtxShader&) = delete;
  CtxShader& operator=(const CtxShader&) = delete;

  /// The thread's next free scratch; nested queries hold several at once. Given back last taken, first returned.
  /// Allocates only when the nesting grows deeper than ever before; throws std::bad_alloc, and then takes none.
  CtxGasTraversal& new_gas_traversal() {
    return traversals_in_use_ < traversals_.size() ? *traversals_[traversals_in_use_++] : add_gas_traversal();
  }
  void free_gas_traversal(CtxGasTraversal& traversal);

  const CtxMotionBlur* motion_blur = nullptr;  ///< the same as the query's and the evaluation context's
  bool visibility_override = false;            ///< object flags may then force or forbid visibility
  double hit_threshold = 0.0;
  const Material* override_material = nullptr;
  const ShadingVariablesCtx* shading_variables = nullptr;

  /// The chain of nested query records, one per instancing depth, owned by the library through `nested_release`.
  GasNestedQueryCtx* nested_first = nullptr;
  GasNestedQueryCtx* nested_current = nullptr;
  void (*nested_release)(GasNestedQueryCtx*) = nullptr;

 private:
  CtxGasTraversal& add_gas_traversal();
  std::vector<std::unique_ptr<CtxGasTraversal>> traversals_;
  std::size_t traversals_in_use_ = 0;
};
