// tools/vqgas/demo/demo_mills.h
//
// The shapes of the scene "mills". Each stands on the ground, or has its center or joint at the origin; it faces z.
#pragma once
#include "tools/vqgas/demo/demo_placing.h"
#include "tools/vqgas/source/scene_source.h"

/// The island in coordinates of the default view: `across` to the right, `near` towards the eye, both from its center.
struct MillsLand {
  static constexpr double radius = 10.0, water_level = -0.28;

  static double get_height(double across, double near);
  /// The point on the ground.
  static Point get_place(double across, double near);
  /// The horizontal directions to the right and towards the eye.
  static Point get_across() { return {0.8269, 0.0, -0.5623}; }
  static Point get_near() { return {0.5623, 0.0, 0.8269}; }
  /// Rotates z to the direction towards the eye.
  static Matrix face_eye() { return map_to({{}, get_across(), {0, 1, 0}, get_near()}); }
  static bool is_in_beds(double across, double near);
};

MeshSource make_mills_land();
/// Moving.
MeshSource make_mills_water();

constexpr uint mills_colors = 4;
MeshSource make_mills_pole();
/// Six bent blades around z, of one of the colors and white in turn.
MeshSource make_mills_pinwheel(uint color);
MeshSource make_mills_tulip(uint color);
MeshSource make_mills_tuft();
MeshSource make_mills_round_tree();
MeshSource make_mills_tall_tree();

struct MillsTower {
  static constexpr double axle_height = 2.28, axle_end = 0.7;
};
MeshSource make_mills_tower();
/// One of four, upwards from the axle.
MeshSource make_mills_sail();

MeshSource make_mills_bird_body();
/// The right one, on the side of -x; moving.
MeshSource make_mills_bird_wing();
MeshSource make_mills_sheep_body();
MeshSource make_mills_sheep_head();
HairSource make_mills_wool();
MeshSource make_mills_hull();
/// Moving.
MeshSource make_mills_boat_sail();
MeshSource make_mills_balloon();
