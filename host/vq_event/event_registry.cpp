// host/vq_event/event_registry.cpp
#include "vq_event/event_registry.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace {

struct Registry {
  std::mutex mutex;
  std::unordered_map<uint, std::string> names;
};

// Built on first use: names are registered by static initializers of any library in any order.
Registry& get_registry() {
  static Registry& registry = *new Registry;
  return registry;
}

}  // namespace

bool event_debug_collisions(const uint& hash, const char* name) {
  if (!name) return false;
  Registry& registry = get_registry();
  const std::lock_guard<std::mutex> guard(registry.mutex);
  return registry.names.try_emplace(hash, name).first->second == name;
}

uint event_get_registered_count() {
  Registry& registry = get_registry();
  const std::lock_guard<std::mutex> guard(registry.mutex);
  return static_cast<uint>(registry.names.size());
}
