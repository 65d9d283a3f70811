#include "tools/vqgas/image/picture.h"

#include <array>
#include <utility>

namespace {

struct LayerTraits {
  const char* name;
  std::vector<const char*> channels;
  std::size_t number_count;  ///< channels of numbers, before those of values
  float empty;
};

const LayerTraits& get_traits(Layer layer) {
  static const std::array<LayerTraits, layer_count> traits = {{
      {"beauty", {"R", "G", "B", "A"}, 0, 0.0f},
      {"depth", {"Z"}, 0, no_depth},
      {"normal", {"N.X", "N.Y", "N.Z"}, 0, 0.0f},
      {"position", {"P.X", "P.Y", "P.Z"}, 0, 0.0f},
      {"primitive", {"primitive"}, 1, 0.0f},
      {"group", {"group"}, 1, 0.0f},
      {"object", {"object"}, 1, 0.0f},
      {"instance-path", {"path.0", "path.1", "path.2", "path.3"}, 4, 0.0f},
      {"instance", {"instance"}, 1, 0.0f},
      {"instance-depth", {"instance.depth"}, 1, 0.0f},
      {"uv", {"UV.U", "UV.V"}, 0, 0.0f},
      {"motion", {"motion.X", "motion.Y"}, 0, 0.0f},
      {"heat", {"heat.nodes", "heat.leaves"}, 0, 0.0f},
      {"count", {"count"}, 1, 0.0f},
      {"parts", {"part", "part.facing"}, 1, 0.0f},
      {"weight", {"weight"}, 0, 0.0f},
      {"point", {"point"}, 1, 0.0f},
  }};
  return traits[static_cast<std::size_t>(layer)];
}

}  // namespace

const char* get_layer_name(Layer layer) { return get_traits(layer).name; }

bool find_layer(std::string_view name, Layer& layer) {
  for (uint index = 0; index < layer_count; ++index) {
    if (name != get_layer_name(static_cast<Layer>(index))) continue;
    layer = static_cast<Layer>(index);
    return true;
  }
  return false;
}

std::string list_layers() {
  std::string list;
  for (uint index = 0; index < layer_count; ++index)
    list += (index == 0 ? "" : ", ") + std::string(get_layer_name(static_cast<Layer>(index)));
  return list;
}

void clear_pixel(PictureLayer& layer, std::size_t pixel) {
  for (PictureChannel& channel : layer.channels) {
    if (channel.numbers.empty()) {
      channel.values[pixel] = get_traits(layer.layer).empty;
    } else {
      channel.numbers[pixel] = no_number;
    }
  }
}

Picture::Picture(uint width, uint height, const std::vector<Layer>& chosen) : width(width), height(height) {
  const std::size_t pixel_count = std::size_t{width} * height;
  for (const Layer layer : chosen) {
    const LayerTraits& traits = get_traits(layer);
    PictureLayer& added = layers.emplace_back();
    added.layer = layer;
    for (const char* name : traits.channels) {
      const bool has_numbers = added.channels.size() < traits.number_count;
      PictureChannel& channel = added.channels.emplace_back();
      channel.name = name;
      if (has_numbers) {
        channel.numbers.assign(pixel_count, no_number);
      } else {
        channel.values.assign(pixel_count, traits.empty);
      }
    }
  }
}

const PictureLayer* Picture::find(Layer layer) const {
  for (const PictureLayer& present : layers) {
    if (present.layer == layer) return &present;
  }
  return nullptr;
}

PictureLayer* Picture::find(Layer layer) { return const_cast<PictureLayer*>(std::as_const(*this).find(layer)); }
