// gas/bvh/bvh_layout.h
//
// Memory layout of the four-wide tree. A tree is one flat array per node kind and one array of item
// indices; every link is a BvhChildRef. Nothing here owns memory or depends on the kind of item.
//
//   BvhNodeAligned    128 B, array aligned to 64   six float planes x 4 lanes, then 4 references
//   BvhNodeQuantized   48 B, array aligned to 16   the planes in 8 bits, relative to the parent's lane box
//   BvhNodeOriented   224 B, array aligned to 32   one affine frame per lane, then 4 references
//
// Children fill the first lanes. An unused lane is an inverted box (min > max) with reference 0: no ray hits it.
// Written by bvh_builder.h, refitted by gas_bvh_motion.h, traversed by bvh_kernel.h. Sources: Dammertz, Hanika,
// Keller 2008 (four-wide); Ylitie, Karras, Laine 2017 (8-bit boxes); Woop et al. 2014 (oriented boxes).
#pragma once
#include <cfloat>
#include <cstddef>

#include "vq_core/core_types.h"
#include "vq_gmath/gmath_bbox.h"

enum class BvhKind { aligned, quantized, oriented, leaf };

/// Reference to one child: a node of any kind, or a leaf. All bits zero: an empty slot.
struct BvhChildRef {
  u32 index = 0;  ///< into the array of its kind; of a leaf, first position in the item order
  u32 word = 0;   ///< bits 0-7 count of children or items, then one bit per kind (below)

  static constexpr u32 count_mask = 0xff, leaf_bit = 0x100, quantized_bit = 0x200, oriented_bit = 0x400;

  constexpr bool operator==(const BvhChildRef&) const = default;
  constexpr uint get_count() const { return word & count_mask; }
  constexpr bool is_empty() const { return index == 0 && word == 0; }
  constexpr bool is_leaf() const { return get_kind() == BvhKind::leaf; }
  constexpr BvhKind get_kind() const {
    if ((word & (oriented_bit | leaf_bit)) == oriented_bit) return BvhKind::oriented;
    if (word & leaf_bit) return BvhKind::leaf;
    return word & quantized_bit ? BvhKind::quantized : BvhKind::aligned;
  }
};

/// Planes of four boxes: what an aligned node begins with, and one block of its motion samples.
struct BvhLanePlanes {
  float planes[6][4];  ///< min x, max x, min y, max y, min z, max z; one column per lane

  GMathBbox3<float> get_lane(uint lane) const {
    return {{planes[0][lane], planes[2][lane], planes[4][lane]}, {planes[1][lane], planes[3][lane], planes[5][lane]}};
  }
  void set_lane(uint lane, const GMathBbox3<float>& box) {
    for (uint axis = 0; axis < 3; ++axis) {
      planes[2 * axis][lane] = box.min[axis];
      planes[2 * axis + 1][lane] = box.max[axis];
    }
  }
};

/// The same in 8 bits: what a quantized node begins with, and one block of its motion samples.
struct BvhLaneBytes {
  u8 planes[6][4];
};

struct alignas(64) BvhNodeAligned {
  BvhLanePlanes lanes;
  BvhChildRef child[4];
};

/// Planes in units of 1/255 of the frame: the lane's box in the parent.
struct alignas(16) BvhNodeQuantized {
  BvhLaneBytes lanes;
  u32 child_index[4];  ///< index of each child reference
  u16 child_word[4];   ///< low 16 bits of its word

  constexpr BvhChildRef get_child(uint lane) const { return {child_index[lane], child_word[lane]}; }
  constexpr void set_child(uint lane, BvhChildRef ref) {
    child_index[lane] = ref.index;
    child_word[lane] = static_cast<u16>(ref.word);
  }
};

struct alignas(32) BvhNodeOriented {
  float rows[12][4];  ///< row r of lane k: rows[4 r + c][k], c = coefficients of x, y, z, then the offset
  BvhChildRef child[4];
};

static_assert(sizeof(BvhChildRef) == 8 && sizeof(BvhLanePlanes) == 96 && sizeof(BvhLaneBytes) == 24);
static_assert(sizeof(BvhNodeAligned) == 128 && sizeof(BvhNodeQuantized) == 48 && sizeof(BvhNodeOriented) == 224);
static_assert(offsetof(BvhNodeAligned, child) == 96 && offsetof(BvhNodeOriented, child) == 192);
static_assert(offsetof(BvhNodeQuantized, child_index) == 24 && offsetof(BvhNodeQuantized, child_word) == 40);
static_assert(alignof(BvhNodeAligned) == 64 && alignof(BvhNodeQuantized) == 16 && alignof(BvhNodeOriented) == 32);

/// A cluster handle: names one child of one aligned node.
///
///   63 .. 56   55 .. 48                                47 .. 32   31 .. 0
///   tag 0xBC   1: kept whole beside expanded siblings   lane       index of the aligned node
struct BvhClusterHandle {
  static constexpr u64 tag = 0xBC;

  static constexpr u64 make(u32 node, uint lane, bool beside_expanded) {
    return tag << 56 | u64{beside_expanded} << 48 | u64{lane} << 32 | node;
  }
  static constexpr bool is_tagged(u64 handle) { return handle >> 56 == tag; }
  static constexpr u32 get_node(u64 handle) { return static_cast<u32>(handle); }
  static constexpr uint get_lane(u64 handle) { return static_cast<uint>(handle >> 32 & 0xffff); }
};
