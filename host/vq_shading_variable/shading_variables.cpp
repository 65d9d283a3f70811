#include "vq_shading_variable/shading_variables.h"

#include <cmath>
#include <utility>

namespace {
const Material empty_material;

/// Texel of a coordinate that repeats every 1. NaN and infinite coordinates read texel 0.
uint get_texel(double coordinate, uint size) {
  const double place = (coordinate - std::floor(coordinate)) * size;
  return place >= 0.0 && place < size ? static_cast<uint>(place) : 0;
}
}  // namespace

const Material* const ShadingGroupLinks::material_empty = &empty_material;

const ShadingVariablesCtx& ShadingVariablesCtx::get_default_ctx() {
  static const ShadingVariablesCtx ctx;
  return ctx;
}

ClipMap::ClipMap(uint width, uint height, std::vector<u8> texels)
    : width_(width), height_(height), texels_(std::move(texels)) {
  if (width_ == 0 || height_ == 0 || texels_.size() != std::size_t{width_} * height_) {
    width_ = height_ = 1;
    texels_.assign(1, 255);
  }
}

bool ClipMap::is_opaque_at(double u, double v) const {
  return texels_[std::size_t{get_texel(v, height_)} * width_ + get_texel(u, width_)] != 0;
}
