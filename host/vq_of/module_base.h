// host/vq_of/module_base.h
//
// The behavior of an object: what evaluates it. An OfObject refers to its module and does not own it.
#pragma once
#include "vq_core/core_base_type.h"
#include "vq_core/core_export.h"

class OfApp;

class VQ_EXPORT ModuleBase : public CoreBaseObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  /// The application whose factory makes evaluation contexts for the module; null: the module is evaluated only with
  /// contexts that it is given.
  OfApp* get_application() const { return application_; }
  /// Not to be called while another thread reads the module. The application must outlive it.
  void set_application(OfApp* application) { application_ = application; }

 private:
  OfApp* application_ = nullptr;
};
