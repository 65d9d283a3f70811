// gas/bvh/gas_bvh.h
//
// The tree object that each structure embeds: it owns the arrays, bvh_builder.h fills them.
//
//   root -> aligned[ ]   --.
//           quantized[ ] --+--> leaves: ranges of order[ ] --> item indices --> the owner's items
//           oriented[ ]  --'
//
// With one item a leaf and the order array included, a scanned mesh takes 52 bytes a triangle at 70 thousand triangles,
// 30 at 870 thousand and a terrain 24 at 8 million: only nodes from the tenth level on are quantized, so small trees
// have few of them. vqgas info prints the bytes by array.
#pragma once
#include "gas/bvh/bvh_layout.h"
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_bbox.h"

/// Node types of a tree of a given width. Only width 4 exists.
template <uint width>
struct BvhNodes;

template <>
struct BvhNodes<4> {
  using Aligned = BvhNodeAligned;
  using Quantized = BvhNodeQuantized;
  using Oriented = BvhNodeOriented;
};

class AppProgressBar;
class BvhOrderWork;
struct GasBvhSplitCtx;

/// Build parameters: four 32-bit words.
struct BvhBuildParams {
  float item_cost = 1.0f;  ///< cost of testing one item, in node tests; the weight of every item without item_weights
  u32 leaf_threshold = 1;  ///< a set of at most this many items (and of at most max_leaf) becomes a leaf
  u32 max_leaf = 1;        ///< clamped to 1..255
  u32 quantization_depth = 10;  ///< nodes on this level and below, counting the root as 1, may be quantized
};
static_assert(sizeof(BvhBuildParams) == 16);

template <uint width>
class VQ_EXPORT GasBvh {
 public:
  template <class Split>
  class BuildTask;

  using Aligned = typename BvhNodes<width>::Aligned;
  using Quantized = typename BvhNodes<width>::Quantized;
  using Oriented = typename BvhNodes<width>::Oriented;

  GasBvh() = default;
  /// A copy owns deep copies of all arrays, also when the source's are borrowed.
  GasBvh(const GasBvh& other);
  GasBvh& operator=(const GasBvh& other);
  GasBvh(GasBvh&& other) noexcept;
  GasBvh& operator=(GasBvh&& other) noexcept;
  ~GasBvh();

  /// Builds or rebuilds the tree over `count` items whose boxes, weights and spaces `source` holds; defined in
  /// bvh_builder.cpp for each strategy. A frozen tree stays as it is.
  ///
  /// @param source      item_boxes (and, as the strategy needs them, item_spaces and item_weights), indexed by item;
  ///                    the rest is filled in here. Boxes may be infinite; they must not be inverted or NaN.
  /// @param item_order  [count] the items to build over, or null for 0, 1, 2, ...; each below `count` when there are
  ///                    item_weights, of which the first `count` are kept
  /// @param progress    gets the tasks "Split items" (0.9) and "Finalize" (0.1); the build runs on the threads of its
  ///                    application. Null: no progress, and everything runs on the calling thread
  /// @param order_work  started in "Finalize", if the build runs on several threads; may be null
  /// Throws std::bad_alloc, and AppStopped when the application of `source` or of `progress` requests a stop; the tree
  /// is then empty. Same input, same arrays, for any number of threads. One call per object at a time, and no query
  /// meanwhile. Cost: O(n log n) time; scratch of one node pool per thread.
  template <class Split>
  void build(const GasBvhSplitCtx& source, const uint* item_order, uint count, const BvhBuildParams& params,
             AppProgressBar* progress, BvhOrderWork* order_work = nullptr);

  bool is_empty() const { return item_count == 0; }
  /// Child `lane`, below node.get_count(), of an inner node.
  BvhChildRef get_child(BvhChildRef node, uint lane) const {
    switch (node.get_kind()) {
      case BvhKind::aligned:
        return aligned[node.index].child[lane];
      case BvhKind::quantized:
        return quantized[node.index].get_child(lane);
      default:
        return oriented[node.index].child[lane];
    }
  }
  /// Frees the arrays (borrowed ones are not freed) and makes the tree empty.
  void clear();
  /// Bytes of all arrays, without the object itself.
  u64 get_array_bytes() const;
  /// Allocates the order array, and item_weight_bits if requested; contents undefined. False when there is no memory.
  bool allocate_items(uint count, bool with_item_weight_bits);
  /// Frees item_weight_bits. Only the build and the weights of clusters read it.
  void drop_item_weight_bits();
  /// Allocates the node arrays. False when there is no memory.
  bool allocate_nodes(uint aligned_nodes, uint quantized_nodes, uint oriented_nodes);

  Aligned* aligned = nullptr;       ///< aligned to 64
  Quantized* quantized = nullptr;   ///< aligned to 16
  Oriented* oriented = nullptr;     ///< aligned to 32
  u32* order = nullptr;             ///< [item_count] item indices; a leaf is a range of it
  u32* item_weight_bits = nullptr;  ///< [item_count] weights as float bits, indexed by item, or null
  u32 item_count = 0;
  float uniform_item_weight = 0.0f;  ///< weight of every item when item_weight_bits is null
  u32 aligned_count = 0;
  u32 quantized_count = 0;
  u32 oriented_count = 0;
  u32 max_depth = 0;           ///< inner nodes on the longest path
  u32 quantization_depth = 0;  ///< BvhBuildParams::quantization_depth of the build
  u8 frozen = 0;               ///< set: a build leaves the tree as it is, and the arrays are borrowed, never freed
  BvhChildRef root;
  GMathBbox3<float> box;  ///< of all items; inverted when there are none

 private:
  void swap(GasBvh& other) noexcept;
  bool copied_ = false;  ///< this object owns the arrays although `frozen` is set: it is a copy of a frozen tree
};

extern template class GasBvh<4>;
