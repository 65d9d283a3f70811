#include "vq_geometry/displaced_mesh.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <utility>

#include "vq_core/core_class_info.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_gmath/gmath_key_bbox.h"

namespace {

constexpr double nan_time = std::numeric_limits<double>::quiet_NaN();

/// Tiles of this size are computed in a fraction of a millisecond, and small enough for a cache to hold many.
constexpr uint usual_tile_cells = 64;

/// A ray tests the boxes of all tiles of a patch: at most 8 * 9 / 2.
constexpr uint most_tile_rows = 8;
static_assert(DisplacedMeshSettings::most_rate <= most_tile_rows * DisplacedMeshTileShape::most_cells);

bool fail(CoreString& error, const char* sentence) {
  error = sentence;
  return false;
}

bool check_settings(const PolyMesh& base, const DisplacedMeshSettings& settings, CoreString& error) {
  if (!(settings.bound >= 0.0) || !gmath_isfinited(settings.bound))
    return fail(error, "The bound of the heights must be a number of 0 or more.");
  if (settings.rate < 1 || settings.rate > DisplacedMeshSettings::most_rate)
    return fail(error, "The displacement rate must be between 1 and 1024.");
  if (settings.height == nullptr) return fail(error, "The displaced mesh has no height function.");
  if (!settings.height->check(error)) return false;
  if (settings.height->uses_uv() && base.get_uv_count() == 0)
    return fail(error, "The height function needs a UV map, and the mesh has none.");
  u64 most_parts = 0;
  for (uint polygon = 0; polygon < base.get_polygon_count(); ++polygon)
    most_parts = std::max<u64>(most_parts, base.get_part_count(polygon));
  if (most_parts * settings.rate * settings.rate >= core_invalid_index)
    return fail(error, "A polygon has too many corners for the displacement rate.");
  return true;
}

uint divide_up(uint number, uint divisor) { return (number + divisor - 1) / divisor; }

GMathBbox3<double> get_nan_box() {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  return {{nan, nan, nan}, {nan, nan, nan}};
}

}  // namespace

const CoreClassInfo& DisplacedMesh::class_info() {
  static const CoreClassInfo& info =
      CoreClassInfo::new_class("DisplacedMesh", core_destroy_object, GeometryObject::class_info(), nullptr);
  return info;
}

bool DisplacedMesh::create(const PolyMesh& base, const DisplacedMeshSettings& settings, CoreString& error) {
  if (!check_settings(base, settings, error)) return false;
  const uint tile_cells = divide_up(
      settings.rate, divide_up(settings.rate, std::max(usual_tile_cells, divide_up(settings.rate, most_tile_rows))));
  const uint tile_rows = divide_up(settings.rate, tile_cells);
  try {
    auto input = std::make_unique<const DisplacedMeshInput>(base, settings.height, settings.bound, settings.rate);
    std::vector<DisplacedMeshTileShape> shapes;
    for (uint distance = 0; distance < std::min(tile_rows, 3u); ++distance)
      shapes.emplace_back(tile_cells, settings.rate - (tile_rows - 1 - distance) * tile_cells);
    u64 tile_bytes = 0;
    for (const DisplacedMeshTileShape& shape : shapes)
      tile_bytes = std::max(tile_bytes, shape.vertex_count * u64{12} + shape.node_count * u64{96});
    const u64 tiles_of_patch = tile_rows * (tile_rows + 1) / 2;
    const u64 tiles = tiles_of_patch * base.get_first_part(base.get_polygon_count());
    if (tiles >= (u64{1} << 40) / input->get_frame_count()) throw std::bad_alloc();
    auto boxes = std::make_unique<DisplacedMeshBoxes>(tiles * input->get_frame_count());
    auto cache = std::make_unique<DisplacedMeshCache>(settings.cache_bytes, tile_bytes * (base.has_motion() ? 2 : 1));
    // Nothing below can fail.
    base_ = &base;
    rate_ = settings.rate;
    tile_cells_ = tile_cells;
    tile_rows_ = tile_rows;
    tiles_of_patch_ = static_cast<uint>(tiles_of_patch);
    cache_ = std::move(cache);
    boxes_ = std::move(boxes);
    shapes_ = std::move(shapes);
    input_ = std::move(input);
    reported_bytes_.store(get_memory_size(), std::memory_order_relaxed);
    return true;
  } catch (const std::bad_alloc&) {
    return fail(error, "There is not enough memory for the displaced mesh.");
  }
}

u64 DisplacedMesh::get_cache_bytes() const {
  return cache_ == nullptr ? 0 : cache_->get_bytes().now.load(std::memory_order_relaxed);
}

u64 DisplacedMesh::get_peak_cache_bytes() const {
  return cache_ == nullptr ? 0 : cache_->get_bytes().peak.load(std::memory_order_relaxed);
}

u64 DisplacedMesh::get_memory_size() const {
  if (input_ == nullptr) return sizeof(*this);
  return sizeof(*this) + input_->get_memory_size() + shapes_.capacity() * sizeof(DisplacedMeshTileShape) +
         boxes_->get_memory_size() + cache_->get_memory_size();
}

const CoreArray<CoreString>& DisplacedMesh::get_shading_groups() const {
  static const CoreArray<CoreString> none;
  return base_ == nullptr ? none : base_->get_shading_groups();
}

