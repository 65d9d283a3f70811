// host/vq_of/of_item.cpp
#include "vq_of/of_item.h"

const CoreClassInfo& OfItem::get_class_info() const { return class_info(); }

const CoreClassInfo& OfItem::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("OfItem", core_destroy_object, CoreBaseObject::class_info(), nullptr);
  return info;
}
