#include "tools/vqgas/scene/query_scene.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/memory_lack.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/poly_mesh.h"

namespace {

const std::vector<Color>& get_group_colors_of(const ShapeSource& source) {
  return std::visit([](const auto& shape) -> const std::vector<Color>& { return shape.group_colors; }, source);
}

/// Approximate build cost, for progress.
std::size_t get_weight(const ShapeSource& source) {
  if (const MeshSource* mesh = std::get_if<MeshSource>(&source)) return mesh->data.polygon_vertices.size() + 1;
  return 4 * std::get<HairSource>(source).data.points.size() + 1;
}

/// Sample times of the boxes of moving shapes and objects.
struct SampleTimes {
  double first, last;
  uint count;
};

/// Divides the steps of a shape's own sampling, from its sample before `open` to that after `close`, and continues them
/// beyond its first and last sample: then each own sample is a sample. None when there would be too many.
std::optional<SampleTimes> get_own_times(const GMathTimeSampling& own, double open, double close, uint least_steps) {
  constexpr double most_steps = 255.0, rounding = 1e-9;
  const double first = std::floor((open - own.get_begin()) / own.get_step() + rounding);
  const double steps = std::ceil((close - own.get_begin()) / own.get_step() - rounding) - first;
  if (!(steps <= most_steps)) return std::nullopt;
  const uint whole = static_cast<uint>(steps), parts = whole > 0 ? (least_steps + whole - 1) / whole : 1;
  const double begin = own.get_begin() + first * own.get_step();
  return SampleTimes{begin, begin + steps * own.get_step(), whole * std::max(parts, 1u) + 1};
}

/// Evenly over the shutter, several in each of the shortest steps of the deforming shapes, so that their own samples
/// are approximated closely.
SampleTimes get_even_times(const SceneTimes& times, double shortest_step, uint least_steps) {
  constexpr double most_steps = 255.0, steps_per_step = 4.0;
  const double steps = std::fmin(steps_per_step * (times.close - times.open) / shortest_step, most_steps);
  return {times.open, times.close, std::max(static_cast<uint>(steps), least_steps) + 1};
}

}  // namespace

QueryScene::QueryScene(OfApp& application, SceneSource&& source, const ShapeSettings& settings, double frame)
    : application_(application), ctx_(application.get_factory()) {
  const auto begin = std::chrono::steady_clock::now();
  note_keys(source.objects);
  for (const std::vector<ObjectSource>& group : source.groups) note_keys(group);
  for (const BundleSource& bundle : source.bundles)
    if (bundle.motion != nullptr) first_key_ = -std::numeric_limits<double>::infinity(), last_key_ = -first_key_;
  for (const ObjectSource& object : source.objects) is_animated_.push_back(object.is_animated);
  build_shapes(source, settings);
  build_clouds(source);
  AppProgressBar* progress = application.create_progress_bar("Build scene");
  const SceneObjectMaker maker(application, shapes_, clouds_, {&material_, nullptr, nullptr}, settings.hair, frame);
  objects_ = maker.make(source, false, progress);
  progress->finish();
  throw_if_interrupted();  // a build that was stopped leaves an empty structure
  set_bundle_structures();
  note_clouds(source);
  const bool has_all_hits = std::any_of(shapes_.begin(), shapes_.end(), [&](const SceneShape& shape) {
    const bool is_oriented = shape.tree != nullptr && shape.tree->oriented_count > 0;
    return shape.all_hits_structure != shape.structure || (settings.hair.has_all_hits_queries && is_oriented);
  });
  if (has_all_hits) all_hits_objects_ = maker.make(source, true, nullptr);
  throw_if_interrupted();
  build_seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  throw_if_memory_lacked();
  check_files(source.files);
}

void QueryScene::check_files(const std::vector<SceneFile>& files) const {
  auto shape = shapes_.begin();
  auto cloud = clouds_.begin();
  for (const SceneFile& file : files) {
    const auto end = shape + static_cast<std::ptrdiff_t>(file.shape_count);
    const bool is_hair = shape != end && shape->hair != nullptr;
    const bool has_shapes = file.shape_count > 0 || file.cloud_count == 0;
    if (has_shapes && std::all_of(shape, end, [](const SceneShape& empty) { return empty.get_kept_count() == 0; }))
      throw InputError(file.name,
                       is_hair ? "holds no segment with finite points" : "holds no polygon with finite corners");
    const auto cloud_end = cloud + static_cast<std::ptrdiff_t>(file.cloud_count);
    if (cloud != cloud_end &&
        std::all_of(cloud, cloud_end, [](const SceneCloud& empty) { return empty.finite_count == 0; }))
      throw InputError(file.name, "holds no finite point");
    shape = end;
    cloud = cloud_end;
  }
  if (!has_surfaces() && !has_points())
    throw InputError(files.front().name, "holds no object with a place: all matrices are singular or not finite");
}

