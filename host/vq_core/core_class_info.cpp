// host/vq_core/core_class_info.cpp
#include "vq_core/core_class_info.h"

#include <mutex>
#include <vector>

namespace {

struct Registry {
  std::mutex mutex;
  std::vector<CoreClassInfo*> records;
};

// Built on first use, because class records are made by static initializers of any library in any order; never
// destroyed, because objects destroyed after this library's statics still use their records.
Registry& get_registry() {
  static Registry& registry = *new Registry;
  return registry;
}

}  // namespace

CoreClassInfo::CoreClassInfo(const char* name, Destructor destructor, const CoreClassInfo* base)
    : name_(name ? name : ""), base_(base), destructor_(destructor) {}

CoreClassInfo& CoreClassInfo::register_class(const char* name, Destructor destructor, const CoreClassInfo* base) {
  auto* record = new CoreClassInfo(name, destructor, base);
  Registry& registry = get_registry();
  const std::lock_guard<std::mutex> guard(registry.mutex);
  registry.records.push_back(record);
  return *record;
}

CoreClassInfo& CoreClassInfo::new_class(const char* name, Destructor destructor, const CoreClassInfo& base,
                                        void* /*reserved*/) {
  return register_class(name, destructor, &base);
}

CoreClassInfo& CoreClassInfo::new_root_class(const char* name, Destructor destructor) {
  return register_class(name, destructor, nullptr);
}

const CoreClassInfo* CoreClassInfo::find(const char* name) {
  if (!name) return nullptr;
  Registry& registry = get_registry();
  const std::lock_guard<std::mutex> guard(registry.mutex);
  for (const CoreClassInfo* record : registry.records)
    if (record->name_ == name) return record;
  return nullptr;
}

uint CoreClassInfo::get_creation_count(const char* name) {
  if (!name) return 0;
  Registry& registry = get_registry();
  const std::lock_guard<std::mutex> guard(registry.mutex);
  uint count = 0;
  for (const CoreClassInfo* record : registry.records) count += record->name_ == name;
  return count;
}

bool CoreClassInfo::is_kindof(const CoreClassInfo& other) const {
  for (const CoreClassInfo* record = this; record; record = record->base_)
    if (record == &other) return true;
  return false;
}
