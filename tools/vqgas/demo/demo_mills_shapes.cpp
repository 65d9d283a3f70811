#include <numbers>

#include "tools/vqgas/demo/demo_mills.h"
#include "tools/vqgas/source/groom.h"

namespace {

using std::numbers::pi;

void add_fleece(MeshBuilder& builder, uint group) {
  add_sphere(builder, {0.0, 0.3, 0.0}, 0.22, 32, group,
             [](const Point& p) { return 1.0 / std::sqrt(1.35 * p.x * p.x + 1.3 * p.y * p.y + 0.55 * p.z * p.z); });
}

/// Half as wide as the hull is at `u`, from -1 at the stern to 1 at the bow.
double get_hull_width(double u) {
  return 0.13 * std::sqrt(std::fmax(0.0, 1.0 - std::pow(std::fabs(0.5 * u + 0.5), 3.0)));
}

}  // namespace

MeshSource make_mills_tower() {
  MeshBuilder builder;
  const uint wall = builder.add_group("tower", color_from_srgb(0xefe7d8));
  const uint wood = builder.add_group("tower wood", color_from_srgb(0x7d5a45));
  const uint dark = builder.add_group("door and windows", color_from_srgb(0x4d5560));
  add_lathe(builder, {}, {{0.66, -0.5}, {0.66, 0.06}, {0.6, 0.12}, {0.4, 1.9}, {0, 1.9}}, 8, wall);
  add_lathe(builder, {}, {{0.5, 0.78}, {0.8, 0.8}, {0.8, 0.86}, {0.5, 0.86}}, 48, wood);
  for (uint post = 0; post < 24; ++post) {
    const Frame frame = Frame::turned({}, 2.0 * pi * post / 24.0);
    add_prism(builder, {frame.map({0.765, 0.86, 0.0}), frame.x, frame.y, frame.z},
              {{0, 0}, {0.018, 0}, {0.018, 0.17}, {0, 0.17}}, 0.018, wood);
  }
  add_tube(
      builder, [](double t) { return Point(0.775 * std::cos(2 * pi * t), 1.04, 0.775 * std::sin(2 * pi * t)); }, 72, 6,
      0.016, wood);
  add_lathe(builder, {}, {{0.44, 1.88}, {0.47, 1.94}, {0.44, 2.2}, {0.34, 2.45}, {0.18, 2.6}, {0, 2.64}}, 32, wood);
  const Frame along{{0.0, MillsTower::axle_height, 0.0}, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}};
  add_lathe(builder, along, {{0.08, 0.0}, {0.08, MillsTower::axle_end}, {0, MillsTower::axle_end + 0.05}}, 16, dark);
  add_box(builder, {-0.14, 0.05, 0.5}, {0.28, 0.5, 0.09}, dark);
  add_box(builder, {-0.08, 1.15, 0.4}, {0.16, 0.22, 0.08}, dark);
  return builder.finish();
}

MeshSource make_mills_sail() {
  MeshBuilder builder;
  const uint wood = builder.add_group("sail wood", color_from_srgb(0x8b6248));
  const uint cloth = builder.add_group("sail cloth", color_from_srgb(0xdfae84));
  add_box(builder, {-0.035, 0.0, -0.03}, {0.07, 1.86, 0.06}, wood);
  for (const double x : {0.19, 0.4}) add_box(builder, {x, 0.36, -0.012}, {0.022, 1.5, 0.024}, wood);
  for (uint bar = 0; bar <= 10; ++bar) add_box(builder, {-0.1, 0.36 + 0.148 * bar, -0.01}, {0.52, 0.02, 0.02}, wood);
  const auto place = [](double u, double v) {
    return Point(0.03 + 0.37 * u, 0.38 + 1.46 * v, 0.03 + 0.05 * std::sin(pi * u) * (0.6 + 0.4 * v));
  };
  add_sheet(builder, 8, 12, place, [&](double, double) { return cloth; });
  return builder.finish();
}

