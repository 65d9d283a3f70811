// host/vq_resource/resource_data.h
//
// Data that the host keeps, shares and accounts for. Its virtual functions follow those of the root class in the order
// in which they stand here.
#pragma once
#include <atomic>

#include "vq_core/core_array.h"
#include "vq_event/event_object.h"

class ResourceData;

/// One resource that told of a change of its memory, and the bytes it holds now.
struct ResourceMemoryReport {
  const ResourceData* resource;
  u64 memory_size;
};

class ResourceData : public EventObject {
 public:
  ResourceData() = default;
  /// A copy has told nothing yet; assigning leaves what was told.
  ResourceData(const ResourceData& other) : EventObject(other) {}
  ResourceData& operator=(const ResourceData& other);
  ~ResourceData() override;

  u64 get_memory_size() const override;
  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  /// Tells equal resources from different ones: by default every object is its own.
  virtual u64 get_hash_key() const;
  virtual bool is_serializable() const;
  /// Appends the resource's bytes. False, and nothing appended, when it is not serializable.
  virtual bool serialize(CoreVector<u8>& bytes) const;
  /// Restores the resource from serialize()'s bytes. False, and nothing changed, when that cannot be.
  virtual bool deserialize(const CoreBasicArray<u8>& bytes);

  /// Notes that the memory held has changed. It never asks for the size: callers may hold locks that
  /// get_memory_size() takes. Thread-safe.
  void advert_memory_changed() const;
  /// How often advert_memory_changed() was called. Thread-safe.
  uint get_memory_advert_count() const { return memory_advert_count_.load(std::memory_order_relaxed); }
  /// Every resource that told of a change since the last call, in the order of telling, with the bytes it holds now.
  /// Not to be called while a resource is being destroyed or while a lock is held that get_memory_size() takes.
  static CoreVector<ResourceMemoryReport> collect_memory_reports();

 private:
  mutable std::atomic<uint> memory_advert_count_ = 0;
  mutable bool is_noted_ = false;  // in the list of changed resources; guarded by its lock
};
