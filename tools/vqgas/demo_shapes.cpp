#include "tools/vqgas/demo_shapes.h"

#include <numbers>

namespace {

constexpr double full_turn = 2.0 * std::numbers::pi;

/// Rows of vertices joined by quads; `wrap_rows` joins the last row to the first.
void join_rows(MeshBuilder& builder, uint first, uint rows, uint columns, bool wrap_rows, uint group) {
  for (uint row = 0; row + (wrap_rows ? 0 : 1) < rows; ++row) {
    const uint here = first + row * columns, next = first + (row + 1) % rows * columns;
    for (uint column = 0; column < columns; ++column) {
      const uint right = (column + 1) % columns;
      builder.add_polygon({here + column, here + right, next + right, next + column}, group);
    }
  }
}

}  // namespace

Frame Frame::turned(const Point& origin, double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  return {origin, {c, 0, -s}, {0, 1, 0}, {s, 0, c}};
}

void add_tube(MeshBuilder& builder, const std::function<Point(double)>& curve, uint segments, uint sides, double radius,
              uint group) {
  const uint first = builder.get_vertex_count();
  uint first_uv = 0;
  for (uint row = 0; row <= segments; ++row) {
    const double t = double(row) / segments;
    const Point center = curve(t);
    const Point tangent = (curve(t + 1e-4) - curve(t - 1e-4)).get_normalized();
    const Point side = tangent.cross({0.267, 0.535, 0.802}).get_normalized();
    const Point other = side.cross(tangent);
    for (uint k = 0; k <= sides; ++k) {
      const double around = double(k) / sides;
      const Point out = side * std::cos(full_turn * around) + other * std::sin(full_turn * around);
      if (row < segments && k < sides) builder.add_vertex(center + out * radius);
      const uint uv = builder.add_uv({float(t), float(around), 0.0f});
      if (row == 0 && k == 0) first_uv = uv;
    }
  }
  for (uint row = 0; row < segments; ++row) {
    for (uint k = 0; k < sides; ++k) {
      const uint here = first + row * sides, next = first + (row + 1) % segments * sides, right = (k + 1) % sides;
      const uint uv = first_uv + row * (sides + 1) + k;
      const u32 vertices[] = {here + k, here + right, next + right, next + k};
      const u32 uvs[] = {uv, uv + 1, uv + sides + 2, uv + sides + 1};
      builder.add_polygon(vertices, group, {}, uvs);
    }
  }
}

void add_sphere(MeshBuilder& builder, const Point& center, double radius, uint segments, uint group,
                const std::function<double(const Point&)>& relief) {
  const uint rows = segments / 2;
  const auto place = [&](double polar, double angle) {
    const Point out(std::sin(polar) * std::cos(angle), std::cos(polar), -std::sin(polar) * std::sin(angle));
    return builder.add_vertex(center + out * (radius * (relief ? relief(out) : 1.0)));
  };
  const uint top = place(0.0, 0.0), bottom = place(std::numbers::pi, 0.0);
  const uint first = builder.get_vertex_count();
  for (uint row = 1; row < rows; ++row) {
    for (uint k = 0; k < segments; ++k) place(std::numbers::pi * (rows - row) / rows, full_turn * k / segments);
  }
  join_rows(builder, first, rows - 1, segments, false, group);
  const uint last = first + (rows - 2) * segments;
  for (uint k = 0; k < segments; ++k) {
    const uint right = (k + 1) % segments;
    builder.add_polygon({first + right, first + k, bottom}, group);
    builder.add_polygon({last + k, last + right, top}, group);
  }
}

void add_prism(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& outline, double depth,
               uint group) {
  const uint count = static_cast<uint>(outline.size()), first = builder.get_vertex_count();
  for (const double z : {0.0, depth}) {
    for (const auto& p : outline) builder.add_vertex(frame.map({p.x, p.y, z}));
  }
  std::vector<u32> back, front;
  for (uint k = 0; k < count; ++k) {
    back.push_back(first + count - 1 - k);
    front.push_back(first + count + k);
  }
  builder.add_polygon(back, group);
  builder.add_polygon(front, group);
  join_rows(builder, first, 2, count, false, group);
}

void add_lathe(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& profile, uint segments,
               uint group, const std::function<double(double, double)>& relief) {
  std::vector<u32> before, here;
  for (std::size_t row = 0; row < profile.size(); ++row) {
    const bool is_pole = profile[row].x == 0.0;
    here.clear();
    for (uint k = 0; k < (is_pole ? 1u : segments); ++k) {
      const double angle = full_turn * k / segments;
      const double radius = profile[row].x * (relief ? relief(angle, profile[row].y) : 1.0);
      here.push_back(
          builder.add_vertex(frame.map({radius * std::cos(angle), profile[row].y, -radius * std::sin(angle)})));
    }
    for (uint k = 0; row > 0 && k < segments; ++k) {
      const uint right = (k + 1) % segments;
      if (before.size() == 1 && here.size() == 1) break;
      if (before.size() == 1) {
        builder.add_polygon({before[0], here[right], here[k]}, group);
      } else if (here.size() == 1) {
        builder.add_polygon({before[k], before[right], here[0]}, group);
      } else {
        builder.add_polygon({before[k], before[right], here[right], here[k]}, group);
      }
    }
    before.swap(here);
  }
}

std::vector<GMathVec2<double>> make_gear_outline(uint teeth, double inner, double outer) {
  std::vector<GMathVec2<double>> outline;
  for (uint tooth = 0; tooth < teeth; ++tooth) {
    const double steps[4][2] = {{-0.27, inner}, {-0.15, outer}, {0.15, outer}, {0.27, inner}};
    for (const auto& [step, radius] : steps) {
      const double angle = full_turn * (tooth + step) / teeth;
      outline.push_back({radius * std::cos(angle), radius * std::sin(angle)});
    }
  }
  return outline;
}

std::vector<GMathVec2<double>> make_star_outline(uint points, double inner, double outer) {
  std::vector<GMathVec2<double>> outline;
  for (uint k = 0; k < 2 * points; ++k) {
    const double angle = full_turn * k / (2 * points) + std::numbers::pi / 2, radius = k % 2 == 0 ? outer : inner;
    outline.push_back({radius * std::cos(angle), radius * std::sin(angle)});
  }
  return outline;
}

Point get_trefoil_point(double t) {
  const double angle = full_turn * t;
  return Point(std::sin(angle) + 2.0 * std::sin(2.0 * angle), std::cos(angle) - 2.0 * std::cos(2.0 * angle),
               -std::sin(3.0 * angle)) *
         0.5;
}
