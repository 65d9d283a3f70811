// host/vq_event/event_declare.cpp
#include "vq_event/event_declare.h"

#include "vq_event/event_registry.h"

namespace {

const char* find_name(EventId id) {
  for (const EventRow& row : event_table)
    if (row.id == id) return row.name;
  return nullptr;
}

}  // namespace

EventDeclaration::EventDeclaration(EventId id)
    : id(id), name(find_name(id)), is_unique(event_debug_collisions(id, find_name(id))) {}