MeshSource make_mills_bird_body() {
  MeshBuilder builder;
  const uint feathers = builder.add_group("bird", color_from_srgb(0x3e4a5c));
  add_sphere(builder, {}, 0.05, 16, feathers, [](const Point& p) {
    return 1.0 / std::sqrt(p.x * p.x * 1.2 + p.y * p.y * 1.6 + p.z * p.z * (p.z > 0.0 ? 0.2 : 0.12));
  });
  add_prism(builder, {{0, 0, -0.24}, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}}, {{-0.06, 0}, {0, 0.05}, {0.06, 0}, {0, 0.16}},
            0.006, feathers);
  return builder.finish();
}

MeshSource make_mills_bird_wing() {
  MeshBuilder builder;
  const uint feathers = builder.add_group("wing", color_from_srgb(0x4b596d));
  const uint tip = builder.add_group("wing tip", color_from_srgb(0x2c3644));
  const auto place = [](double u, double v) {
    const double chord = 0.12 * std::sqrt(1.0 - 0.93 * u) + 0.01, sweep = 0.07 * std::sin(2.2 * u) - 0.16 * u * u;
    return Point(-0.01 - 0.34 * u, 0.012 * std::sin(pi * v), sweep + chord * (v - 0.45));
  };
  add_sheet(builder, 14, 4, place, [&](double u, double) { return u > 0.7 ? tip : feathers; });
  MeshSource source = builder.finish_unwelded();
  // The wing turns at its root and bends along its length, its tip later than its root.
  add_motion(source, [](uint, const Point& p, double t) {
    const double way = -p.x, angle = 0.25 + 0.75 * std::cos(2.0 * pi * t - 3.5 * way);
    return Point(-way * std::cos(angle), p.y + way * std::sin(angle), p.z - 0.06 * way * std::sin(angle));
  });
  return source;
}

MeshSource make_mills_sheep_body() {
  MeshBuilder builder;
  const uint skin = builder.add_group("sheep skin", color_from_srgb(0xe6dccb));
  const uint leg = builder.add_group("sheep legs", color_from_srgb(0x4a423c));
  add_fleece(builder, skin);
  for (const double x : {-0.09, 0.09}) {
    for (const double z : {-0.14, 0.14})
      add_lathe(builder, {{x, 0, z}}, {{0, 0}, {0.028, 0}, {0.022, 0.06}, {0.03, 0.25}, {0, 0.25}}, 10, leg);
  }
  return builder.finish();
}

MeshSource make_mills_sheep_head() {
  MeshBuilder builder;
  const uint face = builder.add_group("sheep head", color_from_srgb(0x544a43));
  add_sphere(builder, {0, 0.0, 0.08}, 0.06, 20, face,
             [](const Point& p) { return 1.0 / std::sqrt(1.5 * p.x * p.x + 1.2 * p.y * p.y + 0.35 * p.z * p.z); });
  for (const double side : {-1.0, 1.0}) {
    add_sphere(builder, {0.07 * side, 0.035, 0.02}, 0.03, 12, face,
               [](const Point& p) { return 1.0 / std::sqrt(0.35 * p.x * p.x + 4.0 * p.y * p.y + 2.0 * p.z * p.z); });
  }
  return builder.finish();
}

HairSource make_mills_wool() {
  MeshBuilder builder;
  add_fleece(builder, builder.add_group("fleece", {}));
  PolyMesh mesh;
  create_groom_mesh(builder.finish(), 180.0, mesh);
  GroomSettings settings;
  settings.curves = 2600;
  settings.length = 0.055;
  settings.thickness = 0.012;
  settings.gravity = 0.2;
  settings.clump = 0.6;
  settings.curl = 0.9;
  HairSource wool;
  wool.data = grow_fur(GroomSurface(mesh), settings, nullptr);
  wool.data.group_names = {CoreString("wool")};
  wool.group_colors = {color_from_srgb(0xf4eee0)};
  return wool;
}

