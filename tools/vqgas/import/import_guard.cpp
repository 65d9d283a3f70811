#include "tools/vqgas/import/import_guard.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <exception>

#include "tools/vqgas/support/input_error.h"

namespace {

constexpr std::size_t stack_bytes = std::size_t{56} << 20;  // sanitizers reject more than 64 MiB
constexpr std::array<int, 4> crash_signals = {SIGSEGV, SIGBUS, SIGFPE, SIGABRT};

const std::string* last_line = nullptr;  // written by the handler

/// The crashed thread's data may be damaged: no destructors, no buffers.
void end_program(int) {
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, last_line->data(), last_line->size());
  _exit(1);
}

/// Handles crash signals during its lifetime.
class CrashHandlers {
 public:
  CrashHandlers() {
    struct sigaction action = {};
    action.sa_handler = end_program;
    action.sa_flags = SA_ONSTACK;  // the thread's stack may be full
    for (std::size_t k = 0; k < crash_signals.size(); ++k) sigaction(crash_signals[k], &action, &former_[k]);
  }
  ~CrashHandlers() {
    for (std::size_t k = 0; k < crash_signals.size(); ++k) sigaction(crash_signals[k], &former_[k], nullptr);
    last_line = nullptr;  // its text ends with the guarded call
  }
  CrashHandlers(const CrashHandlers&) = delete;
  CrashHandlers& operator=(const CrashHandlers&) = delete;

 private:
  std::array<struct sigaction, crash_signals.size()> former_ = {};
};

struct GuardedWork {
  const std::function<void()>& work;
  std::exception_ptr fault;
};

void* run(void* guarded) {
  GuardedWork& at = *static_cast<GuardedWork*>(guarded);
  std::array<char, 64 * 1024> signal_stack;
  stack_t stack = {}, former = {};
  stack.ss_sp = signal_stack.data();
  stack.ss_size = signal_stack.size();
  sigaltstack(&stack, &former);
  try {
    at.work();
  } catch (...) {
    at.fault = std::current_exception();
  }
  sigaltstack(&former, nullptr);
  return nullptr;
}

}  // namespace

void run_import_guarded(const std::string& path, const std::function<void()>& work) {
  const std::string line = "vqgas: " + path + ": the importer breaks down over it\n";
  last_line = &line;
  const CrashHandlers handlers;
  GuardedWork guarded{work, nullptr};
  pthread_attr_t attributes;
  pthread_t thread;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack_bytes);
  const bool is_started = pthread_create(&thread, &attributes, run, &guarded) == 0;
  pthread_attr_destroy(&attributes);
  if (!is_started) throw InputError(path, "asks for more memory than there is");
  pthread_join(thread, nullptr);
  if (guarded.fault) std::rethrow_exception(guarded.fault);
}
