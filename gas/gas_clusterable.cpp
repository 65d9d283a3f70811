#include "gas/gas_clusterable.h"

#include "gas/frame/gas_class.h"

const CoreClassInfo& GasClusterable::class_info() {
  static const CoreClassInfo& info = gas_new_class("GasClusterable", GasObject::class_info());
  return info;
}
