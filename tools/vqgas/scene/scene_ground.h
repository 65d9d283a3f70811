#pragma once
#include <vector>

#include "tools/vqgas/source/groom.h"

class QueryScene;

/// Moves points of the ground's meshes as they are before displacement: along their normals, to whichever side it is
/// nearer, onto the displaced surface, and gives them its normals. A point whose line misses the ground, as at the rim
/// of a sheet, stays.
void move_to_displaced(const QueryScene& ground, std::vector<GroomSurface::Root>& points);
