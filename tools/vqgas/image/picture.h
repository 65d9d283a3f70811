// tools/vqgas/image/picture.h
//
// A rendered picture: layers of named channels, one value a pixel, rows from top to bottom.
#pragma once
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "vq_core/core_types.h"

enum class Layer {
  beauty,
  depth,
  normal,
  position,
  primitive,
  group,
  object,
  instance_path,
  instance,
  instance_depth,
  uv,
  motion,
  heat,
  count,
  parts,
  weight,
  point
};
inline constexpr uint layer_count = 17;

/// The layer's name on the command line and in file names.
const char* get_layer_name(Layer layer);
/// False when there is no such layer.
bool find_layer(std::string_view name, Layer& layer);
/// All names, separated by commas.
std::string list_layers();

/// Value of number channels where the ray hits nothing.
inline constexpr uint no_number = 0xFFFFFFFFu;
/// Value of the layer parts in an overview, for parts that were not built.
inline constexpr uint unbuilt_part = 0xFFFFFFFEu;
/// Value of the depth channel where the ray hits nothing.
inline constexpr float no_depth = std::numeric_limits<float>::infinity();

/// Either values or numbers, width * height of them.
struct PictureChannel {
  std::string name;  ///< as in an EXR file
  std::vector<float> values;
  std::vector<uint> numbers;
};

struct PictureLayer {
  Layer layer = Layer::beauty;
  std::vector<PictureChannel> channels;
};

/// Sets a pixel to the values of a ray that hits nothing.
void clear_pixel(PictureLayer& layer, std::size_t pixel);

struct Picture {
  uint width = 0, height = 0;
  std::vector<PictureLayer> layers;

  /// Empty layers with their channels: beauty R G B A, depth Z, normal N.X N.Y N.Z, position P.X P.Y P.Z, primitive,
  /// group and object one number each, instance-path path.0 to path.3, outermost first, instance and instance-depth one
  /// number each, uv UV.U UV.V, motion motion.X motion.Y, heat heat.nodes heat.leaves, count one number, parts a number
  /// and part.facing, weight, point one number.
  Picture(uint width, uint height, const std::vector<Layer>& chosen);
  /// Null when the picture has no such layer.
  PictureLayer* find(Layer layer);
  const PictureLayer* find(Layer layer) const;
};
