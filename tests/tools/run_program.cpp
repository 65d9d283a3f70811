#include "tools/run_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

namespace {

namespace fs = std::filesystem;

std::string read_whole(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void redirect(int descriptor, const fs::path& path, int flags) {
  const int file = open(path.c_str(), flags, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
  close(file);
}

/// @param environment  NAME=VALUE, or empty
pid_t start(const fs::path& folder, std::vector<std::string> arguments, const fs::path& streams, const fs::path& output,
            const fs::path& errors, std::string environment = "") {
  std::vector<char*> words;
  arguments.insert(arguments.begin(), VQGAS_PROGRAM);
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) std::signal(signal, SIG_DFL);  // whatever started the tests
  redirect(STDIN_FILENO, streams / "in", O_RDONLY);
  redirect(STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC);
  redirect(STDERR_FILENO, errors, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY);
  if (!environment.empty()) putenv(environment.data());
  if (chdir(folder.c_str()) != 0) _exit(126);
  execv(words[0], words.data());
  _exit(127);
}

/// Whether the program has installed a handler: a bit of the line "SigCgt: <hexadecimal>".
bool handles_signal(pid_t child, int signal) {
  std::ifstream status("/proc/" + std::to_string(child) + "/status");
  for (std::string word; status >> word;) {
    if (word == "SigCgt:" && status >> word) return (std::stoull(word, nullptr, 16) >> (signal - 1) & 1) != 0;
  }
  return false;
}

ProgramResult finish(pid_t child, const fs::path& streams) {
  int status = 0;
  waitpid(child, &status, 0);
  ProgramResult result;
  result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  result.out = read_whole(streams / "out");
  std::istringstream lines(read_whole(streams / "err"));
  for (std::string line; std::getline(lines, line);) {
    const bool is_whole = !lines.eof();
    (line.starts_with("progress: ") ? result.progress : result.err).append(line).append(is_whole ? "\n" : "");
  }
  return result;
}

/// Keeps every report of the program, and validates them against the schemas after the last test.
class ReportCheck : public testing::Environment {
 public:
  void add(const std::string& report) {
    if (!folder_) folder_ = std::make_unique<TestFolder>();
    folder_->write(std::to_string(++count_) + ".json", report);
  }
  void TearDown() override {
    if (!folder_) return;
    const std::string script = VQGAS_TESTS "/check_reports.py", schemas = VQGAS_SCHEMAS;
    const std::string reports = folder_->get_path().string() + "/";
    const std::string command =
        "python3 '" + script + "' '" + schemas + "' " + reports + "*.json >" + reports + "faults 2>&1";
    if (std::system(command.c_str()) != 0) ADD_FAILURE() << folder_->read("faults");
  }

 private:
  std::unique_ptr<TestFolder> folder_;
  int count_ = 0;
};

ReportCheck& get_report_check() {
  static auto* check = dynamic_cast<ReportCheck*>(testing::AddGlobalTestEnvironment(new ReportCheck));
  return *check;
}

[[maybe_unused]] const ReportCheck& registered = get_report_check();

/// The reports of a successful run: --json and --format json, and the file of scatter. Devices have none.
void keep_reports(const fs::path& folder, const std::vector<std::string>& arguments, const ProgramResult& result) {
  for (std::size_t k = 1; k < arguments.size(); ++k) {
    const std::string &option = arguments[k - 1], &value = arguments[k];
    const bool is_printed = (option == "--json" && value == "-") || (option == "--format" && value == "json");
    const bool is_file =
        (option == "--json" && !value.starts_with('/')) || (option == "-o" && arguments[0] == "scatter");
    if (is_printed && !result.out.empty()) get_report_check().add(result.out);
    if (!is_printed && is_file && fs::is_regular_file(folder / value))
      get_report_check().add(read_whole(folder / value));
  }
}

}  // namespace

std::size_t ProgramResult::count_error_lines() const {
  return static_cast<std::size_t>(std::count(err.begin(), err.end(), '\n'));
}

ProgramResult run_vqgas(const fs::path& folder, const std::vector<std::string>& arguments, const std::string& input,
                        const fs::path& output) {
  const TestFolder streams;
  streams.write("in", input);
  const fs::path out = output.empty() ? streams.get_path() / "out" : output;
  const ProgramResult result =
      finish(start(folder, arguments, streams.get_path(), out, streams.get_path() / "err"), streams.get_path());
  if (result.exit_code == 0) keep_reports(folder, arguments, result);
  return result;
}

ProgramResult run_vqgas_on_terminal(const fs::path& folder, const std::vector<std::string>& arguments,
                                    const std::string& environment) {
  const TestFolder streams;
  streams.write("in", "");
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) ADD_FAILURE() << "no terminal";
  const std::string name = ptsname(terminal);
  // Held open, so that reading waits before the program has opened its end.
  const int held = open(name.c_str(), O_RDWR | O_NOCTTY);
  const pid_t child = start(folder, arguments, streams.get_path(), streams.get_path() / "out", name, environment);
  const auto is_running = [&] {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
  };
  std::string bytes;
  std::array<char, 4096> piece;
  for (bool running = true; running;) {
    running = is_running();
    pollfd waiting = {terminal, POLLIN, 0};
    while (poll(&waiting, 1, 10) > 0) {
      const ssize_t size = read(terminal, piece.data(), piece.size());
      bytes.append(piece.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
  }
  ProgramResult result = finish(child, streams.get_path());
  result.err = bytes;
  close(held);
  close(terminal);
  return result;
}

ProgramResult interrupt_vqgas(const fs::path& folder, const std::vector<std::string>& arguments, int signal,
                              int milliseconds, int times) {
  const TestFolder streams;
  const fs::path input = streams.get_path() / "in";
  mkfifo(input.c_str(), 0600);
  const int writer = open(input.c_str(), O_RDWR);
  const pid_t child =
      start(folder, arguments, streams.get_path(), streams.get_path() / "out", streams.get_path() / "err");
  for (int wait = 0; wait < 5000 && !handles_signal(child, signal); ++wait) usleep(1000);
  usleep(static_cast<useconds_t>(milliseconds) * 1000);
  for (int k = 0; k < times; ++k) kill(child, signal);
  const auto stopped = std::chrono::steady_clock::now();
  ProgramResult result = finish(child, streams.get_path());
  result.stop_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - stopped).count();
  close(writer);
  return result;
}

TestFolder::TestFolder() {
  std::string name = (fs::temp_directory_path() / "vqgas_test_XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) ADD_FAILURE() << "no folder for the test";
  path_ = name;
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void TestFolder::write(const std::string& name, const std::string& bytes) const {
  std::ofstream(path_ / name, std::ios::binary) << bytes;
}

std::string TestFolder::read(const std::string& name) const { return read_whole(path_ / name); }

std::vector<std::string> TestFolder::list() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(path_)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string make_cube_obj(double half_side, int first_vertex) {
  std::ostringstream obj;
  for (int corner = 0; corner < 8; ++corner) {
    obj << 'v';
    for (const int axis : {1, 2, 4}) obj << ' ' << (corner & axis ? half_side : -half_side);
    obj << '\n';
  }
  const int quads[6][4] = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
  for (const auto& quad : quads) {
    obj << 'f';
    for (const int corner : quad) obj << ' ' << corner + first_vertex;
    obj << '\n';
  }
  return obj.str();
}
