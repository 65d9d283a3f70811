// host/vq_core/core_base_type.h
//
// The root of all classes with a class record, and the two classes derived from it:
//
//   CoreBaseType <- CoreBaseObject <- CoreCustomData <- EventObject <- ResourceData <- ...
//
// The chain is linear, so an untyped pointer to an object is also a pointer to its CoreBaseType. The order of the
// virtual functions is part of the interface: destructor, is_kindof, get_memory_size, get_class_info, then those that
// ResourceData adds; the links between add none.
//
// Arrays of these classes can be destroyed through a base pointer, which the language alone cannot do:
//
//   [byte count, 8][unused, 8][element count, 8][element 0][element 1] ...
//   ^ allocated block         ^ written by the   ^ the array's address
//                               compiler
//
// operator new[] stores the number of bytes that the compiler requested, so the element size is
// (bytes - 8) / count and every element can be reached and destroyed through its virtual destructor.
#pragma once
#include <cstddef>
#include <new>

#include "vq_core/core_class_info.h"
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

class VQ_EXPORT CoreBaseType {
 public:
  virtual ~CoreBaseType();
  /// True when the object's class is `info`'s class or derives from it.
  virtual bool is_kindof(const CoreClassInfo& info) const;
  /// Bytes held by the object, itself included.
  virtual u64 get_memory_size() const;
  virtual const CoreClassInfo& get_class_info() const;
  static const CoreClassInfo& class_info();

  static void* operator new[](std::size_t bytes);
  static void operator delete[](void* block);
  /// The array header assumes elements aligned to at most 8 bytes.
  static void* operator new[](std::size_t bytes, std::align_val_t alignment) = delete;

  /// Number of elements of an array made by new[], from the address of its first element.
  static std::size_t get_array_count(const void* first_element);
  /// Distance in bytes between the elements of an array made by new[]; 0 for an array without elements.
  static std::size_t get_array_stride(const void* first_element);
  /// Frees the block of an array made by new[] without destroying its elements.
  static void free_array(void* first_element);

 protected:
  CoreBaseType() = default;
  CoreBaseType(const CoreBaseType&) = default;
  CoreBaseType& operator=(const CoreBaseType&) = default;
};

/// The destructor entry of the host's own class records: deletes one object, or the elements of an array from last to
/// first and then its block. A null object does nothing. Always true.
/// @param object points at an object (or the first element of an array) of a class derived from CoreBaseType
VQ_EXPORT bool core_destroy_object(void* object, const bool& is_array);

/// Link of the chain below every object; adds no state.
class VQ_EXPORT CoreBaseObject : public CoreBaseType {
 public:
  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();
};

/// Adds one untyped tag for the program that embeds the host. It is stored, never dereferenced or freed.
class VQ_EXPORT CoreCustomData : public CoreBaseObject {
 public:
  const CoreClassInfo& get_class_info() const override;
  static const CoreClassInfo& class_info();

  void* get_custom_data() const { return custom_data_; }
  void set_custom_data(void* data) { custom_data_ = data; }

 private:
  void* custom_data_ = nullptr;
};
