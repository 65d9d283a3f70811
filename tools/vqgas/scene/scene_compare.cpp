#include "tools/vqgas/scene/scene_compare.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>

#include "tools/vqgas/support/parallel.h"

namespace {

/// @param visits  [ray], or null
void trace_rays(const QueryScene& scene, const std::vector<CompareRay>& rays, GeometryRayVisits* visits,
                AppProgressBar& progress, std::vector<double>& distances) {
  constexpr uint packet_size = 4096;
  const auto count = static_cast<uint>(rays.size());
  std::atomic<uint> done = 0;
  progress.set_step_count(count);
  run_slices(&scene.get_application(), count, packet_size, [&](uint first, uint end) {
    CtxShader shader;
    scene.prepare(shader);
    GeometryRayPacket packet;
    packet.resize(end - first);
    for (uint k = first; k < end; ++k) packet.set_ray(k - first, rays[k].origin, rays[k].direction, 0.0, DBL_MAX, 0.0);
    scene.find_nearest(shader, packet, visits == nullptr ? nullptr : visits + first);
    for (uint k = first; k < end; ++k) {
      const std::optional<SceneHit> hit = scene.get_nearest(packet, k - first);
      distances[k] =
          hit ? hit->record->distance * rays[k].direction.get_length() : std::numeric_limits<double>::infinity();
    }
    progress.step(done += end - first);
  });
}

}  // namespace

RayAnswers answer_rays(const QueryScene& scene, const std::vector<CompareRay>& rays, const char* title) {
  RayAnswers answers;
  answers.distances.resize(rays.size());
  std::vector<GeometryRayVisits> visits(rays.size());
  AppProgressBar* progress = scene.get_application().create_progress_bar(title);
  progress->begin_task("Count visits", 0.5);
  trace_rays(scene, rays, visits.data(), *progress, answers.distances);
  progress->end_task();
  progress->begin_task("Measure rate", 0.5);
  const auto begin = std::chrono::steady_clock::now();
  trace_rays(scene, rays, nullptr, *progress, answers.distances);
  answers.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  progress->finish();
  for (const GeometryRayVisits& visit : visits) {
    answers.nodes += visit.nodes;
    answers.leaves += visit.leaves;
  }
  answers.nodes /= static_cast<double>(rays.size());
  answers.leaves /= static_cast<double>(rays.size());
  return answers;
}

AnswerComparison compare_answers(const RayAnswers& first, const RayAnswers& second, double tolerance) {
  AnswerComparison comparison;
  comparison.rays.reserve(first.distances.size());
  for (std::size_t ray = 0; ray < first.distances.size(); ++ray) {
    const double a = first.distances[ray], b = second.distances[ray];
    const bool hits_first = std::isfinite(a), hits_second = std::isfinite(b);
    RayAgreement kind = RayAgreement::both_miss;
    if (hits_first && hits_second) {
      kind = std::fabs(a - b) <= tolerance ? RayAgreement::same : RayAgreement::other_distance;
      comparison.largest_difference = std::max(comparison.largest_difference, std::fabs(a - b));
    } else if (hits_first || hits_second) {
      kind = hits_first ? RayAgreement::only_first : RayAgreement::only_second;
    }
    comparison.rays.push_back(kind);
    ++comparison.counts[static_cast<uint>(kind)];
  }
  return comparison;
}

u64 get_structure_bytes(const QueryScene& scene) {
  u64 bytes = scene.get_objects().tree->get_memory_size();
  for (const SceneShape& shape : scene.get_shapes())
    if (shape.structure != nullptr) bytes += shape.structure->get_memory_size();
  return bytes;
}
