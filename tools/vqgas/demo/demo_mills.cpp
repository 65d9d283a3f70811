// tools/vqgas/demo/demo_mills.cpp
//
// An island in the wind. Objects with moving parts are groups; thousands of objects show two dozen shapes:
//
//   mill       tower, rotor (four sails)          boat   hull, sail
//   pinwheel   pole, wheel                        sheep  body, wool, head
//   bird       body, wing, the same wing mirrored
#include "tools/vqgas/demo/demo_mills.h"

#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/support/random.h"

namespace {

using std::numbers::pi;
constexpr double degree = pi / 180.0;

using Keys = std::vector<ModuleMatrixKey>;

/// Turns around z by `angle` from time 0 to 1, with a key every few degrees.
Keys spin(const Matrix& place, double begin, double turn) {
  const uint steps = 1 + static_cast<uint>(std::fabs(turn) / (4.0 * degree));
  return make_keys(steps, [&](double t) { return place * turn_around(2, begin + turn * t); });
}

/// Strength of the wind at a point and time: waves that run to the right.
double get_wind(double across, double near, double t) {
  const double wave = std::sin(0.75 * across - 0.35 * near - 4.0 * t + 0.6 * std::sin(0.5 * near));
  return 0.25 + 0.75 * std::pow(0.5 + 0.5 * wave, 2.0);
}

class MillsScene {
 public:
  SceneSource make() {
    add("land", add_shape(make_mills_land()), {});
    add("water", add_shape(make_mills_water()), {});
    add_mills();
    add_pinwheels();
    add_tulips();
    add_tufts();
    add_trees();
    add_sheep();
    add_birds();
    add_boats();
    add_balloons();
    return std::move(scene_);
  }

 private:
  uint add_shape(ShapeSource&& shape) {
    scene_.shapes.push_back(std::move(shape));
    return static_cast<uint>(scene_.shapes.size() - 1);
  }
  uint add_group(std::vector<ObjectSource>&& objects) {
    scene_.groups.push_back(std::move(objects));
    return static_cast<uint>(scene_.groups.size() - 1);
  }
  void add(const std::string& name, uint shape, Keys&& keys) {
    scene_.objects.push_back({name, shape, core_invalid_index, std::move(keys)});
  }
  void add_of_group(const std::string& name, uint group, Keys&& keys) {
    scene_.objects.push_back({name, core_invalid_index, group, std::move(keys)});
  }

  void add_mills();
  void add_pinwheels();
  void add_tulips();
  void add_tufts();
  void add_trees();
  void add_sheep();
  void add_birds();
  void add_boats();
  void add_balloons();

