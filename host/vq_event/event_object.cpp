// host/vq_event/event_object.cpp
#include "vq_event/event_object.h"

const CoreClassInfo& EventObject::get_class_info() const { return class_info(); }

const CoreClassInfo& EventObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("EventObject", core_destroy_object, CoreCustomData::class_info(), nullptr);
  return info;
}

EventObject& EventObject::operator=(const EventObject& other) {
  CoreCustomData::operator=(other);
  return *this;
}

void EventObject::add_listener(Listener listener, void* user) {
  if (!listener) return;
  for (const Entry& entry : listeners_)
    if (entry.listener == listener && entry.user == user) return;
  listeners_.add({listener, user});
}

void EventObject::remove_listener(Listener listener, void* user) {
  for (uint i = 0; i < listeners_.get_count(); ++i)
    if (listeners_[i].listener == listener && listeners_[i].user == user) {
      listeners_.remove(i);
      return;
    }
}

void EventObject::raise(const uint& event) {
  const CoreVector<Entry> present = listeners_;
  for (const Entry& entry : present) entry.listener(*this, event, entry.user);
}
