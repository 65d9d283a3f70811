#include "fuzz/fuzz_sanitizer.h"

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>

#include <cstdlib>
#include <new>

// A refused allocation is an error of the file, as without sanitizers: malloc() returns null, operator new throws. The
// sanitizer's own operator new would end the process.
extern "C" const char* __asan_default_options() {
  return "exitcode=77:allocator_may_return_null=1:quarantine_size_mb=16:detect_stack_use_after_return=0:"
         "malloc_context_size=12";
}

// Not instrumented, and not ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libassimp\n"; }

bool has_leaks() { return __lsan_do_recoverable_leak_check() != 0; }

void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size > 0 ? size : 1); }
void* operator new(std::size_t size) {
  void* memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return operator new(size, std::nothrow); }
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
#else
bool has_leaks() { return false; }
#endif
