#pragma once
#include <string>

class OfApp;

enum class FuzzOutcome {
  accepted,  ///< and it could be queried
  refused,   ///< with one line that names a file
  limited    ///< the same, because it asks for more memory than the limit allows
};

/// Writes the files to `folder` to which files of some kinds refer.
void write_fuzz_companions(const std::string& folder);

/// Reads the file `path` as the commands do. What was accepted gets its structures, and some rays, beams and a shutter.
/// Throws std::logic_error for an error that is not one line, or does not name a file in `folder`.
FuzzOutcome use_fuzz_file(OfApp& application, const std::string& folder, const std::string& path);
