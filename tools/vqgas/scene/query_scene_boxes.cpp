// Boxes for framing by a camera: some hundred boxes a shape and sample, transformed by the objects that show it.
#include <cmath>

#include "tools/vqgas/scene/query_scene.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_module/module_bundle.h"
#include "vq_module/module_combiner.h"
#include "vq_module/module_geometry.h"

namespace {

using Boxes = std::vector<GMathBbox3<double>>;
using Matrix = GMathMatrix4x4<double>;

/// Boxes of consecutive segments. They do not depend on the tree, so pictures with and without oriented nodes have the
/// same view.
template <CurveShape shape>
void add_hair_boxes(const CurveSet& curves, double time, uint box_count, Boxes& boxes) {
  const CurveSet::MotionBlend blend = curves.get_motion_blend(time);
  const uint count = curves.get_segment_count(), run = 1 + count / box_count;
  for (uint first = 0; first < count; first += run) {
    GMathBbox3<double> box;
    box.set_empty();
    for (uint segment = first; segment < std::min(first + run, count); ++segment) {
      for (const CurvePoint<double>& point : curves.get_segment<shape>(segment, blend).point) {
        const double radius = std::fmax(point.radius, 0.0);
        const GMathVec3<double> reach(radius, radius, radius);
        const GMathVec3<double> low = point.position - reach, high = point.position + reach;
        // The sum is finite if every value is; other segments are not in the structure.
        if (!std::isfinite(low.x + low.y + low.z + high.x + high.y + high.z)) continue;
        box.add(low);
        box.add(high);
      }
    }
    if (box.min.x <= box.max.x) boxes.push_back(box);
  }
}

/// Boxes of consecutive primitives, for structures with a single cluster.
void add_primitive_boxes(const CtxEval& ctx, const GeometryObject& geometry, const CtxMotionBlur* motion_blur,
                         double time, uint box_count, Boxes& boxes) {
  const uint count = geometry.get_primitive_count(), run = 1 + count / box_count;
  for (uint first = 0; first < count; first += run) {
    GMathBbox3<double> box;
    box.set_empty();
    for (uint primitive = first; primitive < std::min(first + run, count); ++primitive) {
      const GMathBbox3<double> own = motion_blur != nullptr ? geometry.get_primitive_bbox_at(ctx, time, primitive)
                                                            : geometry.get_primitive_bbox(ctx, primitive);
      // Other primitives are not in the structure.
      if (own.get_extent().get_length() < std::numeric_limits<double>::max()) box.add(own);
    }
    if (box.min.x <= box.max.x) boxes.push_back(box);
  }
}

/// Boxes of consecutive points, with their radii.
Boxes get_cloud_boxes(const SceneCloud& cloud, uint box_count) {
  Boxes boxes;
  const uint count = cloud.get_count(), run = 1 + count / box_count;
  for (uint first = 0; first < count; first += run) {
    GMathBbox3<float> box;
    box.set_empty();
    for (uint point = first; point < std::min(first + run, count); ++point) {
      const GMathVec3<float>& center = cloud.get_position(point);
      const float radius = cloud.particles->get_radius(point);
      const GMathVec3<float> low = center - GMathVec3<float>(radius, radius, radius),
                             high = center + GMathVec3<float>(radius, radius, radius);
      if (!std::isfinite(low.x + low.y + low.z + high.x + high.y + high.z)) continue;
      box.add(low);
      box.add(high);
    }
    if (box.min.x <= box.max.x) boxes.emplace_back(box);
  }
  return boxes;
}

/// In the shape's space; static if `motion_blur` is null.
Boxes get_shape_boxes(const CtxEval& ctx, const SceneShape& shape, const CtxMotionBlur* motion_blur, double time,
                      uint box_count) {
  Boxes boxes;
  if (shape.hair != nullptr) {
    const CurveSet& curves = shape.hair->get_curves();
    if (curves.get_shape() == CurveShape::linear) add_hair_boxes<CurveShape::linear>(curves, time, box_count, boxes);
    if (curves.get_shape() == CurveShape::cubic) add_hair_boxes<CurveShape::cubic>(curves, time, box_count, boxes);
    return boxes;
  }
  if (shape.grid != nullptr) {
    add_primitive_boxes(ctx, *shape.geometry, motion_blur, time, box_count, boxes);
    return boxes;
  }
  if (shape.structure == nullptr) return boxes;  // not shown
  CoreVector<void*> clusters;
  shape.structure->get_clusters(clusters, box_count, 0.0f);
  std::vector<GMathBbox3<float>> found(clusters.get_count());
  if (motion_blur != nullptr) {
    shape.structure->get_clusters_bboxes_at(ctx, time, clusters.as_array(), found.data());
  } else {
    shape.structure->get_clusters_bboxes(clusters.as_array(), found.data());
  }
  for (const GMathBbox3<float>& box : found) boxes.emplace_back(box);
  return boxes;
}

/// Number of instances of each shape, by all instance paths.
using ShowCounts = std::unordered_map<const GeometryObject*, uint>;

void count_shows(const ModuleSceneObject& object, const SceneObjects& scene, const std::vector<SceneShape>& shapes,
                 ShowCounts& shows) {
  if (const auto* group = dynamic_cast<const ModuleCombiner*>(&object)) {
    for (const auto& part : group->get_objects()) count_shows(*part, scene, shapes, shows);
  } else if (const auto* instances = dynamic_cast<const ModuleBundle*>(&object)) {
    const SceneBundle& bundle = scene.get_bundle(*instances);
    for (uint instance = 0; instance < bundle.slots.size(); ++instance)
      ++shows[shapes[bundle.get_shape(instance)].geometry.get()];
  } else {
    ++shows[static_cast<const ModuleGeometry&>(object).get_geometry()];
  }
}

/// Collects the world boxes of objects at one time.
class SceneBoxes {
 public:
  SceneBoxes(const QueryScene& scene, bool is_moving, double time, Boxes& boxes)
      : scene_(scene), is_moving_(is_moving), time_(time), boxes_(boxes) {}

