#pragma once
#include <map>
#include <memory>
#include <vector>

#include "tools/vqgas/scene/scene_flatten.h"
#include "tools/vqgas/source/groom.h"

/// The displaced meshes of a scene that was joined to one mesh.
class DisplacedGround {
 public:
  /// Throws InputError when a mesh cannot be displaced.
  /// @param parts  of the joined mesh
  DisplacedGround(const SceneSource& scene, std::vector<FlatPart> parts);
  ~DisplacedGround();

  /// Moves points of the joined mesh to where displacement moves the surface there; their normals lean with it. Points
  /// of meshes that are not displaced stay, and those whose displaced position is not finite. Throws Interrupted.
  void move(std::vector<GroomSurface::Root>& points) const;

 private:
  class Shape;
  std::vector<FlatPart> parts_;
  std::map<uint, std::unique_ptr<Shape>> shapes_;  ///< by their number in the scene
};
