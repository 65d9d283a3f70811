#pragma once
#include "tools/vqgas/image/picture.h"

/// The layer beauty in another size: linear between pixels where it grows, their mean, weighted by nearness, where it
/// shrinks. Throws Interrupted.
Picture resample_beauty(const Picture& picture, uint width, uint height);
