#include "tools/vqgas/output_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/vqgas/input_error.h"

namespace {

namespace fs = std::filesystem;

// The names of unfinished files. A handler may neither allocate nor lock, hence plain arrays with a flag each.
struct UnfinishedFile {
  std::atomic<bool> taken{false};
  std::atomic<bool> present{false};
  std::array<char, 4096> path{};
};
std::array<UnfinishedFile, 16> unfinished_files;

extern "C" void end_on_signal(int signal_number) {
  for (const UnfinishedFile& file : unfinished_files) {
    if (file.present.load()) unlink(file.path.data());
  }
  if (isatty(STDERR_FILENO)) {
    constexpr char clear_line[] = "\r\033[K";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, clear_line, sizeof(clear_line) - 1);
  }
  _exit(128 + signal_number);
}

int note_unfinished(const std::string& path) {
  for (std::size_t slot = 0; slot < unfinished_files.size(); ++slot) {
    UnfinishedFile& file = unfinished_files[slot];
    if (path.size() >= file.path.size() || file.taken.exchange(true)) continue;
    std::memcpy(file.path.data(), path.c_str(), path.size() + 1);
    file.present.store(true);
    return static_cast<int>(slot);
  }
  return -1;
}

void forget_unfinished(int slot) {
  if (slot < 0) return;
  unfinished_files[static_cast<std::size_t>(slot)].present.store(false);
  unfinished_files[static_cast<std::size_t>(slot)].taken.store(false);
}

/// Follows links, so that renaming replaces what a link points to and not the link.
std::string resolve(const std::string& path) {
  std::error_code error;
  const fs::path target = fs::canonical(path, error);
  return error ? path : target.string();
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : path_(resolve(path)) {
  std::error_code error;
  const fs::file_status status = fs::status(path_, error);
  if (fs::is_directory(status)) throw InputError(path, "cannot be written: is a folder");
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    temporary_ = path_;
    return;
  }
  temporary_ = path_ + ".part" + std::to_string(getpid());
  const int file = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (file < 0) throw InputError(path, std::string("cannot be written: ") + std::strerror(errno));
  slot_ = note_unfinished(temporary_);
  close(file);
}

OutputFile::~OutputFile() {
  if (!committed_ && temporary_ != path_) unlink(temporary_.c_str());
  forget_unfinished(slot_);
}

void OutputFile::commit() {
  if (temporary_ != path_ && std::rename(temporary_.c_str(), path_.c_str()) != 0)
    throw InputError(path_, std::string("cannot be written: ") + std::strerror(errno));
  committed_ = true;
}

void check_output(const std::string& path) {
  if (!path.empty() && path != "-") OutputFile probe(path);
}

void write_text_file(const std::string& path, std::string_view text) {
  const auto put = [&](std::FILE* file) { return std::fwrite(text.data(), 1, text.size(), file) == text.size(); };
  if (path == "-") {
    if (!put(stdout) || std::fflush(stdout) != 0)
      throw InputError("standard output", std::string("cannot be written: ") + std::strerror(errno));
    return;
  }
  OutputFile output(path);
  std::FILE* file = std::fopen(output.get_temporary_path().c_str(), "wb");
  const bool written = file != nullptr && put(file);
  const int write_error = errno;
  const bool closed = file != nullptr && std::fclose(file) == 0;
  if (!written || !closed)
    throw InputError(path, std::string("cannot be written: ") + std::strerror(written ? errno : write_error));
  output.commit();
}

void install_interrupt_handler() {
  struct sigaction action = {};
  action.sa_handler = end_on_signal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGPIPE, &action, nullptr);  // whoever read our output has seen enough
}
