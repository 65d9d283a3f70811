// tools/vqgas/source/scene_source.h
//
// What a scene is made from: shapes, each built once, and objects that show them, any number of times.
//
//   shapes   mesh or hair, ...
//   groups   [object, ...], ...     scenes of their own, which objects show like shapes
//   objects  object, ...            name, matrix over time, number of the shape or group that it shows
#pragma once
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/vqgas/source/hair_source.h"
#include "tools/vqgas/source/mesh_builder.h"
#include "vq_module/module_scene_item.h"

using ShapeSource = std::variant<MeshSource, HairSource>;

struct ObjectSource {
  std::string name;
  uint shape = core_invalid_index;  ///< into SceneSource::shapes, or none
  uint group = core_invalid_index;  ///< else into SceneSource::groups: of a group's own objects an earlier one
  /// From the object's space to that around it, over time in frames. A single one: it stands still; none: at the place
  /// where it was made.
  std::vector<ModuleMatrixKey> keys = {};
  bool is_animated = false;  ///< its file moves or deforms it, be it at other times than the scene was read for
};

/// Where a run of shapes comes from.
struct SceneFile {
  std::string name;
  std::size_t shape_count = 0;
};

struct SceneSource {
  std::vector<ShapeSource> shapes;
  std::vector<SceneFile> files;  ///< in the order of their shapes; filled in by load_scene()
  std::vector<std::vector<ObjectSource>> groups;
  std::vector<ObjectSource> objects;

  /// Adds a shape and an object that shows it where it was made.
  void add_object(const std::string& name, ShapeSource&& shape) {
    objects.push_back({name, static_cast<uint>(shapes.size())});
    shapes.push_back(std::move(shape));
  }
};

/// The stretch of time that a scene is wanted for, in frames. Built-in scenes move from frame 0 to frame 1.
struct SceneTimes {
  double open = 0.0, close = 0.0;
  std::optional<uint> samples;      ///< of motion between the two, ends included; none: as the scene needs
  double frames_per_second = 24.0;  ///< of files, which tell seconds
};
