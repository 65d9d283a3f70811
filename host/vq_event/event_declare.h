// host/vq_event/event_declare.h
//
// Declaration, at load time, of the events that a source file uses:
//
//   namespace {
//   const EventDeclaration declared_events[] = {EVT_ID_DESTROY, EVT_ID_GEOMETRY_DIRTY};
//   }
//
// Each entry is a global name and a global flag; several files may declare the same event.
#pragma once
#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_event/event_table.h"

struct VQ_EXPORT EventDeclaration {
  /// Registers the event with event_debug_collisions().
  EventDeclaration(EventId id);

  EventId id;
  CoreString name;  ///< as in the table; empty for a number that is no event
  bool is_unique;   ///< what event_debug_collisions() returned
};
