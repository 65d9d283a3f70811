#include "tools/vqgas/demo/demo_shapes.h"

#include <numbers>

namespace {

constexpr double full_turn = 2.0 * std::numbers::pi;

/// A grid of texture coordinates over the unit square, (columns + 1) in each of `rows` rows: column 0 and the last
/// belong to the same vertex. Returns the first one's index.
uint add_uv_grid(MeshBuilder& builder, uint rows, uint columns) {
  uint first = 0;
  for (uint row = 0; row < rows; ++row) {
    for (uint column = 0; column <= columns; ++column) {
      const uint uv = builder.add_uv({float(column) / float(columns), float(row) / float(rows - 1), 0.0f});
      if (row == 0 && column == 0) first = uv;
    }
  }
  return first;
}

/// Closed rows of vertices joined by quads, with the texture coordinates of a grid that begins at `first_uv`.
void join_rows(MeshBuilder& builder, uint first, uint rows, uint columns, uint group, uint first_uv) {
  for (uint row = 0; row + 1 < rows; ++row) {
    const uint here = first + row * columns, next = here + columns;
    for (uint column = 0; column < columns; ++column) {
      const uint right = (column + 1) % columns, uv = first_uv + row * (columns + 1) + column;
      const u32 vertices[] = {here + column, here + right, next + right, next + column};
      const u32 uvs[] = {uv, uv + 1, uv + columns + 2, uv + columns + 1};
      builder.add_polygon(vertices, group, {}, uvs);
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
  for (uint row = 0; row < segments; ++row) {
    const double t = double(row) / segments;
    const Point center = curve(t);
    const Point tangent = (curve(t + 1e-4) - curve(t - 1e-4)).get_normalized();
    const Point side = tangent.cross({0.267, 0.535, 0.802}).get_normalized();
    const Point other = side.cross(tangent);
    for (uint k = 0; k < sides; ++k) {
      const double angle = full_turn * k / sides;
      builder.add_vertex(center + (side * std::cos(angle) + other * std::sin(angle)) * radius);
    }
  }
  const uint first_uv = add_uv_grid(builder, segments + 1, sides);
  join_rows(builder, first, segments, sides, group, first_uv);
  const uint last = first + (segments - 1) * sides;
  for (uint k = 0; k < sides; ++k) {
    const uint right = (k + 1) % sides, uv = first_uv + (segments - 1) * (sides + 1) + k;
    const u32 vertices[] = {last + k, last + right, first + right, first + k};
    const u32 uvs[] = {uv, uv + 1, uv + sides + 2, uv + sides + 1};
    builder.add_polygon(vertices, group, {}, uvs);
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
  const uint first_uv = add_uv_grid(builder, rows + 1, segments);
  join_rows(builder, first, rows - 1, segments, group, first_uv + segments + 1);
  const uint last = first + (rows - 2) * segments, top_uv = first_uv + rows * (segments + 1);
  for (uint k = 0; k < segments; ++k) {
    const uint right = (k + 1) % segments;
    const u32 low[] = {first + right, first + k, bottom}, high[] = {last + k, last + right, top};
    const u32 low_uvs[] = {first_uv + segments + 2 + k, first_uv + segments + 1 + k, first_uv + k};
    const u32 high_uvs[] = {top_uv - segments - 1 + k, top_uv - segments + k, top_uv + k};
    builder.add_polygon(low, group, {}, low_uvs);
    builder.add_polygon(high, group, {}, high_uvs);
  }
}

void add_prism(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& outline, double depth,
               uint group) {
  const uint count = static_cast<uint>(outline.size()), first = builder.get_vertex_count();
  for (const double z : {0.0, depth}) {
    for (const auto& p : outline) builder.add_vertex(frame.map({p.x, p.y, z}));
  }
  std::vector<u32> back, front, back_uvs, front_uvs;
  for (uint k = 0; k < count; ++k) {
    back.push_back(first + count - 1 - k);
    front.push_back(first + count + k);
    front_uvs.push_back(builder.add_uv({float(outline[k].x), float(outline[k].y), 0.0f}));
  }
  back_uvs.assign(front_uvs.rbegin(), front_uvs.rend());
  builder.add_polygon(back, group, {}, back_uvs);
  builder.add_polygon(front, group, {}, front_uvs);
  join_rows(builder, first, 2, count, group, add_uv_grid(builder, 2, count));
}

void add_lathe(MeshBuilder& builder, const Frame& frame, const std::vector<GMathVec2<double>>& profile, uint segments,
               uint group, const std::function<double(double, double)>& relief) {
  const uint first_uv = add_uv_grid(builder, static_cast<uint>(profile.size()), segments);
  std::vector<u32> before, here;
  for (uint row = 0; row < profile.size(); ++row) {
    const bool is_pole = profile[row].x == 0.0;
    here.clear();
    for (uint k = 0; k < (is_pole ? 1u : segments); ++k) {
      const double angle = full_turn * k / segments;
      const double radius = profile[row].x * (relief ? relief(angle, profile[row].y) : 1.0);
      here.push_back(
          builder.add_vertex(frame.map({radius * std::cos(angle), profile[row].y, -radius * std::sin(angle)})));
    }
    here.resize(segments, here[0]);  // the pole is every vertex of its row
    for (uint k = 0; row > 0 && k < segments; ++k) {
      const uint right = (k + 1) % segments, uv = first_uv + (row - 1) * (segments + 1) + k;
      std::vector<u32> vertices = {before[k], before[right], here[right], here[k]};
      std::vector<u32> uvs = {uv, uv + 1, uv + segments + 2, uv + segments + 1};
      // At a pole two corners are one vertex: a triangle is left, and nothing between two poles.
      const bool was_pole = before[0] == before[1];
      if (was_pole && is_pole) break;
      if (was_pole || is_pole) {
        vertices.erase(vertices.begin() + (was_pole ? 1 : 3));
        uvs.erase(uvs.begin() + (was_pole ? 1 : 3));
      }
      builder.add_polygon(vertices, group, {}, uvs);
    }
    before.swap(here);
  }
}

void add_sheet(MeshBuilder& builder, uint columns, uint rows, const std::function<Point(double, double)>& place,
               const std::function<uint(double, double)>& choose_group) {
  const uint first = builder.get_vertex_count();
  for (uint row = 0; row <= rows; ++row) {
    for (uint column = 0; column <= columns; ++column)
      builder.add_vertex(place(double(column) / columns, double(row) / rows));
  }
  const uint first_uv = add_uv_grid(builder, rows + 1, columns);
  for (uint row = 0; row < rows; ++row) {
    for (uint column = 0; column < columns; ++column) {
      const uint corner = row * (columns + 1) + column, above = corner + columns + 1;
      const u32 corners[] = {corner, corner + 1, above + 1, above};
      u32 vertices[4], uvs[4];
      for (uint k = 0; k < 4; ++k) {
        vertices[k] = first + corners[k];
        uvs[k] = first_uv + corners[k];
      }
      builder.add_polygon(vertices, choose_group((column + 0.5) / columns, (row + 0.5) / rows), {}, uvs);
    }
  }
}

void add_box(MeshBuilder& builder, const Point& corner, const Point& size, uint group) {
  add_prism(builder, {corner}, {{0, 0}, {size.x, 0}, {size.x, size.y}, {0, size.y}}, size.z, group);
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

void add_motion(MeshSource& source, const std::function<Point(uint, const Point&, double)>& place) {
  constexpr uint sample_count = 9;
  PolyMeshData& data = source.data;
  data.motion_begin = 0.0;
  data.motion_step = 1.0 / (sample_count - 1);
  const std::vector<GMathVec3<float>> rest = data.positions;
  for (uint sample = 0; sample < sample_count; ++sample) {
    auto& positions = data.motion_positions.emplace_back();
    positions.reserve(rest.size());
    for (uint vertex = 0; vertex < rest.size(); ++vertex)
      positions.emplace_back(place(vertex, Point(rest[vertex]), sample * data.motion_step));
  }
  data.positions = data.motion_positions.front();
}
