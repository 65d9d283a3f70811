#include "vq_geometry/displaced_mesh_height.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "vq_gmath/gmath_scalar.h"

namespace {

constexpr uint most_octaves = 32;

bool fail(CoreString& error, const char* sentence) {
  error = sentence;
  return false;
}

/// The last mixing step of splitmix64 (Steele, Lea, Flood 2014, "Fast splittable pseudorandom number generators").
u64 mix(u64 value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
  return value ^ (value >> 31);
}

/// Product of the offset with the gradient of a lattice point: one of twelve directions, four of them twice.
double get_gradient_product(u64 hash, double x, double y, double z) {
  // clang-format off
  static constexpr double gradients[16][4] = {
      {1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0}, {1, 0, 1}, {-1, 0, 1}, {1, 0, -1}, {-1, 0, -1},
      {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1}, {1, 1, 0}, {0, -1, 1}, {-1, 1, 0}, {0, -1, -1}};
  // clang-format on
  const double* gradient = gradients[hash >> 60];
  return gradient[0] * x + gradient[1] * y + gradient[2] * z;
}

/// Well mixed bits of both lattice coordinates around a number. `odd` differs by axis.
struct LatticeHashes {
  u64 low, high;
  LatticeHashes(double cell, u64 odd, u64 seed) {
    const u64 first = seed + static_cast<u64>(static_cast<long long>(cell)) * odd;
    low = mix(first);
    high = mix(first + odd);
  }
};

double blend(double a, double b, double fraction) { return a + (b - a) * fraction; }

double fade(double t) { return t * t * t * (t * (t * 6.0 - 15.0) + 10.0); }

/// In [-1, 1], 0 at lattice points.
double get_noise(const GMathVec3<double>& p, u64 seed) {
  constexpr double most = 0x1p51;  // beyond, every number is a lattice point or next to one
  if (!(std::fabs(p.x) < most && std::fabs(p.y) < most && std::fabs(p.z) < most)) return 0.0;
  const GMathVec3<double> cell(std::floor(p.x), std::floor(p.y), std::floor(p.z));
  const GMathVec3<double> at = p - cell;
  const LatticeHashes x(cell.x, 0x9E3779B97F4A7C15ull, seed);
  const LatticeHashes y(cell.y, 0xC2B2AE3D27D4EB4Full, seed);
  const LatticeHashes z(cell.z, 0x165667B19E3779F9ull, seed);
  double corners[8];
  for (uint corner = 0; corner < 8; ++corner) {
    const bool right = (corner & 1) != 0, back = (corner & 2) != 0, top = (corner & 4) != 0;
    // The product mixes the three again: its highest bits depend on all bits.
    const u64 hash =
        ((right ? x.high : x.low) ^ (back ? y.high : y.low) ^ (top ? z.high : z.low)) * 0xD6E8FEB86659FD93ull;
    corners[corner] =
        get_gradient_product(hash, right ? at.x - 1.0 : at.x, back ? at.y - 1.0 : at.y, top ? at.z - 1.0 : at.z);
  }
  const double u = fade(at.x), v = fade(at.y), w = fade(at.z);
  const double low = blend(blend(corners[0], corners[1], u), blend(corners[2], corners[3], u), v);
  const double high = blend(blend(corners[4], corners[5], u), blend(corners[6], corners[7], u), v);
  return std::clamp(blend(low, high, w), -1.0, 1.0);
}

/// Pixel numbers around a coordinate, and where it lies between their centers.
struct PixelSpan {
  uint first = 0, second = 0;
  double fraction = 0.0;

  PixelSpan(double coordinate, uint count) {
    const double place = (coordinate - std::floor(coordinate)) * count - 0.5;  // in [-0.5, count - 0.5]
    const double cell = std::floor(place);
    fraction = place - cell;
    first = cell < 0.0 ? count - 1 : std::min(static_cast<uint>(cell), count - 1);
    second = first + 1 < count ? first + 1 : 0;
  }
};

}  // namespace

GeometryNoiseHeight::GeometryNoiseHeight(const GeometryNoiseSettings& settings) : settings_(settings) {
  // 1 + 1/2 + 1/4 + …
  first_amplitude_ =
      settings.amplitude / (2.0 - std::ldexp(1.0, 1 - static_cast<int>(std::min(settings.octaves, 64u))));
}

bool GeometryNoiseHeight::check(CoreString& error) const {
  if (settings_.octaves < 1 || settings_.octaves > most_octaves)
    return fail(error, "The number of octaves must be between 1 and 32.");
  if (!(settings_.frequency > 0.0) || !gmath_isfinited(settings_.frequency))
    return fail(error, "The frequency of the noise must be a number above 0.");
  if (!(settings_.amplitude >= 0.0) || !gmath_isfinited(settings_.amplitude))
    return fail(error, "The amplitude of the noise must be a number of 0 or more.");
  return true;
}

double GeometryNoiseHeight::get_height(const GeometryHeightPoint& point) const {
  double frequency = settings_.frequency, amplitude = first_amplitude_, sum = 0.0;
  for (uint octave = 0; octave < settings_.octaves; ++octave, frequency *= 2.0, amplitude *= 0.5)
    sum += amplitude * get_noise(point.position * frequency, mix(settings_.seed + octave));
  return std::clamp(sum, -settings_.amplitude, settings_.amplitude);
}

GeometryImageHeight::GeometryImageHeight(uint width, uint height, std::vector<float>&& pixels)
    : width_(width), height_(height), pixels_(std::move(pixels)) {}

bool GeometryImageHeight::check(CoreString& error) const {
  if (width_ == 0 || height_ == 0) return fail(error, "The height image has no pixels.");
  if (pixels_.size() != u64{width_} * height_)
    return fail(error, "The height image must have width times height pixels.");
  if (!std::all_of(pixels_.begin(), pixels_.end(), [](float pixel) { return gmath_isfinited(pixel); }))
    return fail(error, "A pixel of the height image is not finite.");
  return true;
}

double GeometryImageHeight::get_height(const GeometryHeightPoint& point) const {
  if (!gmath_isfinited(point.uv.x) || !gmath_isfinited(point.uv.y)) return std::nan("");
  const PixelSpan x(point.uv.x, width_), y(point.uv.y, height_);
  const float* first = pixels_.data() + std::size_t{y.first} * width_;
  const float* second = pixels_.data() + std::size_t{y.second} * width_;
  return blend(blend(first[x.first], first[x.second], x.fraction), blend(second[x.first], second[x.second], x.fraction),
               y.fraction);
}
