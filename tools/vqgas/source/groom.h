// tools/vqgas/source/groom.h
//
// Grows fur on a mesh: roots spread evenly over its surface, strands along its normals, bent by a slow noise, pulled
// down, drawn together in tufts, curled, and tapered. Every strand depends on its number and the settings only, so that
// the fur is the same for any number of threads.
#pragma once
#include <vector>

#include "vq_curve/curve_set.h"
#include "vq_gmath/gmath_bbox.h"

class AppProgressBar;
class PolyMesh;
struct MeshSource;

/// Makes the mesh that fur is to grow on; it grows along normals that are smooth where polygons meet at no more than
/// `crease_degrees`. Throws InputError when the mesh is not sound.
void create_groom_mesh(MeshSource&& source, double crease_degrees, PolyMesh& mesh);

/// Where fur can grow: the triangles of a mesh that have an area. The mesh must outlive it.
class GroomSurface {
 public:
  explicit GroomSurface(const PolyMesh& mesh);

  double get_area() const { return area_until_.empty() ? 0.0 : area_until_.back(); }
  const GMathBbox3<double>& get_bbox() const { return bbox_; }
  double get_diagonal() const { return bbox_.get_extent().get_length(); }

  struct Root {
    GMathVec3<double> position, normal;
  };
  /// The point at `share` (from 0 to 1) of the area, polygon after polygon; `x` and `y`, from 0 to 1, place it on its
  /// triangle. The surface must have an area.
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
  u64 strands = 100000;
  uint points = 8;            ///< of each strand, at least 2
  double length = 0.05;       ///< of the longest strands, in diagonals of the mesh's box; the shortest have 2/3 of it
  double thickness = 0.0004;  ///< diameter at the root, in diagonals; the tip has a tenth of it
  // Strengths, 0 for none:
  double lean = 0.5;     ///< a slow noise bends strands to the side, neighbours alike
  double gravity = 0.3;  ///< they bend down, towards -y
  double clump = 0.3;    ///< the tips of a tuft draw together: 1 lets them meet
  double curl = 0.2;     ///< they wind around their way
  uint seed = 1;
  bool is_flipped = false;  ///< against the normals: for meshes wound inside out
};

/// The fur as straight pieces, in one shading group, named by nobody yet. Roots follow the order of the polygons.
/// @param surface   must have an area
/// @param progress  gets the task "Grow", one step a strand, and lends its application's threads; null: one thread
CurveData grow_fur(const GroomSurface& surface, const GroomSettings& settings, AppProgressBar* progress);
