// host/vq_resource/resource_data.h
//
// Data that the host owns, shares and counts the memory of. The order of the virtual functions is part of the
// interface.
#pragma once
#include <atomic>

#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_event/event_object.h"

class ResourceData;

/// One resource that reported a change of its memory, and its present size in bytes.
struct ResourceMemoryReport {
  const ResourceData* resource;
  u64 memory_size;
};

class VQ_EXPORT ResourceData : public EventObject {
 public:
  ResourceData() = default;
  /// Reports of changes belong to the object: a copy starts without any, and assigning keeps its own.
  ResourceData(const ResourceData& other) : EventObject(other) {}
  ResourceData& operator=(const ResourceData& other);
  ~ResourceData() override;

  u64 get_memory_size() const override;
  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  /// Equal keys mean equal resources. By default every object has its own key.
  virtual u64 get_hash_key() const;
  virtual bool is_serializable() const;
  /// Appends the resource's bytes. False, and nothing appended, when it is not serializable.
  virtual bool serialize(CoreVector<u8>& bytes) const;
  /// Restores the resource from serialize()'s bytes. False, and nothing changed, when this is not possible.
  virtual bool deserialize(const CoreBasicArray<u8>& bytes);

  /// Reports that the size of the memory has changed. Does not call get_memory_size(): callers may hold locks that it
  /// takes. Thread-safe.
  void advert_memory_changed() const;
  /// How often advert_memory_changed() was called. Thread-safe.
  uint get_memory_advert_count() const { return memory_advert_count_.load(std::memory_order_relaxed); }
  /// All resources that reported a change since the last call, in the order of the reports, with their present sizes.
  /// Not to be called while a resource is being destroyed or while a lock is held that get_memory_size() takes.
  static CoreVector<ResourceMemoryReport> collect_memory_reports();

 private:
  mutable std::atomic<uint> memory_advert_count_ = 0;
  mutable bool is_listed_ = false;  // in the list of changed resources; guarded by its lock
};
