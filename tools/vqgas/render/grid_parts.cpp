#include "tools/vqgas/render/grid_parts.h"

#include "tools/vqgas/image/picture.h"

GridParts::GridParts(const QueryScene& scene) : scene_(scene) {
  uint first_part = 0;
  for (const SceneShape& shape : scene.get_shapes()) {
    std::vector<uint>& parts = parts_.emplace_back();
    if (shape.grid == nullptr) continue;
    parts.assign(shape.geometry->get_primitive_count(), core_invalid_index);
    const uint kept = shape.get_kept_count();
    const CoreVector<uint> part_of = shape.grid->get_grid().list_parts(kept);
    for (uint position = 0; position < kept; ++position)
      if (part_of[position] != core_invalid_index)
        parts[shape.grid->get_primitive(position)] = first_part + part_of[position];
    first_part += shape.grid->get_grid().get_part_count();
  }
}

void GridParts::hide_unbuilt() {
  uint first_part = 0;
  for (std::size_t shape = 0; shape < parts_.size(); ++shape) {
    if (parts_[shape].empty()) continue;
    const GasGridTree& grid = scene_.get_shapes()[shape].grid->get_grid();
    for (uint& part : parts_[shape])
      if (part != core_invalid_index && !grid.is_part_built(part - first_part)) part = unbuilt_part;
    first_part += grid.get_part_count();
  }
}

uint GridParts::get_part(const SceneHit& hit) const {
  const std::vector<uint>& parts = parts_[static_cast<std::size_t>(hit.shape - scene_.get_shapes().data())];
  return parts.empty() ? core_invalid_index : parts[hit.record->primitive];
}

GridPartCounts count_grid_parts(const QueryScene& scene) {
  GridPartCounts counts;
  for (const SceneShape& shape : scene.get_shapes()) {
    if (shape.grid == nullptr) continue;
    counts.parts += shape.grid->get_grid().get_part_count();
    counts.built += shape.grid->get_grid().get_built_part_count();
  }
  return counts;
}
