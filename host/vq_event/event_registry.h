// host/vq_event/event_registry.h
//
// The process's record of which event names are in use, which finds two names that share a hash.
#pragma once
#include "vq_core/core_types.h"

/// Registers an event name under its hash. True when the hash is new or known under the same name, false when another
/// name holds it already (that one stays). A null name is refused with false. Thread-safe, and callable from static
/// initializers.
bool event_debug_collisions(const uint& hash, const char* name);

/// How many names are registered. Thread-safe.
uint event_get_registered_count();
