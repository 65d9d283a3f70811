// A vessel with a UV layout on three tiles, all parts to one scale:
//
//   1011   neck, its inside, foot, handles
//   1001   front of the body          1002   back of the body
#include <numbers>

#include "tools/vqgas/demo/demo_scenes.h"
#include "tools/vqgas/demo/demo_shapes.h"

namespace {

using std::numbers::pi;
using ProfilePoint = GMathVec2<double>;  // radius, height

constexpr uint segments = 72;
constexpr double uv_scale = 0.475;  // of a length on the surface

/// A point of the surface of revolution, by the number of its segment.
Point get_point(const ProfilePoint& at, uint segment) {
  const double angle = 2.0 * pi * segment / segments;
  return {at.x * std::cos(angle), at.y, -at.x * std::sin(angle)};
}

/// A smooth curve through all points (Catmull, Rom 1974).
std::vector<ProfilePoint> make_smooth_profile(const std::vector<ProfilePoint>& points, uint parts) {
  std::vector<ProfilePoint> out;
  const auto get = [&](std::size_t k) { return points[std::min(k, points.size() - 1)]; };
  for (std::size_t k = 0; k + 1 < points.size(); ++k) {
    const ProfilePoint a = get(k == 0 ? 0 : k - 1), b = get(k), c = get(k + 1), d = get(k + 2);
    for (uint part = 0; part < parts; ++part) {
      const double t = double(part) / parts;
      const auto blend = [t](double p, double q, double r, double s) {
        return 0.5 * (2.0 * q + t * (r - p + t * (2.0 * p - 5.0 * q + 4.0 * r - s + t * (3.0 * (q - r) + s - p))));
      };
      out.push_back({blend(a.x, b.x, c.x, d.x), blend(a.y, b.y, c.y, d.y)});
    }
  }
  out.push_back(points.back());
  return out;
}

/// Lengths along the profile, from its first point, in UV space.
std::vector<double> get_lengths(const std::vector<ProfilePoint>& profile) {
  std::vector<double> lengths = {0.0};
  for (std::size_t row = 1; row < profile.size(); ++row)
    lengths.push_back(lengths.back() +
                      uv_scale * std::hypot(profile[row].x - profile[row - 1].x, profile[row].y - profile[row - 1].y));
  return lengths;
}

/// Places a row and a column of a strip in UV space.
using PlaceUv = std::function<GMathVec3<double>(uint row, uint column)>;
using ChooseGroup = std::function<uint(uint row)>;

/// Turns `columns` segments from `first_column` on. Vertices of neighboring strips are welded later.
void add_strip(MeshBuilder& builder, const std::vector<ProfilePoint>& profile, uint first_column, uint columns,
               const PlaceUv& place_uv, const ChooseGroup& choose_group) {
  std::vector<u32> vertices, uvs;
  for (uint row = 0; row < profile.size(); ++row) {
    for (uint column = 0; column <= columns; ++column) {
      vertices.push_back(builder.add_vertex(get_point(profile[row], (first_column + column) % segments)));
      uvs.push_back(builder.add_uv(GMathVec3<float>(place_uv(row, column))));
    }
  }
  for (uint row = 0; row + 1 < profile.size(); ++row) {
    for (uint column = 0; column < columns; ++column) {
      const uint at = row * (columns + 1) + column, above = at + columns + 1;
      const u32 corners[] = {vertices[at + 1], vertices[above + 1], vertices[above], vertices[at]};
      const u32 corner_uvs[] = {uvs[at + 1], uvs[above + 1], uvs[above], uvs[at]};
      const std::size_t count = profile[row].x == 0.0 ? 3 : 4;  // a triangle at the pole
      builder.add_polygon(std::span(corners, count), choose_group(row), {}, std::span(corner_uvs, count));
    }
  }
}

/// Unrolled around `center`: each row is as wide as the part of its circle.
PlaceUv unroll(const std::vector<ProfilePoint>& profile, uint columns, const ProfilePoint& bottom) {
  const std::vector<double> lengths = get_lengths(profile);
  return [=](uint row, uint column) {
    const double width = uv_scale * 2.0 * pi * profile[row].x * columns / segments;
    return GMathVec3<double>(bottom.x + (double(column) / columns - 0.5) * width, bottom.y + lengths[row], 0.0);
  };
}

void add_body(MeshBuilder& builder, uint clay, uint paint) {
  const std::vector<ProfilePoint> profile = make_smooth_profile(
      {{0.13, 0.2}, {0.22, 0.34}, {0.41, 0.6}, {0.56, 0.9}, {0.62, 1.2}, {0.53, 1.5}, {0.31, 1.7}, {0.19, 1.78}}, 6);
  const auto choose = [=](uint row) {
    const bool is_painted = row < 5 || row == 14 || row == 15 || row == 29 || (row > 30 && row < 35);
    return is_painted ? paint : clay;
  };
  // Seen from the front, u runs to the right: the front is the second half of the turn.
  for (const uint half : {1u, 0u})
    add_strip(builder, profile, half * segments / 2, segments / 2,
              unroll(profile, segments / 2, {half == 1 ? 0.5 : 1.5, 0.04}), choose);
}

void add_neck(MeshBuilder& builder, uint clay, uint paint) {
  const std::vector<ProfilePoint> outside = make_smooth_profile(
      {{0.19, 1.78}, {0.165, 1.92}, {0.17, 2.07}, {0.21, 2.15}, {0.245, 2.19}, {0.24, 2.225}, {0.2, 2.225}}, 4);
  add_strip(builder, outside, 0, segments, unroll(outside, segments, {0.42, 1.735}),
            [=](uint row) { return row < 12 ? clay : paint; });
  const std::vector<ProfilePoint> inside = make_smooth_profile({{0.2, 2.225}, {0.14, 2.1}, {0.135, 1.95}}, 4);
  add_strip(builder, inside, 0, segments, unroll(inside, segments, {0.34, 1.583}), [=](uint) { return paint; });
}

/// A disc in UV space, since it is nearly flat.
void add_foot(MeshBuilder& builder, uint paint) {
  std::vector<ProfilePoint> profile = {{0.0, 0.0}, {0.1, 0.0}, {0.2, 0.0}};
  const std::vector<ProfilePoint> side =
      make_smooth_profile({{0.27, 0.0}, {0.285, 0.03}, {0.25, 0.07}, {0.16, 0.12}, {0.13, 0.2}}, 4);
  profile.insert(profile.end(), side.begin(), side.end());
  const std::vector<double> lengths = get_lengths(profile);
  const auto place = [&](uint row, uint column) {
    const double angle = 2.0 * pi * column / segments;
    return GMathVec3<double>(0.3 + lengths[row] * std::cos(angle), 1.305 - lengths[row] * std::sin(angle), 0.0);
  };
  add_strip(builder, profile, 0, segments, place, [=](uint) { return paint; });
}

/// A tube from the neck to the shoulder, on the side where x has the sign of `side`.
void add_handle(MeshBuilder& builder, double side, double left, uint group) {
  constexpr uint rows = 40, sides = 16;
  constexpr double radius = 0.042;
  const auto get_center = [=](double t) {
    const double weights[4] = {(1 - t) * (1 - t) * (1 - t), 3 * t * (1 - t) * (1 - t), 3 * t * t * (1 - t), t * t * t};
    const ProfilePoint controls[4] = {{0.15, 2.04}, {0.62, 2.2}, {0.62, 1.85}, {0.44, 1.53}};
    Point sum;
    for (uint k = 0; k < 4; ++k) sum = sum + Point(side * controls[k].x, controls[k].y, 0.0) * weights[k];
    return sum;
  };
  std::vector<u32> vertices, uvs;
  double length = 0.0;
  for (uint row = 0; row <= rows; ++row) {
    const double t = double(row) / rows, step = 0.5 / rows;
    const Point center = get_center(t), across(0.0, 0.0, 1.0);
    if (row > 0) length += uv_scale * (center - get_center(t - 1.0 / rows)).get_length();
    const Point out = (get_center(t + step) - get_center(t - step)).get_normalized().cross(across);
    for (uint k = 0; k <= sides; ++k) {
      const double angle = 2.0 * pi * (k % sides) / sides;
      vertices.push_back(builder.add_vertex(center + (across * std::cos(angle) + out * std::sin(angle)) * radius));
      uvs.push_back(builder.add_uv(
          GMathVec3<float>(GMathVec3<double>(left + uv_scale * 2.0 * pi * radius * k / sides, 1.03 + length, 0.0))));
    }
  }
  for (uint row = 0; row < rows; ++row) {
    for (uint k = 0; k < sides; ++k) {
      const uint at = row * (sides + 1) + k, above = at + sides + 1;
      const u32 corners[] = {vertices[at], vertices[at + 1], vertices[above + 1], vertices[above]};
      const u32 corner_uvs[] = {uvs[at], uvs[at + 1], uvs[above + 1], uvs[above]};
      builder.add_polygon(corners, group, {}, corner_uvs);
    }
  }
}

}  // namespace

MeshSource make_demo_amphora() {
  MeshBuilder builder;
  const uint clay = builder.add_group("clay", color_from_srgb(0xc9743f));
  const uint paint = builder.add_group("paint", color_from_srgb(0x3a2a26));
  const uint handles = builder.add_group("handles", color_from_srgb(0x5b4038));
  add_body(builder, clay, paint);
  add_neck(builder, clay, paint);
  add_foot(builder, paint);
  add_handle(builder, 1.0, 0.62, handles);
  add_handle(builder, -1.0, 0.8, handles);
  return builder.finish();
}
