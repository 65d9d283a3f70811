// bench/bench_points.cpp
//
// GasPoint beside what a program would do without it, on one thread:
//
//   scan    all points, in arrays of x, y and z, against all planes; compiled for the machine's vector width
//   R-tree  Boost.Geometry's, packed at once: boxes along the axes
//
// A round measures each in turn; ratios are formed within a round. How many points each side found is printed.
//
//   bench_points [POINTS [ROUNDS]]
#include <algorithm>
#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/bench_peers_measure.h"
#include "bench/bench_random.h"
#include "bench/bench_scene.h"
#include "gas/gas_point.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_particle/particle_cloud.h"

namespace {

using Point = GMathVec3<float>;
using Vec = GMathVec3<double>;
namespace bg = boost::geometry;
using TreePoint = bg::model::point<float, 3, bg::cs::cartesian>;
using TreeBox = bg::model::box<TreePoint>;
using RTree = bg::index::rtree<TreePoint, bg::index::rstar<16>>;

constexpr uint query_count = 32, picture_size = 1024;

double get_normal(BenchRandom& random) {
  return std::sqrt(-2.0 * std::log(1.0 - random.get_unit())) * std::cos(6.283185307179586 * random.get_unit());
}

/// Evenly in a cube, or in a disc of arms that is dense in the middle.
std::vector<Point> make_points(bool is_galaxy, uint count) {
  BenchRandom random(1);
  std::vector<Point> points(count);
  for (Point& p : points) {
    if (!is_galaxy) {
      for (uint axis = 0; axis < 3; ++axis) p[axis] = static_cast<float>(2.0 * random.get_unit() - 1.0);
      continue;
    }
    const double radius = 0.3 * std::fabs(get_normal(random)), arm = std::floor(4.0 * random.get_unit()) * 1.5707963;
    const double angle = 6.0 * radius + arm + 0.3 * get_normal(random);
    p = Point(Vec(radius * std::cos(angle), 0.03 * get_normal(random), radius * std::sin(angle)));
  }
  return points;
}

/// The baseline.
class Scan {
 public:
  explicit Scan(const std::vector<Point>& points) : x_(points.size()), y_(points.size()), z_(points.size()) {
    for (std::size_t k = 0; k < points.size(); ++k) {
      x_[k] = points[k].x;
      y_[k] = points[k].y;
      z_[k] = points[k].z;
    }
  }

  void set_planes(const GeometryFrustumData& frustum) {
    for (uint k = 0; k < 6; ++k) {
      for (uint axis = 0; axis < 3; ++axis) planes_[k][axis] = static_cast<float>(frustum.planes[k].normal[axis]);
      planes_[k][3] = static_cast<float>(frustum.planes[k].offset);
    }
  }

