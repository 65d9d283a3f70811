// host/vq_resource/resource_data.cpp
#include "vq_resource/resource_data.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

struct ChangedResources {
  std::mutex mutex;
  std::vector<const ResourceData*> resources;
};

ChangedResources& get_changed() {
  static ChangedResources& changed = *new ChangedResources;
  return changed;
}

}  // namespace

ResourceData& ResourceData::operator=(const ResourceData& other) {
  EventObject::operator=(other);
  return *this;
}

ResourceData::~ResourceData() {
  if (get_memory_advert_count() == 0) return;
  ChangedResources& changed = get_changed();
  const std::lock_guard<std::mutex> guard(changed.mutex);
  if (is_listed_) std::erase(changed.resources, this);
}

u64 ResourceData::get_memory_size() const { return sizeof(ResourceData); }

const CoreClassInfo& ResourceData::get_class_info() const { return class_info(); }

const CoreClassInfo& ResourceData::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("ResourceData", core_destroy_object, EventObject::class_info(), nullptr);
  return info;
}

u64 ResourceData::get_hash_key() const { return reinterpret_cast<std::uintptr_t>(this); }

bool ResourceData::is_serializable() const { return false; }

bool ResourceData::serialize(CoreVector<u8>& /*bytes*/) const { return false; }

bool ResourceData::deserialize(const CoreBasicArray<u8>& /*bytes*/) { return false; }

void ResourceData::advert_memory_changed() const {
  memory_advert_count_.fetch_add(1, std::memory_order_relaxed);
  ChangedResources& changed = get_changed();
  const std::lock_guard<std::mutex> guard(changed.mutex);
  if (is_listed_) return;
  is_listed_ = true;
  changed.resources.push_back(this);
}

CoreVector<ResourceMemoryReport> ResourceData::collect_memory_reports() {
  std::vector<const ResourceData*> resources;
  {
    ChangedResources& changed = get_changed();
    const std::lock_guard<std::mutex> guard(changed.mutex);
    resources.swap(changed.resources);
    for (const ResourceData* resource : resources) resource->is_listed_ = false;
  }
  // Not under the lock: get_memory_size() may take a lock that another thread holds while it reports a change.
  CoreVector<ResourceMemoryReport> reports;
  reports.reserve(static_cast<uint>(resources.size()));
  for (const ResourceData* resource : resources) reports.add({resource, resource->get_memory_size()});
  return reports;
}
