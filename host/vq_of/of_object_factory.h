// host/vq_of/of_object_factory.h
//
// Gives an evaluation context access to its application.
#pragma once

class AppBase;

class OfObjectFactory {
 public:
  /// The application must outlive the factory.
  explicit OfObjectFactory(AppBase& application) : application_(&application) {}
  /// Never null.
  AppBase* get_application() const { return application_; }

 private:
  AppBase* application_;
};
