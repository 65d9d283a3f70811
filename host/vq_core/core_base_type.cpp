// host/vq_core/core_base_type.cpp
#include "vq_core/core_base_type.h"

#include <cstring>
#include <limits>

namespace {

constexpr std::size_t header_bytes = 16;                  // keeps the block's 16-byte alignment
constexpr std::size_t count_bytes = sizeof(std::size_t);  // the compiler's element count
static_assert(alignof(CoreCustomData) <= count_bytes);

std::size_t read_word(const void* address) {
  std::size_t word;
  std::memcpy(&word, address, sizeof(word));
  return word;
}

}  // namespace

CoreBaseType::~CoreBaseType() = default;

bool CoreBaseType::is_kindof(const CoreClassInfo& info) const { return get_class_info().is_kindof(info); }

u64 CoreBaseType::get_memory_size() const { return sizeof(CoreBaseType); }

const CoreClassInfo& CoreBaseType::get_class_info() const { return class_info(); }

const CoreClassInfo& CoreBaseType::class_info() {
  static const CoreClassInfo& info = CoreClassInfo::new_root_class("CoreBaseType", core_destroy_object);
  return info;
}

void* CoreBaseType::operator new[](std::size_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() - header_bytes) throw std::bad_array_new_length();
  auto* block = static_cast<std::byte*>(::operator new(bytes + header_bytes));
  std::memcpy(block, &bytes, sizeof(bytes));
  return block + header_bytes;
}

void CoreBaseType::operator delete[](void* block) {
  if (block) ::operator delete(static_cast<std::byte*>(block) - header_bytes);
}

std::size_t CoreBaseType::get_array_count(const void* first_element) {
  return read_word(static_cast<const std::byte*>(first_element) - count_bytes);
}

std::size_t CoreBaseType::get_array_stride(const void* first_element) {
  const std::size_t count = get_array_count(first_element);
  if (count == 0) return 0;
  const std::size_t bytes = read_word(static_cast<const std::byte*>(first_element) - count_bytes - header_bytes);
  return (bytes - count_bytes) / count;
}

void CoreBaseType::free_array(void* first_element) {
  operator delete[](static_cast<std::byte*>(first_element) - count_bytes);
}

bool core_destroy_object(void* object, const bool& is_array) {
  if (!object) return true;
  if (!is_array) {
    delete static_cast<CoreBaseType*>(object);
    return true;
  }
  auto* first = static_cast<std::byte*>(object);
  const std::size_t stride = CoreBaseType::get_array_stride(object);
  for (std::size_t left = CoreBaseType::get_array_count(object); left > 0; --left)
    reinterpret_cast<CoreBaseType*>(first + (left - 1) * stride)->~CoreBaseType();
  CoreBaseType::free_array(object);
  return true;
}

const CoreClassInfo& CoreBaseObject::get_class_info() const { return class_info(); }

const CoreClassInfo& CoreBaseObject::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("CoreBaseObject", core_destroy_object, CoreBaseType::class_info(), nullptr);
  return info;
}

const CoreClassInfo& CoreCustomData::get_class_info() const { return class_info(); }

const CoreClassInfo& CoreCustomData::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("CoreCustomData", core_destroy_object, CoreBaseObject::class_info(), nullptr);
  return info;
}
