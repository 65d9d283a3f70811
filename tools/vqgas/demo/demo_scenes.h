// tools/vqgas/demo/demo_scenes.h
//
// The built-in scenes, made by code, y up. The same call gives the same bytes.
#pragma once
#include <string>
#include <string_view>

#include "tools/vqgas/source/scene_source.h"

class OfApp;

/// Begins the name of a built-in scene where files are expected.
inline constexpr std::string_view demo_prefix = "demo:";

/// The scene of that name. Throws InputError when there is none, Interrupted.
/// @param application  whose threads make it; null: the calling thread
SceneSource make_demo_scene(const std::string& name, OfApp* application);
/// All names, separated by commas.
std::string list_demo_scenes();

/// A trefoil knot as a tube of quads.
MeshSource make_demo_knot();
/// A mountain landscape of half a million triangles.
MeshSource make_demo_terrain();
/// A canyon with a river, of rock in layers: displaced, on a grid, more than a hundred million micro-triangles.
SceneSource make_demo_cliffs();
/// A colonnade with a knot, gears, stars, spheres and a chain: polygons of 3 to 80 corners, many of them concave.
MeshSource make_demo_gallery();
/// A painted vessel whose UV layout has three tiles.
MeshSource make_demo_amphora();
/// A ring-shaped wave runs through a pond in which a ball floats. Moves over the times 0 to 1.
MeshSource make_demo_wave();
/// A cube of jelly that twists, sways and springs. Moves over the times 0 to 1.
MeshSource make_demo_jelly();
/// A creature with a thick patched fur.
SceneSource make_demo_fur();
/// Young fern, unrolling: a few large, curled, tapered tubes.
SceneSource make_demo_strands();
/// A meadow through which a gust runs. Moves over the times 0 to 1.
SceneSource make_demo_wind();
/// An island in the wind: mills, pinwheels, tulips, birds, sheep and boats, some thousand objects that share two dozen
/// shapes. Moves over the times 0 to 1.
SceneSource make_demo_mills();
/// The same island in the snow: clouds of flakes, which fall. Moves over the times 0 to 1.
SceneSource make_demo_snow();
/// A clearing with a pond between wooded hills: more than fifty thousand plants, instances of two dozen shapes, on
/// displaced ground. Moves over the times 0 to 1, and on.
SceneSource make_demo_forest();
/// A spiral galaxy: a cloud of ten million points.
SceneSource make_demo_galaxy(OfApp* application);
