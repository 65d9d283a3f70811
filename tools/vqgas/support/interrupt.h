// tools/vqgas/support/interrupt.h
//
// Ctrl-C (SIGINT), SIGTERM and SIGHUP. The first signal sets a flag and requests the application to stop. Long loops
// read the flag; the main thread then throws Interrupted, which main() catches. What does not stop in time, such as a
// reader of another library, or a large file on its way to a slow disk, is ended with the program by a timer. A second
// signal ends the program at once. Unfinished files are removed in every case.
#pragma once
#include <string>

#include "vq_of/of_app.h"

/// Thrown by throw_if_interrupted(). Not a std::exception, so no handler for errors of a file catches it.
class Interrupted {};

/// Installs the handlers, except for signals that the program was started to ignore. SIGPIPE and SIGXFSZ are ignored:
/// writing to a closed pipe or beyond the file-size limit fails with an error.
void install_signal_handlers();

/// True once a signal has arrived. For any thread; costs one atomic read.
bool is_interrupted();
/// Not for tasks of the thread pool: they return early, and the thread that waits for them throws.
void throw_if_interrupted();
/// Prints "vqgas: interrupted" and returns the exit code, 128 + the signal's number.
int report_interrupt();

/// The application of one call; a signal requests it to stop. One at a time.
class StoppableApplication : public OfApp {
 public:
  /// @param thread_count  0: as many as the machine runs at once
  explicit StoppableApplication(uint thread_count);
  ~StoppableApplication() override;
};

/// Registers the name of an unfinished file, which is removed when a signal ends the program at once.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string& path);
  /// To be called after the file was removed or renamed.
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

 private:
  int slot_ = -1;  // in the table that the signal handler reads
};
