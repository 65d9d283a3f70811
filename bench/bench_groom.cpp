#include "bench/bench_groom.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "bench/bench_name.h"
#include "bench/bench_random.h"

namespace {

constexpr double tau = 2.0 * std::numbers::pi;
constexpr double tip_share = 0.4;  // of the radius, left at the tip
constexpr uint clump_strands = 25;
constexpr uint key_count = BenchGroom::strand_segments + 1;

using Vec = GMathVec3<double>;

struct Style {
  double curl_turns, curl_width;  // turns per strand; radius of the curl at the tip, in strand lengths
  double clump;                   // blend weight of the clump's tip at the strand's tip, 0 to 1
};
Style get_style(BenchHairStyle style) {
  if (style == BenchHairStyle::straight) return {0.0, 0.0, 0.0};
  if (style == BenchHairStyle::curly) return {2.0, 0.08, 0.0};
  return {1.2, 0.05, 0.7};
}

/// On a ball of radius 1. More strands are shorter and thinner, so that always several overlap.
double get_strand_length(uint strand_count) { return 0.6 * std::cbrt(25000.0 / strand_count); }
/// The length of a segment is fifty times its thickness.
double get_root_radius(uint strand_count) {
  return get_strand_length(strand_count) / BenchGroom::strand_segments / 100.0;
}

/// Position and direction of a strand's root.
struct Root {
  Vec position, along, side, across;
};

Root make_root(const Vec& place) {
  const Vec outward = place.get_normalized();
  const double lumps = std::sin(3.0 * outward.x + 1.0) * std::sin(4.0 * outward.y) + std::sin(5.0 * outward.z + 2.0);
  const Vec comb = Vec(0.3, 1.0, 0.2).cross(outward) - Vec(0.0, 0.5, 0.0);
  Root root;
  root.position = outward * (1.0 + 0.08 * lumps);
  root.along = (outward + comb * 0.5).get_normalized();
  const Vec helper = std::fabs(root.along.y) < 0.9 ? Vec(0.0, 1.0, 0.0) : Vec(1.0, 0.0, 0.0);
  root.side = root.along.cross(helper).get_normalized();
  root.across = root.along.cross(root.side);
  return root;
}

/// Points evenly over the unit sphere: a Fibonacci lattice (Swinbank, Purser 2006).
Vec make_lattice_point(uint index, uint count) {
  const double z = 1.0 - (2.0 * index + 1.0) / count;
  const double angle = tau * (index * (std::numbers::phi - 1.0) - std::floor(index * (std::numbers::phi - 1.0)));
  const double radius = std::sqrt(std::max(0.0, 1.0 - z * z));
  return {radius * std::cos(angle), radius * std::sin(angle), z};
}

struct Strand {
  Root root;
  double length = 0.0, phase = 0.0;

  Vec get_key(const Style& style, uint key, double time) const {
    const double s = double(key) / (key_count - 1), turn = phase + tau * style.curl_turns * s;
    const double curl = style.curl_width * length * std::sqrt(s);
    const Vec droop(0.0, -0.3 * length * s * s, 0.0);
    const double sway = 0.1 * length * s * s;
    const Vec swing = Vec(std::sin(3.0 * time), 0.3 * time, 1.0 - std::cos(3.0 * time)) * sway;
    return root.position + root.along * (length * s) + droop + swing +
           (root.side * std::cos(turn) + root.across * std::sin(turn)) * curl;
  }
};

CurvePoint<float> make_point(const Vec& position, double root_radius, double key) {
  const double radius = root_radius * (1.0 - (1.0 - tip_share) * key / (key_count - 1));
  return {GMathVec3<float>(position), static_cast<float>(radius)};
}

/// Cubic: the Bézier points of a Catmull-Rom curve through the keys. Linear: the keys.
void add_strand(const Vec (&keys)[key_count], double root_radius, CurveShape shape,
                std::vector<CurvePoint<float>>& points) {
  for (uint key = 0; key < key_count; ++key) {
    const uint before = key == 0 ? 0 : key - 1, after = std::min(key + 1, key_count - 1);
    const Vec reach = (keys[after] - keys[before]) * (1.0 / (3.0 * (after - before)));
    if (shape == CurveShape::cubic && key != 0)
      points.push_back(make_point(keys[key] - reach, root_radius, key - 1.0 / 3.0));
    points.push_back(make_point(keys[key], root_radius, key));
    if (shape == CurveShape::cubic && after != key)
      points.push_back(make_point(keys[key] + reach, root_radius, key + 1.0 / 3.0));
  }
}

/// The points of all strands at `time`.
std::vector<CurvePoint<float>> make_points(const Style& style, CurveShape shape, uint clump_count, double time) {
  BenchRandom random(20);
  const double strand_length = get_strand_length(clump_count * clump_strands);
  const double root_radius = get_root_radius(clump_count * clump_strands);
  const double spread = std::sqrt(4.0 * std::numbers::pi / clump_count);  // about the distance of two clumps
  std::vector<CurvePoint<float>> points;
  for (uint clump = 0; clump < clump_count; ++clump) {
    const Vec place = make_lattice_point(clump, clump_count);
    Strand leader;
    leader.root = make_root(place);
    leader.length = strand_length * (0.8 + 0.4 * random.get_unit());
    leader.phase = tau * random.get_unit();
    for (uint k = 0; k < clump_strands; ++k) {
      const double angle = tau * random.get_unit(), away = spread * 0.6 * std::sqrt(random.get_unit());
      Strand strand;
      strand.root =
          make_root(place + (leader.root.side * std::cos(angle) + leader.root.across * std::sin(angle)) * away);
      strand.length = leader.length * (0.8 + 0.4 * random.get_unit());
      strand.phase = leader.phase + (style.clump > 0.0 ? 1.0 : tau) * random.get_unit();
      Vec keys[key_count];
      for (uint key = 0; key < key_count; ++key) {
        const double s = double(key) / (key_count - 1), drawn = style.clump * s * (2.0 - s);
        keys[key] = strand.get_key(style, key, time) * (1.0 - drawn) + leader.get_key(style, key, time) * drawn;
      }
      add_strand(keys, root_radius, shape, points);
    }
  }
  return points;
}

}  // namespace

