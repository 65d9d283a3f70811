// host/vq_of/of_object.h
//
// An item with a behavior: its module, which evaluates it.
#pragma once
#include "vq_core/core_export.h"
#include "vq_of/of_item.h"

class ModuleBase;

class VQ_EXPORT OfObject : public OfItem {
 public:
  explicit OfObject(const CoreString& name, ModuleBase* module = nullptr) : OfItem(name), module_(module) {}

  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  /// Null for an object without behavior. The object does not own the module.
  ModuleBase* get_module() const { return module_; }
  void set_module(ModuleBase* module) { module_ = module; }

 private:
  ModuleBase* module_;
};
