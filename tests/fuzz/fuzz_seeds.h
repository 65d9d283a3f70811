// Small valid files of each kind, which the mutator damages.
#pragma once
#include <string>
#include <vector>

struct FuzzSeed {
  std::string extension;
  std::string bytes;
  bool is_text;
};

struct FuzzKind {
  std::string name;
  std::vector<FuzzSeed> seeds;
};

/// mesh, scene, hair, points, scatter, image
const std::vector<FuzzKind>& get_fuzz_kinds();

/// glTF as text and binary, Collada, FBX as text.
std::vector<FuzzSeed> make_scene_seeds();

/// Little-endian bytes of a number.
template <class T>
void append_bytes(std::string& to, const T& value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof(T));
}
