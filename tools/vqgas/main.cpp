// tools/vqgas/main.cpp
//
// Exit codes: 0 done; 1 an input cannot be used or an output cannot be written; 2 invalid command line; 128 + the
// signal's number when interrupted, SIGPIPE when the reader of standard output has gone. All but 0 and that of SIGPIPE
// print an error on standard error.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/memory_lack.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/output_file.h"

namespace {

std::uint64_t free_memory = 0;  // in bytes, at the start

/// Errors after a signal are consequences of it.
int report_fault(const char* fault, int exit_code) {
  if (is_interrupted()) return report_interrupt();
  std::fprintf(stderr, "vqgas: %s\n", fault);
  return exit_code;
}

/// std::bad_alloc may come when nothing more can be allocated.
int report_lack_of_memory() {
  char fault[80];
  std::snprintf(fault, sizeof fault, "there is not enough memory; %.1f GB were free", 1e-9 * double(free_memory));
  return report_fault(fault, 1);
}

}  // namespace

int main(int argc, char** argv) {
  install_signal_handlers();
  free_memory = limit_memory();
  watch_library_messages();
  try {
    const int exit_code = run_command_line(argc, argv);
    flush_standard_output();
    throw_if_memory_lacked();
    return exit_code;
  } catch (const Interrupted&) {
    return report_interrupt();
  } catch (const ReaderGone&) {
    return 128 + SIGPIPE;
  } catch (const UsageError& error) {
    return report_fault(error.what(), 2);
  } catch (const std::bad_alloc&) {
    return report_lack_of_memory();
  } catch (const std::exception& error) {
    return report_fault(error.what(), 1);
  }
}
