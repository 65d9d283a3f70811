// host/vq_shading_variable/shading_variables.h
//
// The links of a shading group, and the table from a scene-wide group number to its links.
//
//   ShadingGroupTable   entries[count] --> ShadingGroupLinks { material, variables, clip_map }   (null: not shaded)
//
// A primitive whose group has no links, or links to the empty material, cannot be hit.
#pragma once
#include <span>
#include <vector>

#include "vq_core/core_export.h"
#include "vq_core/core_types.h"

/// The properties of a material that queries use.
struct Material {
  double transparency = 0.0;  ///< 0 opaque, 1 clear
  uint kind_mask = 0;         ///< one bit per ray type: the transparency applies to rays of that type
};

/// Named values that shading networks read. Queries only carry a pointer to it.
class VQ_EXPORT ShadingVariablesCtx {
 public:
  /// The default where links give none. Exists as long as the program.
  static const ShadingVariablesCtx& get_default_ctx();
};

/// A grid of opacities over the unit square of UV: 0 removes the surface. Nearest texel, repeated outside.
class VQ_EXPORT ClipMap {
 public:
  /// `texels` is row-major, width * height opacities in [0, 255]; anything else makes an opaque map.
  ClipMap(uint width, uint height, std::vector<u8> texels);
  bool is_opaque_at(double u, double v) const;

 private:
  uint width_, height_;
  std::vector<u8> texels_;
};

struct VQ_EXPORT ShadingGroupLinks {
  const Material* material = nullptr;
  const ShadingVariablesCtx* variables = nullptr;
  const ClipMap* clip_map = nullptr;

  /// The material of a group that cannot be hit, by choice of the scene.
  static const Material* const material_empty;
};

/// Scene-wide group number to links. Does not own the links.
class ShadingGroupTable {
 public:
  ShadingGroupTable() = default;
  explicit ShadingGroupTable(std::span<const ShadingGroupLinks* const> entries)
      : entries_(entries.data()), count_(static_cast<uint>(entries.size())) {}

  /// Null when the group is beyond the table or has no links. O(1).
  const ShadingGroupLinks* get_links(uint group) const { return group < count_ ? entries_[group] : nullptr; }
  uint get_count() const { return count_; }

 private:
  const ShadingGroupLinks* const* entries_ = nullptr;
  uint count_ = 0;
};
