#include "tools/vqgas/support/interrupt.h"

#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

namespace {

constexpr char interrupted_line[] = "vqgas: interrupted\n";

/// From the first signal to the end of the program. A user takes 100 ms for immediate; the rest of them is for the
/// system, which frees some gigabytes of pages in that time.
constexpr long grace_nanoseconds = 30'000'000;

// State of the handler, which may neither allocate nor lock: plain arrays and lock-free atomics.
std::atomic<int> arrived_signal{0};
std::atomic<AppBase*> current_application{nullptr};
std::atomic<int> running_handlers{0};
std::atomic<bool> is_reported{false};
timer_t grace_timer;
std::atomic<bool> has_timer{false};
struct FileSlot {
  std::atomic<bool> is_taken{false};
  std::atomic<bool> is_set{false};
  std::array<char, 4096> path{};
};
std::array<FileSlot, 4> unfinished_files;
static_assert(std::atomic<AppBase*>::is_always_lock_free && std::atomic<int>::is_always_lock_free &&
              std::atomic<bool>::is_always_lock_free);

void write_error(const char* text, std::size_t size) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, size);
}

/// Once: a second signal may arrive after the main thread has written the line.
void write_interrupted_line() {
  if (!is_reported.exchange(true)) write_error(interrupted_line, sizeof(interrupted_line) - 1);
}

[[noreturn]] void end_at_once(int signal_number) {
  for (const FileSlot& file : unfinished_files) {
    if (file.is_set.load()) unlink(file.path.data());
  }
  constexpr char clear_line[] = "\r\033[K";
  if (isatty(STDERR_FILENO)) write_error(clear_line, sizeof(clear_line) - 1);
  write_interrupted_line();
  _exit(128 + signal_number);
}

extern "C" void receive_alarm(int) {
  if (const int signal_number = arrived_signal.load()) end_at_once(signal_number);
}

extern "C" void receive_signal(int signal_number) {
  if (arrived_signal.exchange(signal_number) != 0) end_at_once(signal_number);
  itimerspec grace = {};
  grace.it_value.tv_nsec = grace_nanoseconds;
  if (has_timer.load()) timer_settime(grace_timer, 0, &grace, nullptr);
  ++running_handlers;
  if (AppBase* application = current_application.load()) application->request_stop();
  --running_handlers;
}

}  // namespace

void install_signal_handlers() {
  struct sigaction action = {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a blocked read or open of a pipe returns
  sigevent alarm = {};
  alarm.sigev_notify = SIGEV_SIGNAL;
  alarm.sigev_signo = SIGALRM;
  action.sa_handler = receive_alarm;
  sigaction(SIGALRM, &action, nullptr);
  has_timer.store(timer_create(CLOCK_MONOTONIC, &alarm, &grace_timer) == 0);
  action.sa_handler = receive_signal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction former = {};
    sigaction(number, nullptr, &former);
    if (former.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);  // nohup, and shells' background jobs
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

bool is_interrupted() { return arrived_signal.load(std::memory_order_relaxed) != 0; }

void throw_if_interrupted() {
  if (is_interrupted()) throw Interrupted();
}

int report_interrupt() {
  write_interrupted_line();
  return 128 + arrived_signal.load();
}

StoppableApplication::StoppableApplication(uint thread_count)
    : OfApp(thread_count == 0 ? std::thread::hardware_concurrency() : thread_count) {
  current_application.store(this);
  if (arrived_signal.load() != 0) request_stop();  // the handler may have run just before
}

StoppableApplication::~StoppableApplication() {
  current_application.store(nullptr);
  // A handler on another thread may still hold the pointer.
  while (running_handlers.load() != 0) std::this_thread::yield();
}

UnfinishedFile::UnfinishedFile(const std::string& path) {
  for (std::size_t slot = 0; slot < unfinished_files.size() && slot_ < 0; ++slot) {
    FileSlot& file = unfinished_files[slot];
    if (path.size() >= file.path.size() || file.is_taken.exchange(true)) continue;
    std::memcpy(file.path.data(), path.c_str(), path.size() + 1);
    file.is_set.store(true);
    slot_ = static_cast<int>(slot);
  }
}

UnfinishedFile::~UnfinishedFile() {
  if (slot_ < 0) return;
  FileSlot& file = unfinished_files[static_cast<std::size_t>(slot_)];
  file.is_set.store(false);
  file.is_taken.store(false);
}
