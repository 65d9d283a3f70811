#include "tools/vqgas/support/input_file.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"

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

std::string get_extension(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return extension;
}

std::string read_standard_input() {
  constexpr int poll_milliseconds = 100;  // a signal just before a read that blocks is seen after that
  std::string text;
  std::array<char, 65536> piece;
  while (true) {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    const int ready = poll(&input, 1, poll_milliseconds);
    throw_if_interrupted();
    if (ready == 0) continue;
    const ssize_t size = read(STDIN_FILENO, piece.data(), piece.size());
    if (size == 0) return text;
    if (size > 0) text.append(piece.data(), static_cast<std::size_t>(size));
    if (size < 0 && errno != EINTR && errno != EAGAIN)
      throw InputError("standard input", std::string("cannot be read: ") + std::strerror(errno));
  }
}
