// tools/vqgas/scene/scene_compare.h
//
// What two scenes answer to the same rays, and what it costs.
#pragma once
#include <vector>

#include "tools/vqgas/scene/query_scene.h"

struct CompareRay {
  GMathVec3<double> origin, direction;
};

/// The nearest hits of rays, and the work for them.
struct RayAnswers {
  std::vector<double> distances;     ///< [ray] in units of length; infinite for a miss
  double nodes = 0.0, leaves = 0.0;  ///< visited, per ray
  double seconds = 0.0;              ///< of a second run without counting, after all was built that the rays reach
};

/// Traces the rays twice, with all threads, at distances from 0 on. Throws Interrupted.
/// @param title  of the progress bar
RayAnswers answer_rays(const QueryScene& scene, const std::vector<CompareRay>& rays, const char* title);

enum class RayAgreement : unsigned char { both_miss, same, other_distance, only_first, only_second };

/// How two answers to the same rays agree.
struct AnswerComparison {
  std::vector<RayAgreement> rays;
  unsigned int counts[5] = {};      ///< by RayAgreement
  double largest_difference = 0.0;  ///< of the distances of rays that hit both

  unsigned int get_count(RayAgreement kind) const { return counts[static_cast<unsigned int>(kind)]; }
};

/// @param tolerance  distances that differ by no more are the same
AnswerComparison compare_answers(const RayAnswers& first, const RayAnswers& second, double tolerance);

/// Bytes of all structures: those of the shapes, each once, and the trees over the objects.
u64 get_structure_bytes(const QueryScene& scene);
