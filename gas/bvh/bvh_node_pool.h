// gas/bvh/bvh_node_pool.h
//
// The nodes made by one build thread, until finalize copies them. Blocks of doubling size, so that a node never moves
// (tasks on other threads write into it) and finding node i takes one bit scan:
//
//   block 0: 64 nodes   block 1: 64   block 2: 128   block 3: 256 ...   node i is in block bit_width(i / 64)
#pragma once
#include <bit>

#include "vq_core/core_memory.h"
#include "vq_core/core_types.h"

template <class Node>
class BvhNodePool {
 public:
  BvhNodePool() = default;
  BvhNodePool(BvhNodePool&&) noexcept = default;
  BvhNodePool& operator=(BvhNodePool&&) noexcept = default;
  ~BvhNodePool() = default;

  uint get_count() const { return count_; }
  Node& operator[](uint index) {
    const uint block = get_block(index);
    return blocks_[block][index - get_first(block)];
  }
  /// A new node, contents undefined; its index is the former count. Null when there is no memory.
  Node* add() {
    const uint block = get_block(count_);
    if (!blocks_[block])
      blocks_[block] = CoreAlignedArray<Node>(block == 0 ? base : base << (block - 1), alignof(Node), CorePages::small);
    if (!blocks_[block]) return nullptr;
    const uint index = count_++;
    return &blocks_[block][index - get_first(block)];
  }

 private:
  static constexpr uint base = 64;
  static uint get_block(uint index) { return static_cast<uint>(std::bit_width(index / base)); }
  static uint get_first(uint block) { return block == 0 ? 0 : base << (block - 1); }

  CoreAlignedArray<Node> blocks_[28];
  uint count_ = 0;
};