GMathBbox3<double> BenchGroom::get_bbox() const {
  GMathBbox3<double> box;
  for (std::size_t sample = 0; sample < std::max<std::size_t>(1, samples.size()); ++sample) {
    for (const CurvePoint<float>& point : samples.empty() ? points : samples[sample]) {
      const Vec at(point.position), reach(point.radius, point.radius, point.radius);
      box.add(at - reach);
      box.add(at + reach);
    }
  }
  return box;
}

CurvePoint<double> BenchGroom::get_ball(uint segment, double u, double time) const {
  const double place = samples.empty() ? 0.0 : std::clamp(time, 0.0, 1.0) * (static_cast<double>(samples.size()) - 1.0);
  const std::size_t first = samples.size() < 2 ? 0 : std::min(static_cast<std::size_t>(place), samples.size() - 2);
  const double after = place - static_cast<double>(first);
  const double v = 1.0 - u;
  const double linear[4] = {v, u, 0.0, 0.0}, cubic[4] = {v * v * v, 3.0 * v * v * u, 3.0 * v * u * u, u * u * u};
  CurvePoint<double> ball;
  for (uint k = 0; k <= get_degree(); ++k) {
    const double weight = shape == CurveShape::linear ? linear[k] : cubic[k];
    const std::size_t point = std::size_t{first_points[segment]} + k;
    const auto add = [&](const CurvePoint<float>& at, double share) {
      ball.position = ball.position + Vec(at.position) * (weight * share);
      ball.radius += at.radius * (weight * share);
    };
    if (samples.empty()) {
      add(points[point], 1.0);
    } else {
      add(samples[first][point], 1.0 - after);
      if (after > 0.0) add(samples[first + 1][point], after);
    }
  }
  return ball;
}

BenchGroom bench_make_groom(BenchHairStyle style, CurveShape shape, uint segment_count, uint sample_count) {
  const uint clump_count = std::max(1u, segment_count / (BenchGroom::strand_segments * clump_strands));
  BenchGroom groom;
  groom.shape = shape;
  groom.root_radius = get_root_radius(clump_count * clump_strands);
  for (uint sample = 0; sample < sample_count; ++sample)
    groom.samples.push_back(
        make_points(get_style(style), shape, clump_count, double(sample) / std::max(1u, sample_count - 1)));
  groom.points = groom.samples.empty() ? make_points(get_style(style), shape, clump_count, 0.0) : groom.samples[0];
  for (u32 strand = 0; strand < clump_count * clump_strands; ++strand) {
    for (uint k = 0; k < BenchGroom::strand_segments; ++k)
      groom.first_points.push_back(strand * groom.get_strand_size() + k * groom.get_degree());
  }
  return groom;
}

bool bench_read_groom_name(const std::string& name, BenchHairStyle& style, uint& segment_count) {
  std::string kind;
  if (!bench_split_name(name, kind, segment_count)) return false;
  if (kind == "fur") {
    style = BenchHairStyle::fur;
  } else if (kind == "straight") {
    style = BenchHairStyle::straight;
  } else if (kind == "curly") {
    style = BenchHairStyle::curly;
  } else {
    return false;
  }
  return true;
}

bool bench_fill_tube_mesh(const BenchGroom& groom, TubeMeshFast& mesh) {
  CurveData data;
  data.basis = groom.shape == CurveShape::linear ? CurveBasis::linear : CurveBasis::bezier;
  data.points = groom.points;
  data.curve_sizes.assign(groom.points.size() / groom.get_strand_size(), groom.get_strand_size());
  data.motion_points = groom.samples;
  if (groom.samples.size() > 1) data.motion_step = 1.0 / (static_cast<double>(groom.samples.size()) - 1.0);
  CoreString fault;
  return mesh.create(std::move(data), fault);
}
