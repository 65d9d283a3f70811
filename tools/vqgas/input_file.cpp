#include "tools/vqgas/input_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/vqgas/input_error.h"

void check_input_file(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (status.type() == fs::file_type::not_found) throw InputError(path, "no such file");
  if (error) throw InputError(path, "cannot be read: " + error.message());
  if (fs::is_directory(status)) throw InputError(path, "is a folder");
  if (!fs::is_regular_file(status)) throw InputError(path, "is not a regular file");
  if (!std::ifstream(path)) throw InputError(path, std::string("cannot be read: ") + std::strerror(errno));
  if (fs::file_size(path, error) == 0) throw InputError(path, "is empty");
}
