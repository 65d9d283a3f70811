// host/vq_of/of_app.h
//
// The application that holds objects and items.
#pragma once
#include "vq_app_base/app_base.h"

class OfApp : public AppBase {
 public:
  using AppBase::AppBase;
};
