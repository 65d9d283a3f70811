#include "tools/vqgas/render/uv_picture.h"

#include <cmath>
#include <map>

#include "tools/vqgas/render/tile_tasks.h"
#include "tools/vqgas/support/interrupt.h"
#include "vq_app_base/app_progress_bar.h"
#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_shader.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

namespace {

/// A square of pixels.
struct Block {
  uint left, top, size;
};

/// Draws blocks with one thread. Empty ones are found by one lookup: an edge within the tolerance of a pixel is within
/// the tolerance plus half a diagonal of the block's center, along both axes and across its line.
class BlockDrawer {
 public:
  BlockDrawer(const UvDrawing& drawing, const UvPictureSettings& settings, Picture& picture)
      : settings_(settings),
        channels_(picture.layers[0].channels),
        ctx_(drawing.get_application().get_factory()),
        tolerance_(0.5 * settings.line_width + 0.5) {
    shader_.hit_threshold = -1.0;  // no hits: the coverage is enough
    ray_.set({0, 0, 0}, {0, 0, 1});
    query_.rays = reinterpret_cast<const u8*>(&ray_);
    query_.ray_count = 1;
    query_.intervals = &interval_;
  }

  void draw(const UvStroke& stroke, const Block& block) {
    if (is_interrupted() || is_empty(stroke.tree, block)) return;
    if (block.size <= smallest_block) return draw_pixels(stroke, block);
    const uint part = block.size / 4;
    const uint bottom = std::min(block.top + block.size, settings_.size);
    const uint right = std::min(block.left + block.size, settings_.size);
    for (uint top = block.top; top < bottom; top += part)
      for (uint left = block.left; left < right; left += part) draw(stroke, {left, top, part});
  }

 private:
  static constexpr uint smallest_block = 8;

  /// The coverage at a place in pixels from the upper left corner of the tile.
  double look_up(const GasUvTree& tree, double x, double y, double extent) {
    const double pixel = 1.0 / settings_.size;
    ray_.origin = {settings_.tile.u + x * pixel, settings_.tile.v + 1.0 - y * pixel, tree.get_bbox().min.z};
    interval_.extent = extent * pixel;
    return tree.ray_hit(ctx_, shader_, query_);
  }

  bool is_empty(const GasUvTree& tree, const Block& block) {
    constexpr double rounding = 0.01;  // in pixels; positions are in single precision
    const double half = 0.5 * block.size;
    return look_up(tree, block.left + half, block.top + half, tolerance_ + std::sqrt(2.0) * half + rounding) >= 1.0;
  }

  void draw_pixels(const UvStroke& stroke, const Block& block) {
    for (uint y = block.top; y < std::min(block.top + block.size, settings_.size); ++y) {
      for (uint x = block.left; x < std::min(block.left + block.size, settings_.size); ++x) {
        const double coverage = look_up(stroke.tree, x + 0.5, y + 0.5, tolerance_);
        const double alpha = std::clamp(tolerance_ * (1.0 - coverage), 0.0, 1.0);
        if (alpha > 0.0) put(stroke.color, static_cast<float>(alpha), std::size_t{y} * settings_.size + x);
      }
    }
  }

  void put(const Color& color, float alpha, std::size_t pixel) {
    const float values[4] = {color.x, color.y, color.z, 1.0f};
    for (std::size_t k = 0; k < 4; ++k) {
      float& value = channels_[k].values[pixel];
      value = values[k] * alpha + value * (1.0f - alpha);
    }
  }

  const UvPictureSettings& settings_;
  std::vector<PictureChannel>& channels_;
  const CtxEval ctx_;
  CtxShader shader_;
  GMathRay ray_;
  GeometryRayInterval interval_;
  GeometryRaytraceCtx query_;
  const double tolerance_;  // in pixels
};

}  // namespace

UvDrawing::UvDrawing(OfApp& application, const std::vector<UvLayout>& layouts, UvColoring coloring)
    : application_(application) {
  std::map<std::string, uint> groups;
  for (const UvLayout& layout : layouts) {
    if (coloring == UvColoring::geometry) {
      add(layout, add_stroke(layout.name), core_invalid_index);
      continue;
    }
    const CoreArray<CoreString>& names = layout.mesh->get_shading_groups();
    for (uint group = 0; group < names.get_count(); ++group) {
      const std::string name = names[group].get_data();
      const auto [place, is_new] = groups.try_emplace(name, static_cast<uint>(strokes_.size()));
      if (is_new) add_stroke(name);
      add(layout, place->second, group);
    }
  }
  for (uint stroke = 0; stroke < strokes_.size(); ++stroke) {
    strokes_[stroke].tree.update(application_, items_[stroke], true, CoreString());
    strokes_[stroke].tree.build();
    throw_if_interrupted();
  }
}

uint UvDrawing::add_stroke(const std::string& name) {
  const uint number = static_cast<uint>(strokes_.size());
  UvStroke& stroke = strokes_.emplace_back();
  stroke.name = name;
  stroke.color = get_line_color(number);
  items_.emplace_back();
  return number;
}

void UvDrawing::add(const UvLayout& layout, uint stroke, uint group) {
  static const ModuleClusterFunctions no_clusters = {};
  ModuleGeometry& module = modules_.emplace_back(layout.name.c_str(), layout.mesh, nullptr, no_clusters);
  for (uint other = 0; group != core_invalid_index && other < module.get_shading_group_count(); ++other)
    module.set_shading_group_visibility(other, other == group);
  items_[stroke].add(&objects_.emplace_back(layout.name.c_str(), &module));
}

void draw_uv_picture(const UvDrawing& drawing, const UvPictureSettings& settings, Picture& picture) {
  AppProgressBar* progress = drawing.get_application().create_progress_bar("Draw");
  run_tiles(drawing.get_application(), settings.size, settings.size, progress, [&](const RenderTile& tile, uint) {
    BlockDrawer drawer(drawing, settings, picture);
    constexpr uint tile_size = 32;
    for (const UvStroke& stroke : drawing.get_strokes()) drawer.draw(stroke, {tile.left, tile.top, tile_size});
  });
  progress->finish();
}

Color get_line_color(uint number) {
  // Hues in steps of the golden angle, all of a luminance from which white and black differ by a ratio of 3 or more.
  constexpr double golden = 0.6180339887498949;
  const double hue = std::fmod(0.61 + golden * number, 1.0) * 6.0;
  const auto channel = [&](double shift) {
    const double place = std::fmod(hue + shift, 6.0);
    return static_cast<float>(std::clamp(std::fabs(place - 3.0) - 1.0, 0.0, 1.0));
  };
  const Color color(channel(0.0), channel(4.0), channel(2.0));
  const float luminance = 0.2126f * color.x + 0.7152f * color.y + 0.0722f * color.z;
  const float wanted = number % 2 == 0 ? 0.16f : 0.26f;
  if (luminance > wanted) return color * (wanted / luminance);
  return mix(color, Color(1.0f, 1.0f, 1.0f), (wanted - luminance) / (1.0f - luminance));
}