void QueryScene::set_bundle_structures() {
  for (const SceneBundle& bundle : objects_.bundles) {
    for (uint slot = 0; slot < bundle.shapes.size(); ++slot) {
      SceneShape& shape = shapes_[bundle.shapes[slot]];
      const GasClusterable* structure = bundle.structure->get_slot_structure(slot);
      if (shape.structure == nullptr && structure != nullptr)
        shape.set_bundle_structure(std::shared_ptr<const GasClusterable>(bundle.structure, structure));
    }
  }
}

void QueryScene::build_shapes(SceneSource& source, const ShapeSettings& settings) {
  std::vector<ShapeSource>& sources = source.shapes;
  std::vector<u8> has_structure(sources.size(), 0);  // others get theirs from a bundle
  const auto note_shapes = [&](const std::vector<ObjectSource>& objects) {
    for (const ObjectSource& object : objects)
      if (object.shape != core_invalid_index) has_structure[object.shape] = 1;
  };
  note_shapes(source.objects);
  for (const std::vector<ObjectSource>& group : source.groups) note_shapes(group);
  std::size_t whole = 0;
  for (const ShapeSource& shape : sources) whole += get_weight(shape);
  shapes_.reserve(sources.size());  // objects keep references
  AppProgressBar* progress = application_.create_progress_bar("Build");
  for (ShapeSource& shape : sources) {
    const std::vector<Color> group_colors = get_group_colors_of(shape);
    const bool is_built = has_structure[shapes_.size()] != 0;
    progress->begin_task("Build shape", static_cast<double>(get_weight(shape)) / static_cast<double>(whole));
    add_shape(make_shape(ctx_, std::move(shape), settings, is_built, progress), group_colors);
    progress->end_task();
    throw_if_interrupted();  // a build that was stopped leaves an empty structure
  }
  progress->finish();
}

void QueryScene::build_clouds(SceneSource& source) {
  if (source.clouds.empty()) return;
  double whole = 0.0;
  for (const PointSource& cloud : source.clouds) whole += static_cast<double>(cloud.positions.size()) + 1.0;
  clouds_.reserve(source.clouds.size());  // objects keep references
  AppProgressBar* progress = application_.create_progress_bar("Build");
  for (PointSource& cloud : source.clouds) {
    progress->begin_task("Build points", (static_cast<double>(cloud.positions.size()) + 1.0) / whole);
    clouds_.push_back(make_cloud(application_, ctx_, std::move(cloud), progress));
    progress->end_task();
    throw_if_interrupted();  // a build that was stopped leaves an empty structure
  }
  progress->finish();
}

void QueryScene::note_clouds(const SceneSource& source) {
  for (uint index = 0; index < source.objects.size(); ++index) {
    const uint cloud = source.objects[index].cloud;
    object_clouds_.push_back(cloud < clouds_.size() ? &clouds_[cloud] : nullptr);
    if (cloud < clouds_.size()) numbers_[reinterpret_cast<u64>(objects_.objects[index].get())] = index;
  }
}

void QueryScene::add_shape(SceneShape&& shape, const std::vector<Color>& group_colors) {
  shape.first_primitive = get_primitive_count();
  shape.first_group = static_cast<uint>(group_colors_.size());
  group_colors_.insert(group_colors_.end(), group_colors.begin(), group_colors.end());
  // A source without group names has one group.
  group_colors_.resize(shape.first_group + shape.geometry->get_shading_groups().get_count(), palette_color(0));
  shapes_.push_back(std::move(shape));
  shapes_by_geometry_[shapes_.back().geometry.get()] = &shapes_.back();
}

void QueryScene::note_keys(const std::vector<ObjectSource>& objects) {
  for (const ObjectSource& object : objects) {
    if (object.keys.size() < 2) continue;
    for (const ModuleMatrixKey& key : object.keys) {
      first_key_ = std::min(first_key_, key.time);
      last_key_ = std::max(last_key_, key.time);
    }
  }
}

