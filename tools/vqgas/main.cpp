// tools/vqgas/main.cpp
//
// Exit codes: 0 done; 1 something given cannot be used, told in one line on standard error; 2 the command line makes no
// sense; 128 + the signal's number when interrupted.
#include <cstdio>
#include <exception>
#include <new>

#include "tools/vqgas/command_line.h"
#include "tools/vqgas/input_error.h"
#include "tools/vqgas/output_file.h"

int main(int argc, char** argv) {
  install_interrupt_handler();
  try {
    return run_command_line(argc, argv);
  } catch (const InputError& error) {
    std::fprintf(stderr, "vqgas: %s\n", error.what());
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "vqgas: there is not enough memory\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vqgas: %s\n", error.what());
  }
  return 1;
}
