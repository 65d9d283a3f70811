// tools/vqgas/demo/demo_mills.h
//
// What the scene "mills" is put together from. Shapes stand on the ground, or have their own middle or joint at the
// origin; z is where they look.
#pragma once
#include "tools/vqgas/demo/demo_placing.h"
#include "tools/vqgas/source/scene_source.h"

/// The island, laid out as it is seen from the default view: `across` to the right, `near` towards the eye, both from
/// the middle.
struct MillsLand {
  static constexpr double radius = 10.0, water_level = -0.28;

  static double get_height(double across, double near);
  /// On the ground.
  static Point get_place(double across, double near);
  /// The level ways to the right and towards the eye.
  static Point get_across() { return {0.8269, 0.0, -0.5623}; }
  static Point get_near() { return {0.5623, 0.0, 0.8269}; }
  /// Turns z into the way towards the eye.
  static Matrix face_eye() { return map_to({{}, get_across(), {0, 1, 0}, get_near()}); }
  static bool is_in_beds(double across, double near);
};

MeshSource make_mills_land();
/// Moves.
MeshSource make_mills_water();

constexpr uint mills_colors = 4;
MeshSource make_mills_pole();
/// Six bent blades around z, of one of the colours and white in turn.
MeshSource make_mills_pinwheel(uint color);
MeshSource make_mills_tulip(uint color);
MeshSource make_mills_tuft();
MeshSource make_mills_round_tree();
MeshSource make_mills_tall_tree();

struct MillsTower {
  static constexpr double axle_height = 2.28, axle_end = 0.7;
};
MeshSource make_mills_tower();
/// One of four: it reaches up from the axle.
MeshSource make_mills_sail();

MeshSource make_mills_bird_body();
/// The right one, on the side of -x; it flaps.
MeshSource make_mills_bird_wing();
MeshSource make_mills_sheep_body();
MeshSource make_mills_sheep_head();
HairSource make_mills_wool();
MeshSource make_mills_hull();
/// It fills with wind.
MeshSource make_mills_boat_sail();
MeshSource make_mills_balloon();
