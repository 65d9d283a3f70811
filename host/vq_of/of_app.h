// host/vq_of/of_app.h
//
// The application that holds objects and items.
#pragma once
#include "vq_app_base/app_base.h"
#include "vq_core/core_export.h"
#include "vq_of/of_object_factory.h"

class VQ_EXPORT OfApp : public AppBase {
 public:
  using AppBase::AppBase;

  /// For evaluation contexts of this application. Also of a constant one, as its threads. Thread-safe.
  OfObjectFactory& get_factory() const { return factory_; }

 private:
  mutable OfObjectFactory factory_{*this};
};
