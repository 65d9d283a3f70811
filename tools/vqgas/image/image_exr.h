// tools/vqgas/image/image_exr.h
#pragma once
#include <string>

#include "tools/vqgas/image/picture.h"

/// Writes all layers of the picture as channels of one EXR file, values as 32-bit floats, numbers as 32-bit integers.
/// Throws InputError when the file cannot be written.
void write_exr(const std::string& path, const Picture& picture);
