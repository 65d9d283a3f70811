// tools/vqgas/support/input_file.h
#pragma once
#include <string>

/// Checks a file before it is read, for clearer errors than those of its reader. Throws InputError when it is missing,
/// empty, a folder or not a regular file, or cannot be opened.
void check_input_file(const std::string& path);

/// The extension of a file name, in lower case, with its dot.
std::string get_extension(const std::string& path);

/// Reads standard input to its end. Throws InputError when it cannot be read, Interrupted after a signal.
std::string read_standard_input();
