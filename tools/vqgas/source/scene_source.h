// tools/vqgas/source/scene_source.h
//
// A scene before its structures are built: shapes and clouds, each built once, and objects that show them, any number
// of times.
//
//   shapes   mesh or hair, ...
//   clouds   points, ...            rays do not hit them
//   groups   [object, ...], ...     nested scenes, which objects show like shapes
//   bundles  [instance, ...], ...   many placed shapes, which objects show like one shape
//   objects  object, ...            name, matrix over time, number of what it shows
#pragma once
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/vqgas/source/hair_source.h"
#include "tools/vqgas/source/mesh_builder.h"
#include "tools/vqgas/source/point_source.h"
#include "vq_module/module_matrix_source.h"

using ShapeSource = std::variant<MeshSource, HairSource>;

struct ObjectSource {
  std::string name;
  uint shape = core_invalid_index;  ///< into SceneSource::shapes, or none
  uint group = core_invalid_index;  ///< else into SceneSource::groups: of a group's own objects an earlier one
  /// From the object's space to that of its group or the world, over time in frames. One key: static. No keys:
  /// identity.
  std::vector<ModuleMatrixKey> keys = {};
  bool is_animated = false;          ///< its file moves or deforms it, possibly at other times than those of the scene
  uint bundle = core_invalid_index;  ///< without a shape and a group: into SceneSource::bundles
  uint cloud = core_invalid_index;   ///< without all of these: into SceneSource::clouds; not in groups
};

/// Instances of shapes, for one structure over all of them. At least one.
struct BundleSource {
  std::vector<uint> shapes;                          ///< [instance] into SceneSource::shapes
  std::vector<GMathMatrix4x4<double>> matrices;      ///< [instance] to the space of the object, at rest
  std::shared_ptr<const ModuleMatrixSource> motion;  ///< of all instances, over time in frames; null: at rest always
};

/// What a file has beyond its shapes and objects.
struct SceneFileNotes {
  struct Frames {
    double first, last;
  };
  std::optional<Frames> frames;        ///< of its first and last key; none without an animation
  std::vector<std::string> not_shown;  ///< what no picture shows, such as "textures"
};

/// The file of consecutive shapes and clouds.
struct SceneFile {
  std::string name;
  std::size_t shape_count = 0, cloud_count = 0;
  SceneFileNotes notes;
};

struct SceneSource {
  std::vector<ShapeSource> shapes;
  std::vector<PointSource> clouds;
  std::vector<SceneFile> files;  ///< in the order of their shapes and clouds; filled in by load_scene()
  std::vector<std::vector<ObjectSource>> groups;
  std::vector<BundleSource> bundles;
  std::vector<ObjectSource> objects;
  SceneFileNotes notes;  ///< of a source read from one file

  /// Adds a shape, and an object that shows it with the identity matrix.
  void add_object(const std::string& name, ShapeSource&& shape) {
    objects.push_back({name, static_cast<uint>(shapes.size())});
    shapes.push_back(std::move(shape));
  }
  /// The same for a cloud.
  void add_object(const std::string& name, PointSource&& cloud) {
    objects.push_back({name});
    objects.back().cloud = static_cast<uint>(clouds.size());
    clouds.push_back(std::move(cloud));
  }
};

/// The time interval of a call, in frames. Built-in scenes move from frame 0 to frame 1.
struct SceneTimes {
  double open = 0.0, close = 0.0;
  std::optional<uint> samples;      ///< motion samples from open to close, both included; none: as the scene needs
  double frames_per_second = 24.0;  ///< converts the seconds of files
};
