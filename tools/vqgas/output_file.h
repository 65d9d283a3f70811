// tools/vqgas/output_file.h
//
// A file that appears whole or not at all: it is written under a temporary name beside its place and renamed when it is
// complete. A signal that ends the program removes it.
#pragma once
#include <string>
#include <string_view>

class OutputFile {
 public:
  /// Throws InputError when `path` is a folder or its folder is missing or cannot be written.
  explicit OutputFile(const std::string& path);
  /// Removes the unfinished file.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Where to write meanwhile.
  const std::string& get_temporary_path() const { return temporary_; }
  /// Moves the finished file to its place. Throws InputError when the system refuses.
  void commit();

 private:
  std::string path_;
  std::string temporary_;  // the path itself for pipes and devices, which cannot be renamed
  int slot_ = -1;          // in the table that the signal handler reads
  bool committed_ = false;
};

/// Tells before the work, not after it, that a file cannot be written: throws InputError. "-" and "" pass.
void check_output(const std::string& path);

/// Writes a whole text file; "-" is standard output. Throws InputError.
void write_text_file(const std::string& path, std::string_view text);

/// From now on an interrupt or a request to end removes unfinished files, clears the progress line and ends the program
/// with 128 + the signal's number.
void install_interrupt_handler();
