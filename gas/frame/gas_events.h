// gas/frame/gas_events.h
//
// The host's events. Every event of the host's table is declared when the library is loaded, so that a name or number
// that differs from the host's is found at load time and not when the event is raised. Source files also declare the
// events that they use.
#pragma once
#include <span>

#include "vq_event/event_declare.h"

/// All of the library's event declarations, in the order of the host's table.
std::span<const EventDeclaration> gas_get_event_declarations();
