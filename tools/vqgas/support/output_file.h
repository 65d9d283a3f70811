// tools/vqgas/support/output_file.h
//
// Output files. A regular file is written under a temporary name in the same folder and renamed when it is complete;
// after an error or a signal the temporary file is removed and the old file unchanged. Devices and pipes are written
// directly.
#pragma once
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/vqgas/support/interrupt.h"

class OutputFile {
 public:
  /// Throws InputError when `path` is a folder, its folder is missing, or either cannot be written.
  explicit OutputFile(const std::string& path);
  /// Removes the file unless it was committed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// To write to. Writing fails after a signal.
  std::FILE* get_stream() const { return stream_; }
  void write(const void* bytes, std::size_t size);
  /// Completes the file. Throws Interrupted after a signal, InputError when any write has failed, and
  /// std::bad_alloc when the library lacked memory for what the file shows.
  void commit();
  /// Throws Interrupted after a signal, else InputError.
  /// @param fault  empty: what errno says
  [[noreturn]] void fail(const std::string& fault = "") const;

 private:
  void open_temporary();
  void discard();

  const std::string name_;  // as given, for errors
  std::string path_;        // links followed
  std::string temporary_;   // empty for devices and pipes
  std::unique_ptr<UnfinishedFile> unfinished_;
  int descriptor_ = -1;
  std::FILE* stream_ = nullptr;
};

/// Checks the files of a call before its work. Throws UsageError when an output is the same file as an input or another
/// output, by any path or link; InputError when an output cannot be written.
/// @param outputs  "-" is standard output, which is always compared; empty names are skipped
/// @param inputs   "-" is standard input
void check_outputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);

/// Writes a whole text file; "-" is standard output. Throws InputError.
void write_text_file(const std::string& path, std::string_view text);

/// Standard output is a pipe that its reader has closed, as `head` does. Not a std::exception: it is no fault.
class ReaderGone {};

/// Throws InputError or ReaderGone unless everything printed so far has reached standard output.
void flush_standard_output();
