#include "gas/gas_clusterable.h"

#include "gas/frame/gas_class.h"
#include "vq_event/event_declare.h"
#include "vq_event/event_table.h"

namespace {

const EventDeclaration declared_events[] = {EVT_ID_DESTROY};

// Registers the class with the host when the library is loaded.
[[maybe_unused]] const CoreClassInfo& class_record = GasClusterable::class_info();

}  // namespace

const CoreClassInfo& GasClusterable::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasClusterable", GasObject::class_info());
  return info;
}
