// tools/vqgas/support/memory_lack.h
//
// The library goes on without what it has no memory for, and says so in its log. The program gives no result then.
#pragma once
#include <string_view>

/// Prints the library's messages to standard error, one a line, and looks through them, from now on.
void watch_library_messages();
/// Called with each message that is not printed at once.
void note_library_message(std::string_view message);
/// Throws std::bad_alloc if a message told that there was no memory.
void throw_if_memory_lacked();