/// Measured against a quad of PolyMesh, which costs 1: from 6 times at rate 1 to 13 times at rate 64.
double DisplacedMesh::get_build_parameter() const { return 6.0 + std::log2(rate_); }

DisplacedMesh::Moment DisplacedMesh::get_moment(double time) const {
  Moment moment;
  if (!has_motion() || std::isnan(time)) return moment;
  base_->get_motion_sampling().get_span(time, moment.first_frame, moment.fraction);
  ++moment.first_frame;  // frame 0 is the mesh at rest
  moment.frame_count = base_->get_motion_sampling().get_sample_count() > 1 ? 2 : 1;
  return moment;
}

GMathVec3<double> DisplacedMesh::get_micro_vertex(uint primitive, uint part, uint i, uint j, double time) const {
  const Moment moment = get_moment(time);
  GMathVec3<float> positions[2];
  DisplacedMeshPatch(*input_, primitive, part, moment.first_frame, moment.frame_count).get_positions(i, j, positions);
  if (moment.frame_count == 1) return GMathVec3<double>(positions[0]);
  return GMathVec3<double>(positions[0]) * (1.0 - moment.fraction) + GMathVec3<double>(positions[1]) * moment.fraction;
}

DisplacedMeshCache::Pin DisplacedMesh::get_tile(const TilePlace& place, const Moment& moment) const {
  DisplacedMeshCache::Pin tile = cache_->find({place.index, moment.first_frame});
  return tile != nullptr ? tile : compute_tile(place, moment);
}

DisplacedMeshCache::Pin DisplacedMesh::compute_tile(const TilePlace& place, const Moment& moment) const {
  const DisplacedMeshPatch patch(*input_, place.primitive, place.part, moment.first_frame, moment.frame_count);
  const uint distance = tile_rows_ - 1 - place.row - place.column;
  auto tile =
      std::make_shared<const DisplacedMeshTile>(patch, shapes_[std::min(distance, 2u)], place.row * tile_cells_,
                                                place.column * tile_cells_, moment.frame_count, cache_->get_bytes());
  for (uint frame = 0; frame < moment.frame_count; ++frame)
    boxes_->put(place.index * input_->get_frame_count() + moment.first_frame + frame, tile->get_box(frame));
  DisplacedMeshCache::Pin cached = cache_->insert({place.index, moment.first_frame}, std::move(tile));
  report_memory();
  return cached;
}

/// One of several threads reports a change.
void DisplacedMesh::report_memory() const {
  const u64 size = get_memory_size();
  u64 reported = reported_bytes_.load(std::memory_order_relaxed);
  if (std::max(size, reported) - std::min(size, reported) <= size / 20) return;
  if (reported_bytes_.compare_exchange_strong(reported, size, std::memory_order_relaxed)) advert_memory_changed();
}

/// The box of a tile in the moment's first frame or the one after.
GMathBbox3<float> DisplacedMesh::get_tile_box(const TilePlace& place, const Moment& moment, uint frame) const {
  GMathBbox3<float> box;
  if (!boxes_->get(place.index * input_->get_frame_count() + moment.first_frame + frame, box))
    box = compute_tile(place, moment)->get_box(frame);
  return box;
}

GMathBbox3<double> DisplacedMesh::compute_blended_box(const TilePlace& place, const Moment& moment) const {
  const DisplacedMeshCache::Pin tile = get_tile(place, moment);
  for (uint frame = 0; frame < 2; ++frame)
    if (!gmath_is_valid_box(GMathBbox3<double>(tile->get_box(frame)))) return get_nan_box();
  GMathBbox3<double> box;
  for (uint k = 0; k < tile->get_shape().vertex_count; ++k)
    box.add(GMathVec3<double>(tile->get_vertices(0)[k]) * (1.0 - moment.fraction) +
            GMathVec3<double>(tile->get_vertices(1)[k]) * moment.fraction);
  return box;
}

GMathBbox3<double> DisplacedMesh::compute_bbox(uint primitive, double time) const {
  const Moment moment = get_moment(time);
  const bool in_frame = moment.fraction == 0.0 || moment.fraction == 1.0;
  GMathBbox3<double> box;
  const bool is_valid = for_each_tile(primitive, [&](const TilePlace& place) {
    const GMathBbox3<double> tile_box =
        in_frame ? GMathBbox3<double>(get_tile_box(place, moment, moment.fraction == 1.0 ? 1 : 0))
                 : compute_blended_box(place, moment);
    box.add(tile_box);
    return gmath_is_valid_box(tile_box);
  });
  return is_valid && !box.is_empty() ? box : get_nan_box();
}

GMathBbox3<double> DisplacedMesh::get_primitive_bbox(const CtxEval& /*ctx*/, const uint& primitive) const {
  return compute_bbox(primitive, nan_time);
}

GMathBbox3<double> DisplacedMesh::get_primitive_bbox_at(const CtxEval& ctx, const double& time,
                                                        const uint& primitive) const {
  const CtxMotionBlur* motion_blur = ctx.get_motion_blur();
  return gmath_get_bbox_between_keys(motion_blur != nullptr ? &motion_blur->get_time_sampling() : nullptr,
                                     base_->get_motion_sampling(), time,
                                     [&](double at) { return compute_bbox(primitive, at); });
}
