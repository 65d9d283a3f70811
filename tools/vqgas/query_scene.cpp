#include "tools/vqgas/query_scene.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "vq_app_base/app_base.h"

namespace {

/// Boxes of runs of segments. They do not depend on the tree, so that pictures with and without oriented nodes have the
/// same view.
template <CurveShape shape>
void add_hair_boxes(const CurveSet& curves, double time, std::vector<GMathBbox3<double>>& boxes) {
  const CurveSet::Place place = curves.get_place(time);
  const uint count = curves.get_segment_count(), run = 1 + count / 1024;
  for (uint first = 0; first < count; first += run) {
    GMathBbox3<double> box;
    box.set_empty();
    for (uint segment = first; segment < std::min(first + run, count); ++segment) {
      for (const CurvePoint<double>& point : curves.get_segment<shape>(segment, place).point) {
        const double radius = std::fmax(point.radius, 0.0);
        const GMathVec3<double> reach(radius, radius, radius);
        const GMathVec3<double> low = point.position - reach, high = point.position + reach;
        // The sum is finite when every value is; segments with others are not in the picture.
        if (!std::isfinite(low.x + low.y + low.z + high.x + high.y + high.z)) continue;
        box.add(low);
        box.add(high);
      }
    }
    if (box.min.x <= box.max.x) boxes.push_back(box);
  }
}

}  // namespace

QueryScene::QueryScene(AppBase& application, SceneSource&& source, const HairSettings& settings)
    : application_(application), factory_(application), ctx_(factory_) {
  const auto begin = std::chrono::steady_clock::now();
  const auto build = [&](const std::vector<Color>& group_colors, const auto& make_part) {
    AppProgressBar* progress = application.create_progress_bar("Build");
    add_part(make_part(progress), group_colors);
    progress->finish();
  };
  if (source.mesh) {
    build(source.mesh->group_colors,
          [&](AppProgressBar* progress) { return make_mesh_part(ctx_, std::move(*source.mesh), progress); });
  }
  for (HairSource& hair : source.hairs) {
    build(hair.group_colors,
          [&](AppProgressBar* progress) { return make_hair_part(ctx_, std::move(hair), settings, progress); });
  }
  build_seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();

  links_.material = &material_;
  group_links_.assign(group_colors_.size(), &links_);
  shading_ = ShadingGroupTable(group_links_);
}

void QueryScene::add_part(std::unique_ptr<ScenePart> part, const std::vector<Color>& group_colors) {
  part->first_primitive = get_primitive_count();
  part->first_group = static_cast<uint>(group_colors_.size());
  group_colors_.insert(group_colors_.end(), group_colors.begin(), group_colors.end());
  // A source without names has one group all the same.
  group_colors_.resize(part->first_group + part->get_geometry().get_shading_groups().get_count(), palette_color(0));
  parts_.push_back(std::move(part));
}

const GMathTimeSampling& QueryScene::get_motion_sampling() const {
  // Parts that move do so at the same times.
  for (const auto& part : parts_) {
    if (part->get_motion_sampling().get_sample_count() > 1) return part->get_motion_sampling();
  }
  return parts_.front()->get_motion_sampling();
}

void QueryScene::set_shutter(double open, double close) {
  // The boxes are sampled where the motion itself has its samples, one before the shutter and one after it included:
  // between them everything moves along straight lines, as the boxes do, so that no ray misses it.
  const GMathTimeSampling& sampling = get_motion_sampling();
  const double last = sampling.get_sample_count() - 1;
  const auto place = [&](double time) {
    return last > 0.0 ? (time - sampling.get_begin()) / sampling.get_step() : 0.0;
  };
  const uint first_sample = static_cast<uint>(std::clamp(std::floor(place(open)), 0.0, last));
  const uint last_sample = static_cast<uint>(std::clamp(std::ceil(place(close)), 0.0, last));
  motion_blur_.emplace(sampling.get_sample_time(first_sample), sampling.get_sample_time(last_sample),
                       last_sample - first_sample + 1);
  ctx_.set_motion_blur(&*motion_blur_);
}

uint QueryScene::get_primitive_count() const {
  if (parts_.empty()) return 0;
  return parts_.back()->first_primitive + parts_.back()->get_geometry().get_primitive_count();
}

uint QueryScene::get_kept_count() const {
  uint count = 0;
  for (const auto& part : parts_) count += part->get_tree().item_count;
  return count;
}

const CoreString& QueryScene::get_group_name(uint group) const {
  const auto after =
      std::find_if(parts_.begin() + 1, parts_.end(), [&](const auto& part) { return part->first_group > group; });
  const ScenePart& part = *after[-1];
  return part.get_geometry().get_shading_groups()[group - part.first_group];
}

