// tools/vqgas/import/import_guard.h
#pragma once
#include <functional>
#include <string>

/// Runs `work`, which reads the file `path` with code that is not this program's, and waits for it. What it throws
/// comes out of here. It has a thread with a stack of 56 MiB, so that files nested several times as deep as a common
/// stack allows can be followed by recursion; and should it break down there all the same, by that or by a fault of its
/// own, the program ends with exit code 1 and one line that names the file. One at a time.
void run_import_guarded(const std::string& path, const std::function<void()>& work);
