#pragma once
#include <string>

/// Checks what a glTF file, of either version and form, says of its own data: views lie within their buffers, accessors
/// within their views, and a skin has a matrix for each joint. Assimp reads them unchecked. Throws InputError.
/// @return what to read instead of the file; empty: the file. Skins without inverse bind matrices, which Assimp cannot
///         read, have identities in it
std::string check_gltf(const std::string& path);