GMathBbox3<double> QueryScene::get_bbox() const {
  GMathBbox3<double> box;
  box.set_empty();
  for (const auto& part : parts_) {
    if (!motion_blur_) {
      box.add(part->get_structure().get_bbox());
      continue;
    }
    const GMathTimeSampling& sampling = motion_blur_->get_time_sampling();
    for (uint sample = 0; sample < sampling.get_sample_count(); ++sample)
      box.add(part->get_structure().get_bbox_at(ctx_, sampling.get_sample_time(sample)));
  }
  return box;
}

std::vector<GMathBbox3<double>> QueryScene::get_tight_boxes() const {
  std::vector<GMathBbox3<double>> tight;
  const uint sample_count = motion_blur_ ? motion_blur_->get_sample_count() : 1;
  for (const auto& part : parts_) {
    if (const TubeMeshFast* hair = part->get_hair()) {
      const CurveSet& curves = hair->get_curves();
      for (uint sample = 0; sample < sample_count; ++sample) {
        const double time =
            get_shape_time(motion_blur_ ? motion_blur_->get_time_sampling().get_sample_time(sample) : 0.0);
        if (curves.get_shape() == CurveShape::linear) add_hair_boxes<CurveShape::linear>(curves, time, tight);
        if (curves.get_shape() == CurveShape::cubic) add_hair_boxes<CurveShape::cubic>(curves, time, tight);
      }
      continue;
    }
    const GasClusterable& structure = part->get_structure();
    CoreVector<void*> clusters;
    structure.get_clusters(clusters, 1024, 0.0f);
    std::vector<GMathBbox3<float>> boxes(clusters.get_count());
    for (uint sample = 0; sample < sample_count; ++sample) {
      if (motion_blur_) {
        const double time = motion_blur_->get_time_sampling().get_sample_time(sample);
        structure.get_clusters_bboxes_at(ctx_, time, clusters.as_array(), boxes.data());
      } else {
        structure.get_clusters_bboxes(clusters.as_array(), boxes.data());
      }
      for (const GMathBbox3<float>& box : boxes) tight.emplace_back(box);
    }
  }
  return tight;
}

const CtxEval& QueryScene::get_thread_ctx() const {
  const uint index = application_.get_thread_manager().get_index_of_current_thread();
  return index < ctx_.get_thread_ctx_count() ? ctx_.get_or_create_thread_ctx(index) : ctx_;
}

void QueryScene::find_nearest(CtxShader& shader, GeometryRayPacket& packet, GeometryRayVisits* visits) const {
  if (packet.get_count() == 0) return;
  GeometryRaytraceCtx& query = packet.begin_nearest(shading_);
  query.visits = visits;
  for (const auto& part : parts_) {
    // A later part only finds what is nearer than the hits so far.
    const GasObject& structure = part->get_structure();
    query.shading_group_offset = part->first_group;
    if (motion_blur_) {
      structure.ray_hit_nearest_motion(get_thread_ctx(), shader, query);
    } else {
      structure.ray_hit_nearest_static(get_thread_ctx(), shader, query);
    }
  }
}

void QueryScene::find_all(CtxShader& shader, GeometryRayPacket& packet) const {
  packet.get_hits().clear();
  if (packet.get_count() == 0) return;
  GeometryRaytraceCtx& query = packet.begin_all_hits(shading_);
  for (const auto& part : parts_) {
    const GasObject& structure = part->get_all_hits_structure();
    query.shading_group_offset = part->first_group;
    if (motion_blur_) {
      structure.ray_hit_motion(get_thread_ctx(), shader, query);
    } else {
      structure.ray_hit_static(get_thread_ctx(), shader, query);
    }
  }
}

void QueryScene::find_any(CtxShader& shader, GeometryRayPacket& packet, std::vector<u8>& is_hit) const {
  is_hit.assign(packet.get_count(), 0);
  if (!has_hair()) {
    find_all(shader, packet);
    for (const GeometryHit& hit : packet.get_hits().get_hits()) is_hit[hit.ray] = 1;
    return;
  }
  // Only the nearest hit sees through oriented nodes.
  find_nearest(shader, packet);
  for (uint ray = 0; ray < packet.get_count(); ++ray) is_hit[ray] = packet.get_nearest(ray).geometry != nullptr;
}

const ScenePart& QueryScene::get_part(const GeometryIntersection& hit) const {
  return **std::find_if(parts_.begin(), parts_.end(),
                        [&](const auto& part) { return &part->get_geometry() == hit.geometry; });
}

double QueryScene::get_shape_time(double time) const {
  return motion_blur_ ? time : std::numeric_limits<double>::quiet_NaN();
}
