// tools/vqgas/support/interrupt.h
//
// Ctrl-C (SIGINT), SIGTERM and SIGHUP. The first signal only sets a flag, and asks the application's builds to stop;
// long loops read the flag, and Interrupted carries the program out to main(), past every destructor. A second signal
// ends the program at once.
#pragma once
#include <string>

#include "vq_app_base/app_base.h"

/// Thrown by throw_if_interrupted(). No std::exception, so that nobody takes it for a fault of a file.
class Interrupted {};

/// From now on the three signals work as described, except those that the program was started to ignore. Output into a
/// closed pipe or beyond a limit becomes an error of that write.
void install_signal_handlers();

/// True once a signal has arrived. For any thread; costs one atomic read.
bool is_interrupted();
/// Not for tasks of the thread pool: they return early instead, and the thread that waits for them throws.
void throw_if_interrupted();
/// Prints "vqgas: interrupted" and returns the exit code, 128 + the signal's number.
int report_interrupt();
/// Ends the program without destructors, for when another thread cannot be stopped. Removes unfinished files.
[[noreturn]] void end_interrupted();

/// The application of one call: a signal requests it to stop. One at a time.
class StoppableApplication : public AppBase {
 public:
  /// @param thread_count  0: as many as the machine runs at once
  explicit StoppableApplication(uint thread_count);
  ~StoppableApplication() override;
};

/// The name of an unfinished file, which a signal that ends the program at once removes.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string& path);
  /// The file is removed by now, or no longer unfinished.
  ~UnfinishedFile();
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

 private:
  int slot_ = -1;  // in the table that the signal handler reads
};
