// tools/vqgas/import/hair_text.h
#pragma once
#include <string>

#include "tools/vqgas/source/hair_source.h"

/// Reads the text form of hair_file.h. Throws InputError with the number of the line that cannot be read.
HairSource read_hair_text(const std::string& path);
