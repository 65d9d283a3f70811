// tools/vqgas/source/groom.h
//
// Grows fur on a mesh: roots spread evenly over its surface, curves along its normals, bent by a low-frequency noise,
// pulled down, clumped, curled, and tapered. Each curve depends on its number and the settings only, so the fur is the
// same for any number of threads.
#pragma once
#include <vector>

#include "vq_curve/curve_set.h"
#include "vq_gmath/gmath_bbox.h"

class AppProgressBar;
class PolyMesh;
struct MeshSource;

/// Creates the mesh for GroomSurface, with normals that are smooth where polygons meet at no more than
/// `crease_degrees`. Throws InputError when the mesh is invalid.
void create_groom_mesh(MeshSource&& source, double crease_degrees, PolyMesh& mesh);

/// The triangles of a mesh that have an area: fur can grow there. The mesh must outlive it.
class GroomSurface {
 public:
  explicit GroomSurface(const PolyMesh& mesh);

  double get_area() const { return area_until_.empty() ? 0.0 : area_until_.back(); }
  const GMathBbox3<double>& get_bbox() const { return bbox_; }
  double get_diagonal() const { return bbox_.get_extent().get_length(); }

  struct Root {
    GMathVec3<double> position, normal;
    uint polygon = 0;
  };
  /// Selects a triangle at `share` (0 to 1) of the cumulative area, in polygon order, and the point of that triangle at
  /// `x` and `y` (0 to 1). The surface must have an area.
  Root get_root(double share, double x, double y) const;

 private:
  struct Triangle {
    uint polygon, part;
  };
  const PolyMesh& mesh_;
  std::vector<Triangle> triangles_;
  std::vector<double> area_until_;  // of all triangles up to each
  GMathBbox3<double> bbox_;
};

struct GroomSettings {
  u64 curves = 100000;
  uint points = 8;            ///< of each curve, at least 2
  double length = 0.05;       ///< of the longest curves, in diagonals of the mesh's box; the shortest have 2/3 of it
  double thickness = 0.0004;  ///< diameter at the root, in diagonals; the tip has a tenth of it
  // Strengths, 0 for none:
  double lean = 0.5;     ///< bends curves to the side by a low-frequency noise, neighbors alike
  double gravity = 0.3;  ///< bends curves down, towards -y
  double clump = 0.3;    ///< moves the tips of a tuft together: at 1 they meet
  double curl = 0.2;     ///< winds curves around their direction
  uint seed = 1;
  bool is_flipped = false;  ///< against the normals: for meshes wound inside out
};

/// Grows linear curves in one unnamed shading group. Roots follow the order of the polygons. Throws Interrupted.
/// @param surface   must have an area
/// @param progress  gets the task "Grow", one step a curve; its application supplies the threads. Null: one thread
CurveData grow_fur(const GroomSurface& surface, const GroomSettings& settings, AppProgressBar* progress);
