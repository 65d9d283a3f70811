// host/vq_event/event_object.h
//
// An object that notifies listeners of events.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_base_type.h"
#include "vq_core/core_export.h"
#include "vq_event/event_table.h"

class VQ_EXPORT EventObject : public CoreCustomData {
 public:
  using Listener = void (*)(EventObject& sender, const uint& event, void* user);

  EventObject() = default;
  /// Listeners belong to the object: a copy starts without any, and assigning keeps its own.
  EventObject(const EventObject& other) : CoreCustomData(other) {}
  EventObject& operator=(const EventObject& other);

  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  /// Adds a listener; null and pairs that listen already are ignored.
  void add_listener(Listener listener, void* user);
  void remove_listener(Listener listener, void* user);
  /// Calls, in the order of adding, every listener present now; they may add and remove listeners meanwhile. Listeners
  /// and raise() belong to one thread at a time.
  void raise(const uint& event);

 private:
  struct Entry {
    Listener listener;
    void* user;
  };
  CoreVector<Entry> listeners_;
};
