#include "tools/vqgas/support/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/memory_lack.h"

namespace {

namespace fs = std::filesystem;

/// Follows symbolic links, also to a missing file, so that renaming replaces the target and not the link. Stops at
/// links to open files, as that of /dev/stderr.
fs::path follow_links(fs::path path) {
  constexpr int most_links = 40;  // as many as the system follows
  std::error_code error;
  for (int k = 0; k < most_links && fs::is_symlink(fs::symlink_status(path, error)); ++k) {
    if (path.string().starts_with("/proc/")) break;
    path = path.parent_path() / fs::read_symlink(path, error);
  }
  return path;
}

ssize_t write_descriptor(void* descriptor, const char* bytes, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    if (is_interrupted()) errno = EINTR;
    const ssize_t written = is_interrupted() ? -1 : write(*static_cast<int*>(descriptor), bytes + done, size - done);
    if (written < 0) break;  // fewer bytes than given are an error of the stream
    done += static_cast<std::size_t>(written);
  }
  return static_cast<ssize_t>(done);
}

int seek_descriptor(void* descriptor, off64_t* offset, int origin) {
  const off64_t reached = lseek64(*static_cast<int*>(descriptor), *offset, origin);
  if (reached >= 0) *offset = reached;
  return reached < 0 ? -1 : 0;
}

int close_descriptor(void* descriptor) { return close(*static_cast<int*>(descriptor)); }

/// Equal for all names of one file. Of a missing file: its folder's numbers and its name.
struct FileIdentity {
  dev_t device;
  ino_t number;
  std::string missing_name;
  bool operator==(const FileIdentity&) const = default;
};

struct NamedFile {
  std::string name;                      ///< as given
  std::string label;                     ///< for errors of other files
  std::optional<FileIdentity> identity;  ///< none for devices, which several outputs may share
};

std::optional<FileIdentity> get_identity(const struct stat& status) {
  if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino, ""};
}

NamedFile identify_stream(int descriptor, const std::string& name) {
  struct stat status = {};
  return {name, name, fstat(descriptor, &status) == 0 ? get_identity(status) : std::nullopt};
}

NamedFile identify_file(const std::string& name, const std::string& role) {
  const fs::path path = follow_links(name);
  const fs::path folder = path.has_parent_path() ? path.parent_path() : ".";
  NamedFile file{name, role + name, std::nullopt};
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    file.identity = get_identity(status);
  } else if (stat(folder.c_str(), &status) == 0) {
    file.identity = FileIdentity{status.st_dev, status.st_ino, path.filename()};
  }
  return file;
}

void check_identity(const NamedFile& output, const std::vector<NamedFile>& others) {
  for (const NamedFile& other : others) {
    if (output.identity && other.identity == output.identity)
      throw UsageError(output.name + ": cannot be written: is the same file as " + other.label);
  }
}

/// Does not open pipes: their readers would see an empty file.
void check_writable(const std::string& path) {
  struct stat status = {};
  const bool is_special = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
  if (!is_special) OutputFile probe(path);
}

}  // namespace

OutputFile::OutputFile(const std::string& path) : name_(path), path_(follow_links(path)) {
  struct stat former = {};
  const bool is_present = stat(path_.c_str(), &former) == 0;
  if (is_present && S_ISDIR(former.st_mode)) throw InputError(name_, "cannot be written: is a folder");
  if (is_present && access(path_.c_str(), W_OK) != 0) fail();
  if (is_present && (!S_ISREG(former.st_mode) || path_.starts_with("/proc/"))) {
    descriptor_ = open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    if (descriptor_ < 0) fail();
  } else {
    open_temporary();
    if (is_present) fchmod(descriptor_, former.st_mode & 07777);
  }
  stream_ = fopencookie(&descriptor_, "wb", {nullptr, write_descriptor, seek_descriptor, close_descriptor});
  if (stream_ != nullptr) return;
  const int error = errno;
  discard();
  errno = error;
  fail();
}

void OutputFile::open_temporary() {
  throw_if_interrupted();  // the program may end without destructors at any time now: begin no file that would remain
  const fs::path folder = fs::path(path_).parent_path();
  for (int number = 0; descriptor_ < 0; ++number) {
    temporary_ = folder / (".vqgas-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".part");
    unfinished_ = std::make_unique<UnfinishedFile>(temporary_);
    descriptor_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ >= 0) return;
    unfinished_.reset();
    if (errno != EEXIST) fail();
  }
}

OutputFile::~OutputFile() { discard(); }

void OutputFile::discard() {
  if (stream_ != nullptr) std::fclose(stream_);
  if (unfinished_ != nullptr) unlink(temporary_.c_str());
}

void OutputFile::write(const void* bytes, std::size_t size) {
  if (std::fwrite(bytes, 1, size, stream_) != size) fail();
}

void OutputFile::commit() {
  throw_if_interrupted();
  throw_if_memory_lacked();
  if (std::ferror(stream_) != 0 || std::fflush(stream_) != 0) fail();
  const bool is_closed = std::fclose(stream_) == 0;
  stream_ = nullptr;
  if (!is_closed) fail();
  if (unfinished_ == nullptr) return;
  throw_if_interrupted();
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) fail();
  unfinished_.reset();
}

void OutputFile::fail(const std::string& fault) const {
  const int error = errno;
  throw_if_interrupted();
  throw InputError(name_, "cannot be written: " + (fault.empty() ? std::strerror(error) : fault));
}

void check_outputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs) {
  std::vector<NamedFile> others;
  others.reserve(inputs.size() + outputs.size());
  for (const std::string& input : inputs)
    others.push_back(input == "-" ? identify_stream(STDIN_FILENO, "standard input")
                                  : identify_file(input, "the input "));
  const auto add_output = [&](const NamedFile& output) {
    check_identity(output, others);
    others.push_back(output);
  };
  add_output(identify_stream(STDOUT_FILENO, "standard output"));
  for (const std::string& output : outputs) {
    if (!output.empty() && output != "-") add_output(identify_file(output, "the output "));
  }
  for (const std::string& output : outputs) {
    if (!output.empty() && output != "-") check_writable(output);
  }
}

void write_text_file(const std::string& path, std::string_view text) {
  if (path == "-") {
    throw_if_interrupted();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return flush_standard_output();
  }
  OutputFile output(path);
  output.write(text.data(), text.size());
  output.commit();
}

void flush_standard_output() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const int error = errno;
  throw_if_interrupted();
  if (error == EPIPE) throw ReaderGone();
  throw InputError("standard output", std::string("cannot be written: ") + std::strerror(error));
}
