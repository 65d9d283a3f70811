// tools/vqgas/demo/demo_forest.h
//
// The plants of the scene "forest". Each stands at the origin, y up.
#pragma once
#include "tools/vqgas/source/scene_source.h"

/// Colors of one plant, as 0xRRGGBB.
struct ForestColors {
  uint main, second;
};

/// A tuft of grass as hair; `has_ears` puts ears on some of its blades.
HairSource make_forest_grass(uint seed, uint color, bool has_ears);
/// A stem with two leaves and a round bloom.
MeshSource make_forest_flower(const ForestColors& colors);
/// Drooping fronds around a middle.
MeshSource make_forest_fern(uint seed, uint color);
MeshSource make_forest_bush(uint seed, uint color);
/// Tiers of branches around a trunk; `main` is the needles.
MeshSource make_forest_conifer(uint seed, const ForestColors& colors);
/// A trunk and a crown of several lumps; `main` is the leaves.
MeshSource make_forest_tree(uint seed, const ForestColors& colors);
MeshSource make_forest_stone(uint seed);
