#include "gas/frame/gas_events.h"

#include <vector>

#include "vq_event/event_table.h"

namespace {

const std::vector<EventDeclaration>& get_declarations() {
  static const std::vector<EventDeclaration> declarations = [] {
    std::vector<EventDeclaration> all;
    for (const EventRow& row : event_table) all.emplace_back(row.id);
    return all;
  }();
  return declarations;
}

// Made while the library is loaded.
[[maybe_unused]] const std::vector<EventDeclaration>& declared_at_load = get_declarations();

}  // namespace

std::span<const EventDeclaration> gas_get_event_declarations() { return get_declarations(); }