MeshSource make_mills_hull() {
  MeshBuilder builder;
  const uint hull = builder.add_group("hull", color_from_srgb(0x9c5b45));
  const uint deck = builder.add_group("deck", color_from_srgb(0xd9b98a));
  const auto place = [](double u, double v) {
    const double along = 2.0 * u - 1.0, angle = pi * v, width = get_hull_width(along);
    const double depth = 0.12 * std::sqrt(width / 0.13);
    return Point(width * std::cos(angle), 0.07 + 0.03 * along * along - depth * std::sin(angle), 0.4 * along);
  };
  add_sheet(builder, 24, 12, place, [&](double, double) { return hull; });
  const auto place_deck = [](double u, double v) {
    const double along = 2.0 * v - 1.0;
    return Point(get_hull_width(along) * (1.0 - 2.0 * u), 0.05 + 0.03 * along * along, 0.4 * along);
  };
  add_sheet(builder, 4, 24, place_deck, [&](double, double) { return deck; });
  add_lathe(builder, {{0, 0, 0.05}}, {{0.014, 0.0}, {0.008, 1.0}, {0, 1.01}}, 8, deck);
  return builder.finish();
}

MeshSource make_mills_boat_sail() {
  MeshBuilder builder;
  const uint cloth = builder.add_group("boat sail", color_from_srgb(0xf3ece0));
  const uint stripe = builder.add_group("boat sail stripe", color_from_srgb(0xd9694f));
  // A triangle: the mast, the boom behind it, and the edge between their ends.
  const auto place = [](double u, double v) { return Point(0.0, 0.16 + 0.82 * v, 0.03 - 0.5 * u * (1.0 - 0.97 * v)); };
  add_sheet(builder, 10, 14, place, [&](double, double v) { return v > 0.4 && v < 0.56 ? stripe : cloth; });
  MeshSource source = builder.finish_unwelded();
  add_motion(source, [](uint, const Point& p, double t) {
    const double back = (0.03 - p.z) / 0.5, up = (p.y - 0.16) / 0.82;
    const double belly = 0.35 * back * (1.25 - back - up) + 0.05 * back * std::sin(9.0 * back + 4.0 * up - 6.0 * t);
    return Point(0.09 * back + belly * (0.7 + 0.5 * t), p.y, p.z);
  });
  return source;
}

MeshSource make_mills_balloon() {
  MeshBuilder builder;
  const uint colors[2] = {builder.add_group("balloon", color_from_srgb(0xd9694f)),
                          builder.add_group("balloon stripes", color_from_srgb(0xf3ede2))};
  const uint basket = builder.add_group("basket", color_from_srgb(0x8b6a4a));
  constexpr double gores = 12.0;
  const auto place = [](double u, double v) {
    const double polar = pi * (0.06 + 0.94 * v), around = 2.0 * pi * u;
    const double narrow = v < 0.45 ? std::pow(std::sin(0.5 * pi * v / 0.45), 0.35) : 1.0;
    const double radius = (std::sin(polar) * narrow + 0.02) * (0.97 + 0.03 * std::fabs(std::sin(0.5 * gores * around)));
    return Point(radius * std::cos(around), 1.05 - 1.15 * std::cos(polar), -radius * std::sin(around));
  };
  add_sheet(builder, 96, 40, place, [&](double u, double) { return colors[static_cast<uint>(u * gores) % 2]; });
  add_lathe(builder, {}, {{0, -0.62}, {0.15, -0.62}, {0.19, -0.38}, {0.17, -0.38}, {0.14, -0.58}, {0, -0.58}}, 24,
            basket);
  for (uint rope = 0; rope < 8; ++rope) {
    const double angle = 2.0 * pi * rope / 8.0;
    const Point foot(0.18 * std::cos(angle), -0.4, 0.18 * std::sin(angle)),
        up(0.03 * std::cos(angle), 0.45, 0.03 * std::sin(angle));
    add_lathe(builder, {foot, {1, 0, 0}, up, {0, 0, 1}}, {{0.007, 0.0}, {0.007, 1.0}}, 5, basket);
  }
  return builder.finish();
}
