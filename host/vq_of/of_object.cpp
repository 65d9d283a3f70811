// host/vq_of/of_object.cpp
#include "vq_of/of_object.h"

const CoreClassInfo& OfObject::get_class_info() const { return class_info(); }

const CoreClassInfo& OfObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("OfObject", core_destroy_object, OfItem::class_info(), nullptr);
  return info;
}
