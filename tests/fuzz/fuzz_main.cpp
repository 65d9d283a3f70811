// tests/fuzz/fuzz_main.cpp
//
// vqgas_fuzz [--kind NAME] [--count N] [--seed S] [--first K] [--keep FOLDER]
//
// Reads damaged files of one kind, or of all, with the program's readers. Prints a line a kind; exit code 1 if a file
// failed. `--first K --count 1` repeats file K alone.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "fuzz/fuzz_files.h"
#include "fuzz/fuzz_run.h"

namespace {

struct Options : FuzzOptions {
  std::string kind;
};

Options parse(int argc, char** argv) {
  Options options;
  for (int k = 1; k < argc; k += 2) {
    const std::string name = argv[k], value = k + 1 < argc ? argv[k + 1] : "";
    if (value.empty()) throw std::runtime_error(name + " needs a value");
    if (name == "--kind") {
      options.kind = value;
    } else if (name == "--keep") {
      options.keep = value;
    } else if (name == "--count" || name == "--seed" || name == "--first") {
      (name == "--count" ? options.count : name == "--seed" ? options.seed : options.first) = std::stoull(value);
    } else {
      throw std::runtime_error(name + " is no option");
    }
  }
  return options;
}

/// A folder of its own, removed at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() : path_(std::filesystem::temp_directory_path() / "vqgas_fuzz_XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder can be made");
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& get_path() const { return path_; }

 private:
  std::string path_;
};

/// True if no file failed.
bool run_kind(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder) {
  const FuzzReport report = run_fuzz(kind, options, folder);
  const auto print = [](std::uint64_t number) { return static_cast<unsigned long long>(number); };
  std::printf(
      "%s: %llu files, %llu accepted, %llu refused, %llu beyond memory, %llu broke the importer, %llu failed; "
      "slowest %.3f s (file %llu), most memory %llu MB (file %llu)\n",
      kind.name.c_str(), print(options.count), print(report.outcomes[0]), print(report.outcomes[1]),
      print(report.outcomes[2]), print(report.broken), print(report.failures), report.slowest_seconds,
      print(report.slowest_file), print(report.growth_bytes >> 20), print(report.growth_file));
  return report.failures == 0 && report.outcomes[0] > 0;
}

}  // namespace

int main(int argc, char** argv) try {
  const Options options = parse(argc, argv);
  if (!options.keep.empty()) std::filesystem::create_directories(options.keep);
  const TemporaryFolder folder;
  write_fuzz_companions(folder.get_path());
  bool is_good = true, is_known = false;
  for (const FuzzKind& kind : get_fuzz_kinds()) {
    if (!options.kind.empty() && kind.name != options.kind) continue;
    is_known = true;
    is_good &= run_kind(kind, options, folder.get_path());
  }
  if (!is_known) throw std::runtime_error("no kind is called " + options.kind);
  return is_good ? 0 : 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "vqgas_fuzz: %s\n", error.what());
  return 2;
}
