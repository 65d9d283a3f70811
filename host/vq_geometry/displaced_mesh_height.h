// host/vq_geometry/displaced_mesh_height.h
//
// Height functions for DisplacedMesh: how far a point of the surface moves along its normal. A program adds its own by
// deriving from GeometryHeight.
#pragma once
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_string.h"
#include "vq_gmath/gmath_vec.h"

/// A point of the undisplaced surface at rest.
struct GeometryHeightPoint {
  GMathVec3<double> position;
  GMathVec2<double> uv;  ///< of UV map 0; 0 unless the function uses_uv()
};

class VQ_EXPORT GeometryHeight {
 public:
  GeometryHeight() = default;
  GeometryHeight(const GeometryHeight&) = delete;
  GeometryHeight& operator=(const GeometryHeight&) = delete;
  virtual ~GeometryHeight() = default;

  /// The height at a point, in the unit of the positions. Called from many threads at once. Equal points must give
  /// equal heights, bit by bit. NaN counts as 0.
  virtual double get_height(const GeometryHeightPoint& point) const = 0;
  /// True if the height depends on the UV coordinates: the mesh must then have a UV map.
  virtual bool uses_uv() const { return false; }
  /// False, with one sentence in `error`, when the function cannot be evaluated.
  virtual bool check(CoreString& /*error*/) const { return true; }
  /// Bytes held.
  virtual u64 get_memory_size() const = 0;
};

struct GeometryNoiseSettings {
  u64 seed = 0;            ///< different seeds give unrelated noise
  uint octaves = 4;        ///< 1 to 32; each has twice the frequency and half the height of the one before
  double frequency = 1.0;  ///< of the first octave: lattice cells per unit of length; above 0
  double amplitude = 1.0;  ///< largest height; 0 or more
};

/// Fractal sum of gradient noise of the position: Perlin 1985, "An Image Synthesizer", with the gradients and the
/// interpolation of Perlin 2002, "Improving Noise". Cost: some 300 instructions per octave.
class VQ_EXPORT GeometryNoiseHeight final : public GeometryHeight {
 public:
  explicit GeometryNoiseHeight(const GeometryNoiseSettings& settings);

  /// In [-amplitude, amplitude]. 0 where a coordinate times the frequency is beyond 2^51 or NaN.
  double get_height(const GeometryHeightPoint& point) const override;
  bool check(CoreString& error) const override;
  u64 get_memory_size() const override { return sizeof(*this); }

 private:
  GeometryNoiseSettings settings_;
  double first_amplitude_ = 0.0;  // so that the sum of all octaves reaches the amplitude
};

/// An image, stretched over the unit square of UV map 0 and repeated beyond. Between pixel centers the value is
/// bilinear; the last column is followed by the first, and so are the rows.
class VQ_EXPORT GeometryImageHeight final : public GeometryHeight {
 public:
  /// @param pixels  [width * height] heights in the unit of the positions, row by row; v = 0 is the first row's edge
  GeometryImageHeight(uint width, uint height, std::vector<float>&& pixels);

  /// NaN for UV coordinates that are not finite.
  double get_height(const GeometryHeightPoint& point) const override;
  bool uses_uv() const override { return true; }
  /// False for a size of 0, a wrong number of pixels, and pixels that are not finite.
  bool check(CoreString& error) const override;
  u64 get_memory_size() const override { return sizeof(*this) + pixels_.capacity() * sizeof(float); }

 private:
  uint width_, height_;
  std::vector<float> pixels_;
};
