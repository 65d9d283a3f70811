#include "gas/bvh/gas_bvh.h"

#include <cstring>
#include <utility>

#include "vq_core/core_memory.h"

namespace {

template <class T>
bool allocate(T*& array, std::size_t count, std::size_t alignment) {
  array = static_cast<T*>(core_aligned_alloc(count * sizeof(T), alignment));
  return array != nullptr || count == 0;
}

template <class T>
void copy(T* to, const T* from, std::size_t count) {
  if (count > 0) std::memcpy(to, from, count * sizeof(T));
}

}  // namespace

template <uint width>
GasBvh<width>::GasBvh(const GasBvh& other) {
  if (!allocate_items(other.item_count, other.item_weight_bits != nullptr) ||
      !allocate_nodes(other.aligned_count, other.quantized_count, other.oriented_count)) {
    clear();
    return;
  }
  copy(order, other.order, item_count);
  if (item_weight_bits != nullptr) copy(item_weight_bits, other.item_weight_bits, item_count);
  copy(aligned, other.aligned, aligned_count);
  copy(quantized, other.quantized, quantized_count);
  copy(oriented, other.oriented, oriented_count);
  uniform_item_weight = other.uniform_item_weight;
  max_depth = other.max_depth;
  quantization_depth = other.quantization_depth;
  frozen = other.frozen;
  copied_ = true;
  root = other.root;
  box = other.box;
}

template <uint width>
GasBvh<width>& GasBvh<width>::operator=(const GasBvh& other) {
  if (this != &other) {
    GasBvh made(other);
    swap(made);
  }
  return *this;
}

template <uint width>
GasBvh<width>::GasBvh(GasBvh&& other) noexcept {
  swap(other);
}

template <uint width>
GasBvh<width>& GasBvh<width>::operator=(GasBvh&& other) noexcept {
  GasBvh taken(std::move(other));
  swap(taken);
  return *this;
}

template <uint width>
GasBvh<width>::~GasBvh() {
  clear();
}

template <uint width>
void GasBvh<width>::swap(GasBvh& other) noexcept {
  std::swap(aligned, other.aligned);
  std::swap(quantized, other.quantized);
  std::swap(oriented, other.oriented);
  std::swap(order, other.order);
  std::swap(item_weight_bits, other.item_weight_bits);
  std::swap(item_count, other.item_count);
  std::swap(uniform_item_weight, other.uniform_item_weight);
  std::swap(aligned_count, other.aligned_count);
  std::swap(quantized_count, other.quantized_count);
  std::swap(oriented_count, other.oriented_count);
  std::swap(max_depth, other.max_depth);
  std::swap(quantization_depth, other.quantization_depth);
  std::swap(frozen, other.frozen);
  std::swap(root, other.root);
  std::swap(box, other.box);
  std::swap(copied_, other.copied_);
}

template <uint width>
void GasBvh<width>::clear() {
  if (!frozen || copied_) {
    core_aligned_free(aligned);
    core_aligned_free(quantized);
    core_aligned_free(oriented);
    core_aligned_free(order);
    core_aligned_free(item_weight_bits);
  }
  aligned = nullptr;
  quantized = nullptr;
  oriented = nullptr;
  order = nullptr;
  item_weight_bits = nullptr;
  item_count = aligned_count = quantized_count = oriented_count = max_depth = 0;
  frozen = 0;
  copied_ = false;
  root = {};
  box.set_empty();
}

template <uint width>
u64 GasBvh<width>::get_array_bytes() const {
  return u64{aligned_count} * sizeof(Aligned) + u64{quantized_count} * sizeof(Quantized) +
         u64{oriented_count} * sizeof(Oriented) + u64{item_count} * sizeof(u32) * (item_weight_bits != nullptr ? 2 : 1);
}

template <uint width>
bool GasBvh<width>::allocate_items(uint count, bool with_item_weight_bits) {
  if (!allocate(order, count, alignof(u32))) return false;
  if (with_item_weight_bits && !allocate(item_weight_bits, count, alignof(u32))) return false;
  item_count = count;
  return true;
}

template <uint width>
void GasBvh<width>::drop_item_weight_bits() {
  if (!frozen || copied_) core_aligned_free(item_weight_bits);
  item_weight_bits = nullptr;
}

template <uint width>
bool GasBvh<width>::allocate_nodes(uint aligned_nodes, uint quantized_nodes, uint oriented_nodes) {
  if (!allocate(aligned, aligned_nodes, alignof(Aligned)) ||
      !allocate(quantized, quantized_nodes, alignof(Quantized)) ||
      !allocate(oriented, oriented_nodes, alignof(Oriented)))
    return false;
  aligned_count = aligned_nodes;
  quantized_count = quantized_nodes;
  oriented_count = oriented_nodes;
  return true;
}

template class GasBvh<4>;
