#include "tools/vqgas/query_scene.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "tools/vqgas/input_error.h"
#include "vq_app_base/app_base.h"

QueryScene::QueryScene(AppBase& application, const std::string& name, MeshSource&& source)
    : application_(application), factory_(application), ctx_(factory_), group_colors_(std::move(source.group_colors)) {
  CoreString fault;
  if (!mesh_.create(std::move(source.data), fault)) throw InputError(name, fault.get_data());

  AppProgressBar* progress = application.create_progress_bar("Build");
  const auto begin = std::chrono::steady_clock::now();
  const bool built = structure_.create(ctx_, &mesh_, &mesh_, progress);
  build_seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  progress->finish();
  if (!built || structure_.get_tree().is_empty()) throw InputError(name, "holds no polygon with finite corners");

  links_.material = &material_;
  group_links_.assign(mesh_.get_shading_groups().get_count(), &links_);
  shading_ = ShadingGroupTable(group_links_);
}

void QueryScene::set_shutter(double open, double close) {
  // The boxes are sampled where the mesh's own motion has its samples, one before the shutter and one after it
  // included: between them the mesh moves along straight lines, as the boxes do, so that no ray misses it.
  const GMathTimeSampling& sampling = mesh_.get_motion_sampling();
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

GMathBbox3<double> QueryScene::get_bbox() const {
  GMathBbox3<double> box = structure_.get_bbox();
  if (!motion_blur_) return box;
  box.set_empty();
  const GMathTimeSampling& sampling = motion_blur_->get_time_sampling();
  for (uint sample = 0; sample < sampling.get_sample_count(); ++sample)
    box.add(structure_.get_bbox_at(ctx_, sampling.get_sample_time(sample)));
  return box;
}

std::vector<GMathBbox3<double>> QueryScene::get_tight_boxes() const {
  CoreVector<void*> clusters;
  structure_.get_clusters(clusters, 1024, 0.0f);
  std::vector<GMathBbox3<float>> boxes(clusters.get_count());
  std::vector<GMathBbox3<double>> tight;
  const uint sample_count = motion_blur_ ? motion_blur_->get_sample_count() : 1;
  for (uint sample = 0; sample < sample_count; ++sample) {
    if (motion_blur_) {
      const double time = motion_blur_->get_time_sampling().get_sample_time(sample);
      structure_.get_clusters_bboxes_at(ctx_, time, clusters.as_array(), boxes.data());
    } else {
      structure_.get_clusters_bboxes(clusters.as_array(), boxes.data());
    }
    for (const GMathBbox3<float>& box : boxes) tight.emplace_back(box);
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
  const GasObject& structure = structure_;
  if (motion_blur_) {
    structure.ray_hit_nearest_motion(get_thread_ctx(), shader, query);
  } else {
    structure.ray_hit_nearest_static(get_thread_ctx(), shader, query);
  }
}

void QueryScene::find_all(CtxShader& shader, GeometryRayPacket& packet) const {
  packet.get_hits().clear();
  if (packet.get_count() == 0) return;
  GeometryRaytraceCtx& query = packet.begin_all_hits(shading_);
  const GasObject& structure = structure_;
  if (motion_blur_) {
    structure.ray_hit_motion(get_thread_ctx(), shader, query);
  } else {
    structure.ray_hit_static(get_thread_ctx(), shader, query);
  }
}

GeometrySurfacePoint QueryScene::get_surface_point(const GeometryIntersection& hit, double time) const {
  return mesh_.get_surface_point(hit, motion_blur_ ? time : std::numeric_limits<double>::quiet_NaN());
}
