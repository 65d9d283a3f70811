// tools/vqgas/support/input_file.h
#pragma once
#include <string>

/// What the system knows of a file that is to be read, told more clearly than a reader does. Throws InputError when it
/// is missing, empty, a folder or cannot be opened.
void check_input_file(const std::string& path);

/// Everything up to its end. Throws InputError when it cannot be read, Interrupted when a signal comes meanwhile.
std::string read_standard_input();
