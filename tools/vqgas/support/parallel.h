#pragma once
#include <functional>

#include "vq_of/of_app.h"

/// Calls `work` for slices of `length` that cover [0, count), on all threads of the application. Throws Interrupted
/// after a signal; `work` must not throw.
/// @param application  null: on the calling thread
void run_slices(OfApp* application, uint count, uint length, const std::function<void(uint first, uint end)>& work);
