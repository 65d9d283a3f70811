// host/vq_of/of_item.h
//
// Anything in a project that has a name and can be switched off.
#pragma once
#include "vq_core/core_base_type.h"
#include "vq_core/core_export.h"
#include "vq_core/core_string.h"

class VQ_EXPORT OfItem : public CoreBaseObject {
 public:
  explicit OfItem(const CoreString& name) : name_(name) {}

  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  const CoreString& get_name() const { return name_; }
  bool is_enabled() const { return enabled_; }
  void set_enabled(bool enabled) { enabled_ = enabled; }

 private:
  CoreString name_;
  bool enabled_ = true;
};
