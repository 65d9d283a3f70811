#include "vq_geometry/geometry_intersection.h"

#include <new>

bool GeometryNearestHits::grow_nested() try {
  transforms_.resize(records_.size());
  // The old paths are not copied: the packet grew, so a new query has begun.
  if (path_count_ < records_.size()) paths_ = std::make_unique<GeometryIntersectionPath[]>(records_.size());
  path_count_ = records_.size();
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

void GeometryIntersectionMap::record_path(const uint& ray, const GeometryIntersectionPath& path) {
  records_[ray].path = hits_->reserve_nested() && hits_->get_paths()[ray].copy_from(path) ? ray : core_invalid_index;
}

void GeometryIntersectionMap::apply_matrix(uint ray, const GMathMatrix4x4<double>& matrix) {
  GeometryIntersection& record = records_[ray];
  GeometryHitTransform& transform = hits_->get_transforms()[ray];
  record.level = level_;
  if (record.transform == core_invalid_index) {
    record.transform = ray;
    transform.matrix = matrix;
    transform.has_vectors = false;
    return;
  }
  transform.matrix = matrix * transform.matrix;
  if (transform.has_vectors) transform.matrix2 = matrix * transform.matrix2;
}

void GeometryIntersectionMap::apply_matrix(uint ray, const GMathMatrix4x4<double>& matrix,
                                           const GMathMatrix4x4<double>& matrix2) {
  GeometryIntersection& record = records_[ray];
  GeometryHitTransform& transform = hits_->get_transforms()[ray];
  record.level = level_;
  if (record.transform == core_invalid_index) {
    record.transform = ray;
    transform = {matrix, matrix2, true};
    return;
  }
  // Without vectors the inner transform is static: the same at the end of the span.
  transform.matrix2 = matrix2 * (transform.has_vectors ? transform.matrix2 : transform.matrix);
  transform.has_vectors = true;
  transform.matrix = matrix * transform.matrix;
}

void GeometryHitList::append(uint ray, const GeometryIntersection& hit, const GMathMatrix4x4<double>& matrix) {
  GeometryHitTransform transform;
  transform.matrix = matrix;
  transforms_.push_back(transform);
  hits_.push_back({ray, hit});
  hits_.back().hit.level = 0;
  hits_.back().hit.transform = static_cast<uint>(transforms_.size() - 1);
}

void GeometryHitList::record_path(const GeometryIntersectionPath& path) {
  const auto elements = path.get_elements();
  paths_.push_back({path_elements_.size(), path.get_count()});
  path_elements_.insert(path_elements_.end(), elements.begin(), elements.end());
  hits_.back().hit.path = static_cast<uint>(paths_.size() - 1);
}
