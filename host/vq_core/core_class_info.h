// host/vq_core/core_class_info.h
//
// Class records: one CoreClassInfo per class, kept in a process-wide table from its creation to the end of the
// process, linked to the record of its base. A class makes its record once, in its static class_info():
//
//   static const CoreClassInfo& info = CoreClassInfo::new_class("Name", destructor, Base::class_info(), nullptr);
#pragma once
#include <string>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class VQ_EXPORT CoreClassInfo {
 public:
  /// Destroys and frees the object, or the array when the flag says so. Null objects do nothing. Returns true.
  using Destructor = bool (*)(void* object, const bool& is_array);

  /// Creates and registers the record of a class derived from `base`. Every call makes a new record: call it once per
  /// class. `reserved` is not used. Thread-safe, and callable from static initializers.
  static CoreClassInfo& new_class(const char* name, Destructor destructor, const CoreClassInfo& base, void* reserved);
  /// As new_class(), for the class at the top of the hierarchy.
  static CoreClassInfo& new_root_class(const char* name, Destructor destructor);
  /// The first record registered under `name`, null when there is none. Thread-safe.
  static const CoreClassInfo* find(const char* name);
  /// How many records were created under `name`. Thread-safe.
  static uint get_creation_count(const char* name);

  CoreClassInfo(const CoreClassInfo&) = delete;
  CoreClassInfo& operator=(const CoreClassInfo&) = delete;

  const char* get_name() const { return name_.c_str(); }
  const CoreClassInfo* get_base() const { return base_; }  ///< null at the top
  Destructor get_destructor() const { return destructor_; }
  /// True when this is the record of `other` or of a class derived from it.
  bool is_kindof(const CoreClassInfo& other) const;

 private:
  CoreClassInfo(const char* name, Destructor destructor, const CoreClassInfo* base);
  static CoreClassInfo& register_class(const char* name, Destructor destructor, const CoreClassInfo* base);

  std::string name_;
  const CoreClassInfo* base_;
  Destructor destructor_;
};
