#pragma once

/// Exit code of a process that a sanitizer ends.
inline constexpr int sanitizer_code = 77;

/// True if memory was leaked that was not reported before. Always false without the address sanitizer.
bool has_leaks();