void QueryScene::set_shutter(const SceneTimes& times) {
  constexpr uint smooth_steps = 8;  // so that turning objects look round
  const uint least_steps = times.samples ? *times.samples - 1 : smooth_steps;
  const GMathTimeSampling* common = nullptr;
  bool is_common = true;
  double shortest_step = std::numeric_limits<double>::infinity();
  for (const SceneShape& shape : shapes_) {
    const GMathTimeSampling& own = shape.motion_sampling;
    if (own.get_sample_count() < 2) continue;
    if (common == nullptr) common = &own;
    is_common = is_common && own.get_begin() == common->get_begin() && own.get_step() == common->get_step();
    shortest_step = std::min(shortest_step, own.get_step());
  }
  std::optional<SampleTimes> found;
  if (!(times.close > times.open)) {
    found = SampleTimes{times.open, times.open, 1};
  } else if (common != nullptr && is_common) {
    // The scene is static before all first samples and keys, and after the last ones.
    const bool has_keys = first_key_ < last_key_;
    const double first = std::min(common->get_begin(), first_key_);
    const double last = std::max(common->get_sample_time(common->get_sample_count() - 1), last_key_);
    found = get_own_times(*common, std::clamp(times.open, first, last), std::clamp(times.close, first, last),
                          has_keys || times.samples ? least_steps : 0);
  }
  if (!found) found = get_even_times(times, shortest_step, least_steps);
  motion_blur_.emplace(found->first, found->last, found->count);
  ctx_.set_motion_blur(&*motion_blur_);
}

bool QueryScene::has_hair() const {
  return std::any_of(shapes_.begin(), shapes_.end(), [](const SceneShape& shape) { return shape.hair != nullptr; });
}

uint QueryScene::get_primitive_count() const {
  if (shapes_.empty()) return 0;
  return shapes_.back().first_primitive + shapes_.back().geometry->get_primitive_count();
}

uint QueryScene::get_kept_count() const {
  uint count = 0;
  for (const SceneShape& shape : shapes_) count += shape.get_kept_count();
  return count;
}

DisplacedMemory QueryScene::get_displaced_memory() const {
  DisplacedMemory sum;
  for (const SceneShape& shape : shapes_) {
    const DisplacedMemory memory = shape.get_displaced_memory();
    sum.micro_triangles += memory.micro_triangles;
    sum.cache_bytes += memory.cache_bytes;
    sum.peak_cache_bytes += memory.peak_cache_bytes;
    sum.cache_limit += memory.cache_limit;
  }
  return sum;
}

const CoreString& QueryScene::get_group_name(uint group) const {
  const auto after = std::find_if(shapes_.begin() + 1, shapes_.end(),
                                  [&](const SceneShape& shape) { return shape.first_group > group; });
  return after[-1].geometry->get_shading_groups()[group - after[-1].first_group];
}

GMathBbox3<double> QueryScene::get_bbox() const {
  GMathBbox3<double> box;
  box.set_empty();
  if (has_points()) box.add(objects_.particles->get_bbox());
  if (!has_surfaces()) return box;
  if (!motion_blur_) {
    box.add(objects_.tree->get_bbox());
    return box;
  }
  const GMathTimeSampling& sampling = motion_blur_->get_time_sampling();
  for (uint sample = 0; sample < sampling.get_sample_count(); ++sample)
    box.add(objects_.tree->get_bbox_at(ctx_, sampling.get_sample_time(sample)));
  return box;
}

const CtxEval& QueryScene::get_thread_ctx() const {
  const uint index = application_.get_thread_manager().get_index_of_current_thread();
  return index < ctx_.get_thread_ctx_count() ? ctx_.get_or_create_thread_ctx(index) : ctx_;
}

void QueryScene::find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits,
                              bool has_end_matrices) const {
  if (packet.get_count() == 0) return;
  GeometryRaytraceCtx& query = packet.begin_nearest(shading_);
  query.visits = visits;
  query.settings.compute_motion_vectors = has_end_matrices;
  answer_nearest(shader, query);
}

void QueryScene::find_any(CtxShader& shader, GeometryRayPacket& packet) const {
  if (packet.get_count() != 0) answer_nearest(shader, packet.begin_any_hit(shading_));
}

