// Starts vqgas as a shell would and collects what it leaves behind.
#pragma once
#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

struct ProgramResult {
  int exit_code = -1;  ///< minus the signal's number when a signal ended it unhandled
  std::string out, err;
  std::string progress;       ///< the lines of standard error that tell the progress of long work, not in `err`
  double stop_seconds = 0.0;  ///< from the last signal to the end
  std::size_t count_error_lines() const;
};

/// Runs vqgas with these arguments in `folder`, standard input from `input`; standard output and error are files, as
/// behind a pipe.
/// @param output  where standard output goes instead, if not empty; it must exist
ProgramResult run_vqgas(const std::filesystem::path& folder, const std::vector<std::string>& arguments,
                        const std::string& input = "", const std::filesystem::path& output = {});
/// Runs it with standard error on a terminal, whose bytes are `err`.
/// @param environment  NAME=VALUE
ProgramResult run_vqgas_on_terminal(const std::filesystem::path& folder, const std::vector<std::string>& arguments,
                                    const std::string& environment);
/// Runs it with a standard input that never ends, and sends `signal` so many times, `milliseconds` after the program
/// began to handle it.
ProgramResult interrupt_vqgas(const std::filesystem::path& folder, const std::vector<std::string>& arguments,
                              int signal, int milliseconds, int times);

/// A folder of the running test's own, empty at first, removed with the object.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  const std::filesystem::path& get_path() const { return path_; }
  void write(const std::string& name, const std::string& bytes) const;
  std::string read(const std::string& name) const;
  std::vector<std::string> list() const;

 private:
  std::filesystem::path path_;
};

/// An axis-aligned cube around the origin as six outward quads of an OBJ file, in the order -x +x -y +y -z +z;
/// `first_vertex` counts from 1.
std::string make_cube_obj(double half_side, int first_vertex = 1);
