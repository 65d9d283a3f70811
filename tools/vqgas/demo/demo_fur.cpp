// tools/vqgas/demo/demo_fur.cpp
#include <algorithm>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"
#include "tools/vqgas/source/groom.h"

namespace {

const Point body_center(0.0, 1.02, 0.0);
const Point eyes[2] = {{-0.36, 1.32, 0.86}, {0.36, 1.32, 0.86}};
constexpr double eye_radius = 0.2;

double get_body_relief(const Point& p) {
  return 1.0 + 0.1 * std::pow(std::fmax(0.0, p.y), 3.0) - 0.06 * p.y + 0.03 * std::sin(5.0 * p.x) * std::sin(5.0 * p.z);
}

/// Of two kinds of fur: bands that run around the body and waver.
uint choose_group(const Point& root) {
  const Point d = root - body_center;
  const double waver = 0.35 * std::sin(4.0 * std::atan2(d.x, d.z)) + 0.15 * std::sin(9.0 * d.x + 3.0);
  return std::sin(6.5 * d.y + 2.2 * waver) > 0.25 ? 1 : 0;
}

/// Removes curves over the eyes, and sets the group of each of the others.
void sort_curves(CurveData& fur) {
  CurveData kept;
  kept.group_names = {CoreString("fur sand"), CoreString("fur brown")};
  auto first = fur.points.begin();
  for (const u32 size : fur.curve_sizes) {
    const Point root(first->position);
    const bool is_free = std::all_of(std::begin(eyes), std::end(eyes),
                                     [&](const Point& eye) { return (root - eye).get_length() > 1.25 * eye_radius; });
    if (is_free) {
      kept.points.insert(kept.points.end(), first, first + size);
      kept.curve_sizes.push_back(size);
      kept.curve_groups.push_back(choose_group(root));
    }
    first += size;
  }
  fur = std::move(kept);
}

MeshSource make_body() {
  MeshBuilder builder;
  const uint skin = builder.add_group("skin", color_from_srgb(0x8a6a4c));
  add_sphere(builder, body_center, 1.0, 96, skin, get_body_relief);
  return builder.finish();
}

HairSource make_fur() {
  PolyMesh mesh;
  create_groom_mesh(make_body(), 180.0, mesh);
  GroomSettings settings;
  settings.curves = 64000;
  settings.length = 0.085;
  settings.thickness = 0.0016;
  settings.lean = 0.65;
  settings.gravity = 0.45;
  settings.clump = 0.55;
  settings.curl = 0.5;
  HairSource fur;
  fur.data = grow_fur(GroomSurface(mesh), settings, nullptr);
  fur.group_colors = {color_from_srgb(0xd8a868), color_from_srgb(0x8a5230)};
  sort_curves(fur.data);
  return fur;
}

}  // namespace

SceneSource make_demo_fur() {
  MeshBuilder builder;
  builder.append(make_body());
  const uint white = builder.add_group("eyes", color_from_srgb(0xf4f1ea));
  const uint black = builder.add_group("pupils", color_from_srgb(0x1c1a1a));
  const uint horn = builder.add_group("feet", color_from_srgb(0xc9803f));
  for (const Point& eye : eyes) {
    add_sphere(builder, eye, eye_radius, 64, white);
    const Point gaze = (Point(0.25 * eye.x, 1.5, 3.0) - eye).get_normalized();
    add_sphere(builder, eye + gaze * (0.45 * eye_radius), 0.62 * eye_radius, 64, black);
    const Point foot(1.25 * eye.x, -0.12, 0.75);
    add_sphere(builder, foot, 0.36, 64, horn,
               [](const Point& p) { return 1.0 / std::sqrt(p.x * p.x * 1.5 + p.y * p.y * 8.0 + p.z * p.z * 0.8); });
  }
  SceneSource scene;
  scene.add_object("creature", builder.finish());
  scene.add_object("fur", make_fur());
  return scene;
}