  SceneSource scene_;
};

void MillsScene::add_mills() {
  const uint tower = add_shape(make_mills_tower()), sail = add_shape(make_mills_sail());
  std::vector<ObjectSource> sails;
  for (uint k = 0; k < 4; ++k)
    sails.push_back({"sail", sail, core_invalid_index, stand_at(turn_around(2, 0.5 * pi * k))});
  const uint rotor = add_group(std::move(sails));
  const Matrix axle = move_to({0.0, MillsTower::axle_height, MillsTower::axle_end - 0.06});
  const auto add_mill = [&](double begin, double turn) {
    return add_group({{"tower", tower}, {"rotor", core_invalid_index, rotor, spin(axle, begin, turn)}});
  };
  const uint mills[2] = {add_mill(0.35, -1.0), add_mill(0.75, -1.3)};
  const struct {
    double across, near, turn;
    Point size;
    uint mill;
  } places[] = {{-3.0, -3.8, -0.25, {1.35, 1.3, 1.35}, 0},
                {5.2, -3.6, 0.3, {-0.95, 1.0, 0.95}, 1},  // mirrored: it turns the other way
                {-7.7, -0.2, -0.5, {0.7, 0.62, 0.7}, 1}};
  for (const auto& place : places)
    add_of_group("mill", mills[place.mill],
                 stand_at(move_to(MillsLand::get_place(place.across, place.near)) * MillsLand::face_eye() *
                          turn_around(1, place.turn) * scale_by(place.size)));
}

void MillsScene::add_pinwheels() {
  const uint pole = add_shape(make_mills_pole());
  constexpr uint speeds = 5;
  uint groups[mills_colors][speeds];
  for (uint color = 0; color < mills_colors; ++color) {
    const uint wheel = add_shape(make_mills_pinwheel(color));
    for (uint speed = 0; speed < speeds; ++speed) {
      const Keys turning = spin(move_to({0.0, 0.66, 0.03}), 0.4 * speed, speed * -35.0 * degree);
      groups[color][speed] = add_group({{"pole", pole}, {"wheel", wheel, core_invalid_index, turning}});
    }
  }
  // In rings around the two hills.
  const struct {
    double across, near;
    uint rings;
  } hills[] = {{-3.0, -3.8, 6}, {5.2, -3.6, 4}};
  uint number = 0;
  for (const auto& hill : hills) {
    for (uint ring = 0; ring < hill.rings; ++ring) {
      const double away = 1.45 + 0.56 * ring;
      const uint count = static_cast<uint>(2.0 * pi * away / 0.55);
      for (uint k = 0; k < count; ++k, ++number) {
        const double angle = 2.0 * pi * (k + 0.5 * (ring % 2)) / count;
        const double across = hill.across + away * std::cos(angle), near = hill.near + away * std::sin(angle);
        if (std::hypot(across, near) > 9.6 || near > 0.2 || std::fabs(angle - 1.45) < 0.15) continue;
        const double wind = get_wind(across, near, 0.5);
        const uint speed = std::min(speeds - 1, static_cast<uint>(wind * speeds));
        const double size = 1.0 + 0.3 * random_unit(number, 11);
        add_of_group("pinwheel", groups[ring % mills_colors][speed],
                     stand_at(move_to(MillsLand::get_place(across, near)) * MillsLand::face_eye() *
                              turn_around(1, -0.3 + 0.5 * (random_unit(number, 12) - 0.5)) *
                              scale_by({size, size * (0.85 + 0.3 * random_unit(number, 13)), size})));
      }
    }
  }
}

/// Keys of an object that leans with the wind.
Keys sway(double across, double near, const Matrix& own, double strength) {
  const Matrix place = move_to(MillsLand::get_place(across, near));
  return make_keys(8, [&](double t) {
    const Point lean =
        (MillsLand::get_across() + MillsLand::get_near() * -0.3) * (strength * get_wind(across, near, t));
    return place * lean_by(lean.x, lean.z) * own;
  });
}

void MillsScene::add_tulips() {
  uint shapes[mills_colors];
  for (uint color = 0; color < mills_colors; ++color) shapes[color] = add_shape(make_mills_tulip(color));
  constexpr double row_width = 0.2, step = 0.165;
  uint number = 0;
  for (uint row = 0; row < 36; ++row) {
    for (uint k = 0; k < 46; ++k, ++number) {
      const double across = -7.5 + row_width * row + 0.05 * (random_unit(number, 1) - 0.5);
      const double near = 1.85 + step * k + 0.05 * (random_unit(number, 2) - 0.5);
      if (row % 9 == 8 || !MillsLand::is_in_beds(across, near)) continue;
      const double size = 0.95 + 0.3 * random_unit(number, 3);
      const Matrix own = turn_around(1, 2.0 * pi * random_unit(number, 4)) *
                         scale_by({size, size * (0.9 + 0.3 * random_unit(number, 5)), size});
      add("tulip", shapes[row / 9 % mills_colors], sway(across, near, own, 0.5));
    }
  }
}

void MillsScene::add_tufts() {
  const uint shape = add_shape(make_mills_tuft());
  for (uint number = 0; number < 2600; ++number) {
    const double away = 9.8 * std::sqrt(random_unit(number, 31)), angle = 2.0 * pi * random_unit(number, 32);
    const double across = away * std::cos(angle), near = away * std::sin(angle);
    if (MillsLand::is_in_beds(across, near) || MillsLand::get_height(across, near) < MillsLand::water_level + 0.15)
      continue;
    const double size = 0.7 + 0.8 * random_unit(number, 33);
    const Matrix own = turn_around(1, 2.0 * pi * random_unit(number, 34)) * scale_by({size, size, size});
    add("tuft", shape, sway(across, near, own, 0.6));
  }
}

void MillsScene::add_trees() {
  const uint round = add_shape(make_mills_round_tree()), tall = add_shape(make_mills_tall_tree());
  const auto plant = [&](uint number, uint shape, double across, double near, double size) {
    const double width = size * (0.85 + 0.3 * random_unit(number, 41));
    const Matrix own = turn_around(1, 2.0 * pi * random_unit(number, 42)) *
                       scale_by({width, size * (0.85 + 0.4 * random_unit(number, 43)), width * (number % 2 ? 1 : -1)});
    add(shape == tall ? "tall tree" : "round tree", shape, sway(across, near, own, 0.05));
  };
  uint number = 0;
  for (uint k = 0; k < 46; ++k) {  // along the far shore
    const double angle = pi * (1.06 + 0.88 * k / 45.0), away = 9.3 + 0.25 * std::sin(2.4 * k);
    plant(number++, k % 4 == 3 ? round : tall, away * std::cos(angle), away * std::sin(angle), 1.0);
  }
  const struct {
    double across, near, spread;
    uint count;
  } groves[] = {{0.9, -2.2, 1.0, 16}, {8.2, 0.4, 0.9, 14}, {7.4, 6.0, 0.6, 6}, {1.4, -7.0, 1.4, 22}};
  for (const auto& grove : groves) {
    for (uint k = 0; k < grove.count; ++k, ++number) {
      const double away = grove.spread * std::sqrt(random_unit(number, 44)), angle = 2.0 * pi * random_unit(number, 45);
      plant(number, round, grove.across + away * std::cos(angle), grove.near + away * std::sin(angle),
            0.75 + 0.35 * random_unit(number, 46));
    }
  }
}

void MillsScene::add_sheep() {
  const uint body = add_shape(make_mills_sheep_body()), head = add_shape(make_mills_sheep_head());
  const uint wool = add_shape(make_mills_wool());
  const auto add_kind = [&](double begin, double nod) {
    const Keys nodding = make_keys(12, [&](double t) {
      return move_to({0.0, 0.36, 0.27}) * turn_around(0, begin + nod * std::sin(2.0 * pi * t));
    });
    return add_group({{"body", body}, {"wool", wool}, {"head", head, core_invalid_index, nodding}});
  };
  const uint grazing = add_kind(0.9, 0.3), leaping = add_kind(0.1, 0.15);
  for (uint number = 0; number < 26; ++number) {
    const double across = 1.9 + 0.9 * (number % 7) + 0.6 * random_unit(number, 51);
    const uint row = number / 7;
    const double near = -0.75 + 0.75 * row + 0.5 * random_unit(number, 52);
    const double size = 0.85 + 0.35 * random_unit(number, 53), turn = 0.6 + 3.4 * (random_unit(number, 54) - 0.5);
    const bool is_mirrored = number % 2 == 1;
    const Matrix own = turn_around(1, turn) * scale_by({is_mirrored ? -size : size, size, size});
    if (number % 6 != 0) {
      add_of_group("sheep", grazing, stand_at(move_to(MillsLand::get_place(across, near)) * own));
      continue;
    }
    const Point forward(std::sin(turn), 0.0, std::cos(turn));
    add_of_group("leaping sheep", leaping, make_keys(24, [&](double t) {
                   const double phase = 0.9 * t + 0.1 * random_unit(number, 55);
                   const Point up(0.0, 2.6 * phase * (1.0 - phase), 0.0);
                   return move_to(MillsLand::get_place(across, near) + up + forward * (0.9 * t)) * own *
                          turn_around(0, -0.6 * (1.0 - 2.0 * phase));
                 }));
  }
}

void MillsScene::add_birds() {
  const uint body = add_shape(make_mills_bird_body()), wing = add_shape(make_mills_bird_wing());
  const uint bird = add_group(
      {{"body", body}, {"right wing", wing}, {"left wing", wing, core_invalid_index, stand_at(scale_by({-1, 1, 1}))}});
  // A flock that comes from over the lake and winds up around the great mill.
  const auto get_way = [](double s) {
    const double angle = -0.9 + 4.3 * s, away = 7.5 - 2.6 * s;
    const double across = -0.6 + away * std::cos(angle), near = -2.0 - away * std::sin(angle);
    return MillsLand::get_across() * across + MillsLand::get_near() * near + Point(0.0, 2.6 + 4.2 * s, 0.0);
  };
  constexpr uint birds = 170;
  for (uint number = 0; number < birds; ++number) {
    const double s = std::pow((number + random_unit(number, 61)) / birds, 1.25);
    const Point beside =
        Point(random_unit(number, 62) - 0.5, random_unit(number, 63) - 0.5, random_unit(number, 64) - 0.5) *
        (2.6 - 1.2 * s);
    const double size = 0.85 + 0.5 * random_unit(number, 65);
    add_of_group("bird", bird, make_keys(24, [&](double t) {
                   const double here = s + 0.04 * t;
                   const Point forward = (get_way(here + 0.01) - get_way(here - 0.01)).get_normalized();
                   const Point inwards = Point(0.0, 1.0, 0.0).cross(forward).get_normalized();
                   const Point up = (forward.cross(inwards) + inwards * 0.45).get_normalized();
                   return map_to({get_way(here) + beside, up.cross(forward).get_normalized(), up, forward}) *
                          scale_by({size, size, size});
                 }));
  }
}

void MillsScene::add_boats() {
  const uint hull = add_shape(make_mills_hull()), sail = add_shape(make_mills_boat_sail());
  const uint boat = add_group({{"hull", hull}, {"sail", sail}});
  for (uint number = 0; number < 7; ++number) {
    const double across = 1.6 + 0.62 * number, near = 3.6 + 1.9 * random_unit(number, 71);
    const double turn = 1.2 + 0.5 * random_unit(number, 72), size = 0.8 + 0.3 * random_unit(number, 73);
    add_of_group("boat", boat, make_keys(16, [&](double t) {
                   const Point forward =
                       MillsLand::get_across() * std::sin(turn) + MillsLand::get_near() * std::cos(turn);
                   Point at = MillsLand::get_place(across, near) + forward * (0.5 * t);
                   at.y = MillsLand::water_level + 0.015 * std::sin(5.0 * t + number);
                   return move_to(at) * MillsLand::face_eye() * turn_around(1, turn) *
                          turn_around(2, -0.1 + 0.12 * std::sin(4.0 * t + 2.0 * number)) * scale_by({size, size, size});
                 }));
  }
}

void MillsScene::add_balloons() {
  const uint balloon = add_shape(make_mills_balloon());
  const struct { double across, near, height, size; } places[] = {{6.9, -1.2, 4.2, 0.85}, {1.6, -6.0, 5.2, 0.6}};
  for (const auto& place : places)
    add("balloon", balloon, make_keys(16, [&](double t) {
          const Point at = MillsLand::get_across() * (place.across + 0.25 * t) + MillsLand::get_near() * place.near +
                           Point(0.0, place.height + 0.2 * t, 0.0);
          return move_to(at) * turn_around(2, 0.05 * std::sin(3.0 * t)) * turn_around(1, 0.3 * t) *
                 scale_by({place.size, place.size, place.size});
        }));
}

}  // namespace

SceneSource make_demo_mills() { return MillsScene().make(); }
