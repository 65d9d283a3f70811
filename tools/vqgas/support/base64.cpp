#include "tools/vqgas/support/base64.h"

#include <algorithm>

std::string print_base64(const u8* bytes, std::size_t size) {
  constexpr char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((size + 2) / 3 * 4);
  for (std::size_t at = 0; at < size; at += 3) {
    const std::size_t count = std::min<std::size_t>(3, size - at);
    u32 bits = 0;
    for (std::size_t k = 0; k < 3; ++k) bits = bits << 8 | (k < count ? bytes[at + k] : 0u);
    for (std::size_t k = 0; k < 4; ++k) text += k <= count ? letters[bits >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}
