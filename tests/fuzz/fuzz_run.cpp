#include "fuzz/fuzz_run.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>

#include "fuzz/fuzz_files.h"
#include "fuzz/fuzz_mutator.h"
#include "fuzz/fuzz_sanitizer.h"
#include "vq_of/of_app.h"

namespace {

constexpr std::uint64_t batch_size = 500;
constexpr int done_code = 0, broken_code = 1, leak_code = 70, fault_code = 71;  // and sanitizer_code

/// In memory that parent and child share.
struct Progress {
  std::uint64_t current = 0;
  FuzzReport report;
};

std::string get_file_name(const std::string& folder, const FuzzFile& file) { return folder + "/f." + file.extension; }

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

double get_cpu_seconds() {
  timespec now = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

std::uint64_t get_peak_bytes() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

/// Of all private memory, in addition to what the process has.
void limit_memory() {
  std::uint64_t pages[6] = {};  // size resident shared text lib data
  std::ifstream statm("/proc/self/statm");
  for (std::uint64_t& value : pages) statm >> value;
  const rlim_t bytes = pages[5] * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + most_bytes;
  const rlimit limit = {bytes, bytes};
  if (setrlimit(RLIMIT_DATA, &limit) != 0) std::abort();
  const rlimit no_core = {0, 0};
  setrlimit(RLIMIT_CORE, &no_core);
}

/// SIGPROF ends the process after the processor time, SIGALRM one that waits for ever.
void set_timers(int seconds) {
  const itimerval timer = {{0, 0}, {seconds, 0}};
  setitimer(ITIMER_PROF, &timer, nullptr);
  alarm(static_cast<unsigned>(60 * seconds));
}

void run_file(OfApp& application, const FuzzKind& kind, const FuzzOptions& options, const std::string& folder,
              Progress& progress) {
  const FuzzFile file = make_fuzz_file(kind, options.seed, progress.current);
  const std::string path = get_file_name(folder, file);
  write_file(path, file.bytes);
  const double begin = get_cpu_seconds();
  const std::uint64_t peak = get_peak_bytes();
  set_timers(most_seconds);
  const FuzzOutcome outcome = use_fuzz_file(application, folder, path);
  set_timers(0);
  FuzzReport& report = progress.report;
  ++report.outcomes[static_cast<std::size_t>(outcome)];
  const double seconds = get_cpu_seconds() - begin;
  if (seconds > report.slowest_seconds) report.slowest_seconds = seconds, report.slowest_file = progress.current;
  const std::uint64_t growth = get_peak_bytes() - peak;
  if (growth > report.growth_bytes) report.growth_bytes = growth, report.growth_file = progress.current;
}

[[noreturn]] void run_child(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder,
                            Progress& progress) {
  const int log = open((folder + "/log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(log, STDERR_FILENO);
  limit_memory();
  try {
    OfApp application(1);
    for (std::uint64_t k = 0; k < options.count; ++k) {
      progress.current = options.first + k;
      run_file(application, kind, options, folder, progress);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    _exit(fault_code);
  }
  _exit(has_leaks() ? leak_code : done_code);
}

int run_batch(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder, Progress& progress) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) run_child(kind, options, folder, progress);
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) std::abort();
  return status;
}

std::string describe(int status) {
  if (WIFSIGNALED(status)) {
    const int number = WTERMSIG(status);
    if (number == SIGPROF || number == SIGALRM) return "takes too long";
    return std::string("signal ") + std::to_string(number);
  }
  switch (WEXITSTATUS(status)) {
    case leak_code:
      return "leaks";
    case fault_code:
      return "has an error that is not valid";
    case sanitizer_code:
      return "sanitizer";
    default:
      return "exit code " + std::to_string(WEXITSTATUS(status));
  }
}

bool is_broken(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == broken_code; }
bool is_done(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == done_code; }
bool is_leak(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == leak_code; }

/// Prints what the child wrote, and keeps both.
void report_failure(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder, std::uint64_t number,
                    const std::string& what) {
  const FuzzFile file = make_fuzz_file(kind, options.seed, number);
  std::ifstream log(folder + "/log");
  std::string text{std::istreambuf_iterator<char>(log), {}};
  if (!options.keep.empty()) {
    const std::string name = options.keep + "/" + kind.name + "_" + std::to_string(number);
    write_file(name + "." + file.extension, file.bytes);
    write_file(name + ".log", text);
  }
  const std::size_t summary = text.find("SUMMARY");
  text = summary != std::string::npos ? text.substr(summary) : text.substr(0, 300);
  while (text.ends_with('\n')) text.pop_back();
  std::printf("%s file %llu (.%s): %s: %s\n", kind.name.c_str(), static_cast<unsigned long long>(number),
              file.extension.c_str(), what.c_str(), text.c_str());
}

/// Leaks are found at the end of a batch: cuts it in halves down to the files.
std::uint64_t find_leaks(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder,
                         Progress& scratch) {
  if (!is_leak(run_batch(kind, options, folder, scratch))) return 0;
  if (options.count == 1) {
    report_failure(kind, options, folder, options.first, "leaks");
    return 1;
  }
  FuzzOptions half = options, other = options;
  half.count = options.count / 2;
  other.first += half.count, other.count -= half.count;
  const std::uint64_t found = find_leaks(kind, half, folder, scratch);
  return found + find_leaks(kind, other, folder, scratch);
}

}  // namespace

FuzzReport run_fuzz(const FuzzKind& kind, const FuzzOptions& options, const std::string& folder) {
  constexpr int access = PROT_READ | PROT_WRITE;
  void* memory = mmap(nullptr, 2 * sizeof(Progress), access, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  Progress& progress = *new (memory) Progress;
  Progress& scratch = *new (static_cast<Progress*>(memory) + 1) Progress;
  FuzzReport& report = progress.report;
  FuzzOptions batch = options;
  const std::uint64_t end = options.first + options.count;
  while (batch.first < end) {
    batch.count = std::min(batch_size, end - batch.first);
    const int status = run_batch(kind, batch, folder, progress);
    if (is_done(status) || is_leak(status)) {
      if (is_leak(status)) report.failures += std::max(find_leaks(kind, batch, folder, scratch), std::uint64_t{1});
      batch.first += batch.count;
      continue;
    }
    if (is_broken(status)) {
      ++report.broken;
      if (!options.keep.empty()) report_failure(kind, options, folder, progress.current, "breaks the importer down");
    } else {
      ++report.failures;
      report_failure(kind, options, folder, progress.current, describe(status));
    }
    batch.first = progress.current + 1;
  }
  const FuzzReport result = report;
  munmap(memory, 2 * sizeof(Progress));
  return result;
}
