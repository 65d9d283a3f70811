#pragma once
#include <string>

/// Checks what a glTF file, of either version and form, says of its own data: views lie within their buffers, accessors
/// within their views, and a skin has a matrix for each joint. Assimp reads them unchecked. Throws InputError.
void check_gltf(const std::string& path);
