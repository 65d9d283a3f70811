// gas/structure/gas_leaf_records.h
//
// Copies of what the ray tests of a geometry's primitives read, in the order of the leaves:
//
//   without   leaf --> order[place] --> primitive --> vertices --> positions    each read waits for the one before
//   with      leaf --> record[place]                                            prefetched when the leaf's box is hit
//
// Neighboring leaves have neighboring records. The geometry knows what is in them (GeometryObject::write_record).
#pragma once
#include <vector>

#include "gas/bvh/bvh_order_work.h"
#include "vq_core/core_memory.h"

class AppBase;
class GeometryObject;

/// The records of one build, written while the nodes of its tree are moved, or by GasLeafRecords::make().
class GasLeafRecordWork final : public BvhOrderWork {
 public:
  /// @param geometry     may have no records; null: none
  /// @param primitives   [item] primitive of `geometry`; null: the item is the primitive
  /// @param application  whose stop request ends the work; may be null
  GasLeafRecordWork(const GeometryObject* geometry, const uint* primitives, const AppBase* application);
  ~GasLeafRecordWork();
  GasLeafRecordWork(const GasLeafRecordWork&) = delete;
  GasLeafRecordWork& operator=(const GasLeafRecordWork&) = delete;

  void start(SysThreadTaskManager& tasks, const uint* order, uint count) override;

 private:
  friend class GasLeafRecords;
  class Task;

  /// Allocates the records and divides them into tasks; none without memory.
  void divide(const uint* order, uint count, uint length);

  const GeometryObject* geometry_;
  const uint* primitives_;
  const AppBase* application_;
  u32 size_;
  bool is_started_ = false;
  CoreAlignedArray<u8> bytes_;
  std::vector<Task> tasks_;
};

class GasLeafRecords {
 public:
  GasLeafRecords() = default;
  GasLeafRecords(const GasLeafRecords& other);
  GasLeafRecords& operator=(const GasLeafRecords& other);

  /// Takes the records of `work`, and writes them first unless the work was started. Before it there must be none.
  /// There are none after it if the geometry has none or there is no memory for them: queries then read the geometry
  /// itself. O(count). Throws AppStopped, and std::bad_alloc without memory for a task.
  /// @param order  [count] items in the order of the leaves
  void make(GasLeafRecordWork& work, const uint* order, uint count);
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
