// gas/structure/gas_leaf_records.h
//
// Copies of what the ray tests of a geometry's primitives read, in the order of the leaves:
//
//   without   leaf --> order[place] --> primitive --> vertices --> positions    each read waits for the one before
//   with      leaf --> record[place]                                            prefetched when the leaf's box is hit
//
// Neighboring leaves have neighboring records. The geometry knows what is in them (GeometryObject::write_record).
#pragma once
#include "vq_core/core_memory.h"

class AppBase;
class AppProgressBar;
class GeometryObject;

class GasLeafRecords {
 public:
  GasLeafRecords() = default;
  GasLeafRecords(const GasLeafRecords& other);
  GasLeafRecords& operator=(const GasLeafRecords& other);

  /// Replaces the records. None if the geometry has none or there is no memory for them: queries then read the geometry
  /// itself. O(count).
  /// @param order        [count] items in the order of the leaves
  /// @param primitives   [item] primitive of `geometry`; null: the item is the primitive
  /// @param application  throws AppStopped when it requests a stop; may be null
  /// @param progress     the records are written on the threads of its application. Null: on the calling thread
  void make(const GeometryObject& geometry, const uint* order, uint count, const uint* primitives,
            const AppBase* application, AppProgressBar* progress);
  void clear() { *this = GasLeafRecords(); }

  /// False if there was no memory to copy the records.
  bool is_whole_copy_of(const GasLeafRecords& other) const { return size_ == other.size_; }

  /// The record of a place in the leaves' order. Not without records.
  const void* get(std::size_t place) const { return bytes_.get() + place * size_; }
  const void* get_first() const { return bytes_.get(); }
  /// Bytes of a record; 0 without records.
  u32 get_size() const { return size_; }
  u64 get_bytes() const { return bytes_.get_bytes(); }

 private:
  CoreAlignedArray<u8> bytes_;
  u32 size_ = 0;
};
