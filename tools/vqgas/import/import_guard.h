// tools/vqgas/import/import_guard.h
#pragma once
#include <functional>
#include <string>

/// Runs `work`, which reads the file `path` with code of other libraries, waits for it and rethrows its exception. It
/// runs on a thread with a stack of 56 MiB, so recursion can follow files nested several times as deep as a usual stack
/// allows. If it crashes, the program ends with exit code 1 and one line that names the file; after a signal the
/// program ends at once, since the thread cannot be stopped. One at a time.
void run_import_guarded(const std::string& path, const std::function<void()>& work);
