#pragma once
#include <string>
#include <vector>

#include "vq_core/core_types.h"

/// The bytes as base64 text (RFC 4648, section 4).
std::string print_base64(const u8* bytes, std::size_t size);

/// The items' bytes in the order of memory, which is little endian on the machines that the program runs on, as in
/// every browser.
template <class T>
std::string print_base64(const std::vector<T>& items) {
  return print_base64(reinterpret_cast<const u8*>(items.data()), items.size() * sizeof(T));
}
