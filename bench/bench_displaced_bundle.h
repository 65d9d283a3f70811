// bench/bench_displaced_bundle.h
//
// A bundle of displaced instances, each with its own structure, which the first ray that reaches it builds: how long
// until the first picture, if all or only a part is in view?
#pragma once
#include "vq_core/core_types.h"

/// Prints a row for all instances in view, and one for a tenth of them.
/// @param size  rays a side of the picture, which looks straight down
void bench_print_first_pictures(uint instance_count, uint size, uint thread_count);