  [[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] uint count() const {
    const std::size_t size = x_.size();
    uint found = 0;
    for (std::size_t k = 0; k < size; ++k) found += is_inside(k);
    return found;
  }

  /// The positions of the points inside, as the modes of a frustum query give them.
  [[gnu::target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")]] void collect(
      std::vector<GeometryFrustumVertex>& out) const {
    constexpr std::size_t block = 4096;
    uint inside[block];
    for (std::size_t first = 0; first < x_.size(); first += block) {
      const std::size_t count = std::min(block, x_.size() - first);
      for (std::size_t k = 0; k < count; ++k) inside[k] = is_inside(first + k);
      for (std::size_t k = 0; k < count; ++k)
        if (inside[k] != 0) out.push_back({Vec(x_[first + k], y_[first + k], z_[first + k]), nullptr, 0});
    }
  }

 private:
  [[gnu::always_inline]] uint is_inside(std::size_t k) const {
    uint inside = 1;
    for (const float(&plane)[4] : planes_)
      inside &= plane[0] * x_[k] + plane[1] * y_[k] + plane[2] * z_[k] + plane[3] >= 0.0f ? 1u : 0u;
    return inside;
  }

  std::vector<float> x_, y_, z_;
  float planes_[6][4] = {};
};

/// A box with edges of twice `size` around `center`, along the axes or turned.
void set_box(GeometryFrustumCtx& query, const Vec& center, double size, bool is_turned, BenchRandom& random) {
  Vec axis[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  if (is_turned) {
    const Vec a(get_normal(random), get_normal(random), get_normal(random));
    const Vec b = a.cross({get_normal(random), get_normal(random), get_normal(random)}), c = a.cross(b);
    axis[0] = a * (1.0 / a.get_length());
    axis[1] = b * (1.0 / b.get_length());
    axis[2] = c * (1.0 / c.get_length());
  }
  query.plane_count = 0;
  for (const Vec& normal : axis) {
    query.add_plane({center - normal * size, normal});
    query.add_plane({center + normal * size, -normal});
  }
}

struct Cloud {
  Cloud(bool is_galaxy, uint count) : world(1), points(make_points(is_galaxy, count)), scan(points) {
    ParticleData data;
    data.positions = points;
    CoreString error;
    cloud.create(std::move(data), error);
  }

  BenchWorld world;
  std::vector<Point> points;
  Scan scan;
  ParticleCloud cloud;
  GasPoint gas;
  GeometryFrustumCtx query;
  CtxShader shader;

  void ask(GeometryFrustumMode mode) {
    query.mode = static_cast<uint>(mode);
    query.clear_results();
    gas.frustum_hit(world.ctx, shader, query);
  }
  /// A box around one of the points that holds about a share of them all.
  void set_query(double share, bool is_turned, BenchRandom& random) {
    const Vec center(points[random.get_next() % points.size()]);
    double low = 0.0, high = 4.0;
    const BenchRandom same_turn = random;
    for (uint step = 0; step < 24; ++step) {
      BenchRandom turn = same_turn;
      const double size = 0.5 * (low + high);
      set_box(query, center, size, is_turned, turn);
      ask(GeometryFrustumMode::any);
      (query.result.hit_count < share * static_cast<double>(points.size()) ? low : high) = size;
    }
    random.get_next();
    scan.set_planes(query);
  }
};

double measure(const std::function<void()>& work) { return bench_time(BenchClock::processor, work); }

void print_ratio(const char* name, const std::vector<double>& ours, const std::vector<double>& peers,
                 const char* peer) {
  const BenchSpread own = bench_get_spread(ours), other = bench_get_spread(peers), ratio = bench_get_ratio(peers, ours);
  std::printf("  %-28s %10.3f ms  %s %10.3f ms  %.2f x [%.2f..%.2f]\n", name, 1e3 * own.median, peer,
              1e3 * other.median, ratio.median, ratio.least, ratio.most);
}

void measure_build(Cloud& cloud, uint rounds) {
  std::vector<double> creates, wholes;
  for (uint round = 0; round < rounds; ++round) {
    const double create = measure([&] { cloud.gas.create(cloud.world.app, cloud.world.ctx, &cloud.cloud, nullptr); });
    BenchRandom random(2);
    set_box(cloud.query, {0, 0, 0}, 9.0, false, random);
    const double parts = measure([&] { cloud.ask(GeometryFrustumMode::any); });
    creates.push_back(create);
    wholes.push_back(create + parts);
  }
  const BenchSpread create = bench_get_spread(creates), whole = bench_get_spread(wholes);
  const double count = static_cast<double>(cloud.points.size());
  std::printf("  create %.3f s; with all parts %.3f s [%.3f..%.3f]: %.2f million points/s; %.1f bytes a point\n",
              create.median, whole.median, whole.least, whole.most, 1e-6 * count / whole.median,
              static_cast<double>(cloud.gas.get_memory_size()) / count);
}

/// Turned boxes that hold a share of the points, above 1 surely all; the times are means of a query.
void measure_frustums(Cloud& cloud, double share, uint queries, uint rounds) {
  std::vector<double> counts[2], points[2];
  u64 found[4] = {};
  for (uint round = 0; round < rounds; ++round) {
    BenchRandom random(3);
    double seconds[4] = {};
    for (uint k = 0; k < queries; ++k) {
      cloud.set_query(share, true, random);
      seconds[0] += measure([&] { cloud.ask(GeometryFrustumMode::any); });
      found[0] += cloud.query.result.hit_count;
      seconds[1] += measure([&] { found[1] += cloud.scan.count(); });
      seconds[2] += measure([&] { cloud.ask(GeometryFrustumMode::points); });
      found[2] += cloud.query.get_points().size();
      cloud.query.get_points().clear();
      seconds[3] += measure([&] { cloud.scan.collect(cloud.query.get_points()); });
      found[3] += cloud.query.get_points().size();
    }
    for (uint k = 0; k < 2; ++k) {
      counts[k].push_back(seconds[k] / queries);
      points[k].push_back(seconds[2 + k] / queries);
    }
  }
  char name[64];
  std::snprintf(name, sizeof name, "count, %g %% inside", std::min(100.0, 100.0 * share));
  print_ratio(name, counts[0], counts[1], "scan");
  std::snprintf(name, sizeof name, "positions, %g %% inside", std::min(100.0, 100.0 * share));
  print_ratio(name, points[0], points[1], "scan");
  const u64 asked = u64{queries} * rounds;
  std::printf("    points found a query: %llu, %llu, %llu, %llu\n", static_cast<unsigned long long>(found[0] / asked),
              static_cast<unsigned long long>(found[1] / asked), static_cast<unsigned long long>(found[2] / asked),
              static_cast<unsigned long long>(found[3] / asked));
}

/// Boxes along the axes, whose points both give.
void measure_boxes(Cloud& cloud, double share, uint rounds) {
  std::vector<TreePoint> points;
  points.reserve(cloud.points.size());
  for (const Point& p : cloud.points) points.emplace_back(p.x, p.y, p.z);
  std::unique_ptr<RTree> tree;
  const double build = measure([&] { tree = std::make_unique<RTree>(points); });
  points = {};
  std::vector<double> seconds[2];
  std::vector<TreePoint> found;
  u64 sums[2] = {};
  for (uint round = 0; round < rounds; ++round) {
    BenchRandom random(4);
    double round_seconds[2] = {};
    for (uint k = 0; k < query_count; ++k) {
      cloud.set_query(share, false, random);
      const GeometryPlane* planes = cloud.query.planes;
      TreeBox box;
      bg::set<bg::min_corner, 0>(box, static_cast<float>(planes[0].point.x));
      bg::set<bg::min_corner, 1>(box, static_cast<float>(planes[2].point.y));
      bg::set<bg::min_corner, 2>(box, static_cast<float>(planes[4].point.z));
      bg::set<bg::max_corner, 0>(box, static_cast<float>(planes[1].point.x));
      bg::set<bg::max_corner, 1>(box, static_cast<float>(planes[3].point.y));
      bg::set<bg::max_corner, 2>(box, static_cast<float>(planes[5].point.z));
      round_seconds[0] += measure([&] { cloud.ask(GeometryFrustumMode::points); });
      sums[0] += cloud.query.get_points().size();
      found.clear();
      round_seconds[1] += measure([&] { tree->query(bg::index::intersects(box), std::back_inserter(found)); });
      sums[1] += found.size();
    }
    for (uint k = 0; k < 2; ++k) seconds[k].push_back(round_seconds[k] / query_count);
  }
  char name[64];
  std::snprintf(name, sizeof name, "positions, box of %g %%", 100.0 * share);
  print_ratio(name, seconds[0], seconds[1], "R-tree");
  std::printf("    points found: %llu, %llu; R-tree built in %.2f s\n", static_cast<unsigned long long>(sums[0]),
              static_cast<unsigned long long>(sums[1]), build);
}

/// One beam a pixel.
void measure_beams(Cloud& cloud, uint rounds) {
  const Vec eye(1.4, 1.0, 1.5), forward = -eye * (1.0 / eye.get_length());
  const Vec right = forward.cross({0, 1, 0}), up = right.cross(forward);
  const double step = 0.8 / picture_size;
  std::vector<GeometryRayFrustumBeam> beams(picture_size);
  std::vector<GeometryRayFrustumRecord> records(picture_size);
  std::vector<double> rates;
  uint found = 0;
  for (uint round = 0; round < rounds; ++round) {
    found = 0;
    rates.push_back(measure([&] {
      for (uint row = 0; row < picture_size; ++row) {
        for (uint column = 0; column < picture_size; ++column) {
          const auto get_direction = [&](double x, double y) {
            return forward + right * ((x - 0.5 * picture_size) * step) + up * ((0.5 * picture_size - y) * step);
          };
          const Vec corners[4] = {get_direction(column, row), get_direction(column + 1, row),
                                  get_direction(column + 1, row + 1), get_direction(column, row + 1)};
          beams[column].set_perspective(eye, get_direction(column + 0.5, row + 0.5), corners, 0.0, 1e30);
        }
        GeometryRayFrustumCtx query;
        query.begin(beams.data(), records.data(), picture_size);
        cloud.gas.ray_frustum_hit(cloud.world.ctx, cloud.shader, query);
        for (const GeometryRayFrustumRecord& record : records) found += record.index != core_invalid_index;
      }
    }));
  }
  const BenchSpread spread = bench_get_spread(rates);
  std::printf("  picture of %u x %u beams: %.2f s [%.2f..%.2f], %u with a point\n", picture_size, picture_size,
              spread.median, spread.least, spread.most, found);
}

}  // namespace

int main(int argc, char** argv) {
  const uint count = argc > 1 ? static_cast<uint>(std::strtoul(argv[1], nullptr, 10)) : 10'000'000;
  const uint rounds = argc > 2 ? static_cast<uint>(std::strtoul(argv[2], nullptr, 10)) : 5;
  if (count == 0 || rounds == 0) {
    std::fprintf(stderr, "bench_points [POINTS [ROUNDS]]: both above 0\n");
    return 2;
  }
  std::printf("%u points; one thread, processor time, medians of %u rounds; x: how many times faster than the peer\n",
              count, rounds);
  for (const bool is_galaxy : {false, true}) {
    std::printf("%s\n", is_galaxy ? "disc of four arms" : "cube");
    Cloud cloud(is_galaxy, count);
    measure_build(cloud, rounds);
    measure_frustums(cloud, 0.001, query_count, rounds);
    measure_frustums(cloud, 0.01, query_count / 4, rounds);
    measure_frustums(cloud, 2.0, 1, rounds);
    measure_boxes(cloud, 0.001, rounds);
    measure_beams(cloud, std::min(rounds, 3u));
  }
  return 0;
}