void QueryScene::answer_nearest(CtxShader& shader, GeometryRaytraceCtx& query) const {
  if (motion_blur_) {
    objects_.tree->ray_hit_nearest_motion(get_thread_ctx(), shader, query);
  } else {
    objects_.tree->ray_hit_nearest_static(get_thread_ctx(), shader, query);
  }
}

void QueryScene::find_all(CtxShader& shader, GeometryRayPacket& packet) const {
  packet.get_hits().clear();
  if (packet.get_count() == 0) return;
  const GasSceneTree& tree = all_hits_objects_.tree != nullptr ? *all_hits_objects_.tree : *objects_.tree;
  GeometryRaytraceCtx& query = packet.begin_all_hits(shading_);
  if (motion_blur_) {
    tree.ray_hit_motion(get_thread_ctx(), shader, query);
  } else {
    tree.ray_hit_static(get_thread_ctx(), shader, query);
  }
}

void QueryScene::find_in_frustum(CtxShader& shader, GeometryFrustumCtx& query) const {
  query.shading = &shading_;
  objects_.tree->frustum_hit(get_thread_ctx(), shader, query);
  objects_.particles->frustum_hit(get_thread_ctx(), shader, query);
}

std::optional<ScenePoint> QueryScene::get_point(const GeometryRayFrustumRecord& record) const {
  if (record.index == core_invalid_index) return std::nullopt;
  const uint object = numbers_.at(record.object);
  const SceneCloud& cloud = *object_clouds_[object];
  const GMathVec3<double> local(cloud.get_position(record.index));
  return ScenePoint{object, record.index, &cloud, objects_.objects[object]->get_global_matrix().transform_point(local)};
}

std::vector<ScenePoint> QueryScene::list_points(CtxShader& shader, const GeometryFrustumCtx& query, uint object) const {
  std::vector<ScenePoint> points;
  const SceneCloud* cloud = object_clouds_[object];
  if (cloud == nullptr || !has_invertible_matrix(*objects_.objects[object])) return points;
  const ModuleSceneObject& item = *objects_.objects[object];
  GeometryFrustumCtx local;
  static_cast<GeometryFrustumData&>(local) = query;
  local.mode = static_cast<uint>(GeometryFrustumMode::vertices);
  local.transform(item.get_inv_global_matrix(), item.get_global_matrix());
  item.frustum_hit(get_thread_ctx(), shader, local);
  points.reserve(local.get_points().size());
  for (const GeometryFrustumVertex& vertex : local.get_points())
    points.push_back({object, vertex.index, cloud, item.get_global_matrix().transform_point(vertex.position)});
  std::sort(points.begin(), points.end(), [](const ScenePoint& a, const ScenePoint& b) { return a.point < b.point; });
  return points;
}

std::optional<SceneHit> QueryScene::get_nearest(GeometryRayPacket& packet, uint ray) const {
  const GeometryIntersection& record = packet.get_nearest(ray);
  if (record.geometry == nullptr) return std::nullopt;
  return SceneHit{&record, packet.get_nearest_transform(ray), packet.get_nearest_path(ray),
                  shapes_by_geometry_.at(record.geometry)};
}

SceneHit QueryScene::get_hit(GeometryRayPacket& packet, const GeometryIntersection& record) const {
  const GeometryHitList& hits = packet.get_hits();
  return {&record, hits.get_transform(record), hits.get_path(record), shapes_by_geometry_.at(record.geometry)};
}

GMathVec3<double> QueryScene::get_smooth_position(const SceneHit& hit, double time, bool is_behind) const {
  if (hit.shape->mesh == nullptr) return get_surface_point(hit, time).position;
  const GMathVec3<double> local = hit.shape->mesh->get_smooth_position(*hit.record, get_shape_time(time), is_behind);
  return hit.transform == nullptr ? local : hit.transform->matrix.transform_point(local);
}

GMathVec3<double> QueryScene::get_end_position(const SceneHit& hit, double time, double& end_time) const {
  const GMathTimeSampling& sampling = motion_blur_->get_time_sampling();
  uint sample = 0;
  double fraction = 0.0;
  sampling.get_span(time, sample, fraction);
  end_time = sampling.get_sample_time(std::min(sample + 1, sampling.get_sample_count() - 1));
  return geometry_get_end_position(*hit.record, hit.transform, end_time);
}

double QueryScene::get_shape_time(double time) const {
  return motion_blur_ ? time : std::numeric_limits<double>::quiet_NaN();
}