  void set_shape_boxes(const GeometryObject* geometry, Boxes&& boxes) { shapes_[geometry] = std::move(boxes); }

  void add(const ModuleSceneObject& object, const Matrix& around) {
    const Matrix matrix = around * (is_moving_ ? object.get_global_matrix_at(time_) : object.get_global_matrix());
    if (const auto* group = dynamic_cast<const ModuleCombiner*>(&object)) {
      for (const auto& part : group->get_objects()) add(*part, matrix);
    } else if (const auto* instances = dynamic_cast<const ModuleBundle*>(&object)) {
      const SceneBundle& bundle = scene_.get_objects().get_bundle(*instances);
      const std::vector<Matrix> matrices = is_moving_ ? bundle.get_matrices_at(time_) : bundle.matrices;
      for (uint instance = 0; instance < matrices.size(); ++instance)
        add(scene_.get_shapes()[bundle.get_shape(instance)].geometry.get(), matrix * matrices[instance]);
    } else {
      add(static_cast<const ModuleGeometry&>(object).get_geometry(), matrix);
    }
  }

 private:
  void add(const GeometryObject* geometry, const Matrix& matrix) {
    for (const GMathBbox3<double>& local : shapes_.at(geometry)) {
      GMathBbox3<double> box;
      box.set_empty();
      for (uint corner = 0; corner < 8; ++corner) box.add(matrix.transform_point(local.get_corner(corner)));
      // Objects whose matrix is not finite are not in the tree.
      if (box.get_extent().get_length() < std::numeric_limits<float>::max()) boxes_.push_back(box);
    }
  }

  const QueryScene& scene_;
  const bool is_moving_;
  const double time_;
  Boxes& boxes_;
  std::unordered_map<const GeometryObject*, Boxes> shapes_;
};

}  // namespace

std::vector<GMathBbox3<double>> QueryScene::get_tight_boxes() const {
  constexpr uint box_count = 1024;  // of a shape, over all its instances
  ShowCounts shows;
  for (const auto& object : objects_.objects) count_shows(*object, objects_, shapes_, shows);
  Boxes boxes;
  const CtxMotionBlur* motion_blur = get_motion_blur();
  for (uint sample = 0; sample < (motion_blur != nullptr ? motion_blur->get_sample_count() : 1); ++sample) {
    const double time = motion_blur != nullptr ? motion_blur->get_time_sampling().get_sample_time(sample) : 0.0;
    SceneBoxes all(*this, motion_blur != nullptr, time, boxes);
    for (const SceneShape& shape : shapes_) {
      throw_if_interrupted();
      const uint share = std::max(1u, box_count / std::max(1u, shows[shape.geometry.get()]));
      all.set_shape_boxes(shape.geometry.get(), get_shape_boxes(ctx_, shape, motion_blur, get_shape_time(time), share));
    }
    for (const SceneCloud& cloud : clouds_) {
      throw_if_interrupted();
      const uint share = std::max(1u, box_count / std::max(1u, shows[cloud.particles.get()]));
      all.set_shape_boxes(cloud.particles.get(), get_cloud_boxes(cloud, share));
    }
    for (const auto& object : objects_.objects) all.add(*object, Matrix());
  }
  return boxes;
}
