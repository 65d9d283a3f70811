// host/vq_ctx/ctx_shader.h
//
// The shading context: the mutable state of one render thread for its queries. Not shared between threads.
#pragma once
#include <memory>
#include <vector>

#include "vq_core/core_assert.h"
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class CtxMotionBlur;
struct GasNestedQueryCtx;
struct Material;
class ShadingVariablesCtx;

/// Scratch memory of one traversal: grows to the largest request and is kept.
class VQ_EXPORT CtxGasTraversal {
 public:
  CtxGasTraversal() = default;
  ~CtxGasTraversal();
  CtxGasTraversal(const CtxGasTraversal&) = delete;
  CtxGasTraversal& operator=(const CtxGasTraversal&) = delete;

  /// At least `bytes` bytes, aligned to 64. Their contents do not survive the next call. Throws std::bad_alloc; the
  /// scratch is then empty.
  void* reserve(std::size_t bytes) { return bytes <= capacity_ ? data_ : grow(bytes); }

 private:
  void* grow(std::size_t bytes);
  void* data_ = nullptr;
  std::size_t capacity_ = 0;
};

class VQ_EXPORT CtxShader {
 public:
  CtxShader() = default;
  ~CtxShader();
  CtxShader(const CtxShader&) = delete;
  CtxShader& operator=(const CtxShader&) = delete;

  /// The thread's next free scratch; nested queries use several at once. To be freed in reverse order. Allocates only
  /// when queries nest deeper than ever before; throws std::bad_alloc, and then nothing is taken.
  CtxGasTraversal& new_gas_traversal() {
    return traversals_in_use_ < traversals_.size() ? *traversals_[traversals_in_use_++] : add_gas_traversal();
  }
  void free_gas_traversal([[maybe_unused]] CtxGasTraversal& traversal) {
    CORE_ASSERT(traversals_in_use_ > 0 && traversals_[traversals_in_use_ - 1].get() == &traversal);
    --traversals_in_use_;
  }

  const CtxMotionBlur* motion_blur = nullptr;              ///< the same as the query's and the evaluation context's
  bool visibility_override = false;                        ///< apply forced_hidden and forced_visible of objects
  double hit_threshold = 0.0;                              ///< UV lookups: least coverage that is not a hit
  const Material* override_material = nullptr;             ///< replaces the materials of all groups; or null
  const ShadingVariablesCtx* shading_variables = nullptr;  ///< for use by the host

  /// The chain of nested query records, one per instancing depth, owned by the library through `nested_release`.
  GasNestedQueryCtx* nested_first = nullptr;
  GasNestedQueryCtx* nested_current = nullptr;
  void (*nested_release)(GasNestedQueryCtx*) = nullptr;

 private:
  CtxGasTraversal& add_gas_traversal();
  std::vector<std::unique_ptr<CtxGasTraversal>> traversals_;
  std::size_t traversals_in_use_ = 0;
};
