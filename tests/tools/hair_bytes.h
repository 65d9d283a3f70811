// Hair files as bytes, put together and taken apart without the program's own reader and writer.
#pragma once
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/// Two strands of two and three points unless a test changes something.
struct HairBytes {
  std::string signature = "HAIR";
  std::uint32_t hairs = 2, points = 5, arrays = 7, default_segments = 0;
  float default_thickness = 0.1f;
  std::vector<std::uint16_t> segments = {1, 2};
  std::vector<std::array<float, 3>> positions = {{0, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}, {1, 2, 0}};
  std::vector<float> thickness = {0.2f, 0.2f, 0.2f, 0.2f, 0.2f};

  std::string write() const {
    std::string bytes = signature;
    const auto add = [&](const void* from, std::size_t size) { bytes.append(static_cast<const char*>(from), size); };
    for (const std::uint32_t word : {hairs, points, arrays, default_segments}) add(&word, 4);
    for (const float value : {default_thickness, 0.0f, 1.0f, 1.0f, 1.0f}) add(&value, 4);
    bytes.resize(128, '\0');
    if ((arrays & 1) != 0) add(segments.data(), 2 * segments.size());
    if ((arrays & 2) != 0) add(positions.data(), 12 * positions.size());
    if ((arrays & 4) != 0) add(thickness.data(), 4 * thickness.size());
    return bytes;
  }

  /// Takes apart what write() puts together; false when the length is not that of the counts.
  bool read(const std::string& bytes) {
    if (bytes.size() < 128) return false;
    signature = bytes.substr(0, 4);
    std::memcpy(&hairs, bytes.data() + 4, 4);
    std::memcpy(&points, bytes.data() + 8, 4);
    std::memcpy(&arrays, bytes.data() + 12, 4);
    std::memcpy(&default_segments, bytes.data() + 16, 4);
    segments.assign(hairs, static_cast<std::uint16_t>(default_segments));
    positions.resize(points);
    thickness.resize(points);
    std::size_t at = 128;
    const auto take = [&](std::uint32_t array, void* to, std::size_t size) {
      if ((arrays & array) == 0) return;
      if (at + size <= bytes.size()) std::memcpy(to, bytes.data() + at, size);
      at += size;
    };
    take(1, segments.data(), 2 * segments.size());
    take(2, positions.data(), 12 * positions.size());
    take(4, thickness.data(), 4 * thickness.size());
    return at == bytes.size();
  }
};
