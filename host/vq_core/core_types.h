// host/vq_core/core_types.h
//
// The integer names used throughout the host and the library. All are exact in size, because records that the
// library shares with its host are laid out byte by byte.
#pragma once
#include <cstddef>
#include <cstdint>

using uint = unsigned int;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

/// The invalid index: no thread, no primitive.
inline constexpr uint core_invalid_index = 0xFFFFFFFFu;
