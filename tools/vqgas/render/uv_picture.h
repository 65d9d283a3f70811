// tools/vqgas/render/uv_picture.h
//
// Draws UV layouts: one GasUvTree a color, and one lookup a pixel in each.
#pragma once
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "gas/gas_uv_tree.h"
#include "tools/vqgas/image/color.h"
#include "tools/vqgas/image/picture.h"
#include "tools/vqgas/scene/uv_layout.h"
#include "vq_module/module_geometry.h"
#include "vq_of/of_app.h"
#include "vq_of/of_object.h"

enum class UvColoring { geometry, group };

/// The edges that are drawn in one color.
struct UvStroke {
  std::string name;  ///< of the geometry or shading group
  Color color;       ///< linear
  GasUvTree tree;
};

/// Builds the trees of all colors. Groups of one name in several layouts have one color. Throws Interrupted.
class UvDrawing {
 public:
  UvDrawing(OfApp& application, const std::vector<UvLayout>& layouts, UvColoring coloring);
  UvDrawing(const UvDrawing&) = delete;
  UvDrawing& operator=(const UvDrawing&) = delete;

  const std::deque<UvStroke>& get_strokes() const { return strokes_; }
  OfApp& get_application() const { return application_; }

 private:
  void add(const UvLayout& layout, uint stroke, uint group);
  uint add_stroke(const std::string& name);

  OfApp& application_;
  std::deque<UvStroke> strokes_;
  std::deque<ModuleGeometry> modules_;
  std::deque<OfObject> objects_;
  std::vector<CoreSet<OfObject*>> items_;  ///< [stroke]
};

struct UvPictureSettings {
  UvTile tile;
  uint size = 1024;         ///< pixels of a side
  double line_width = 1.0;  ///< in pixels
};

/// Draws the lines over the layer beauty of `picture`, on all threads: linear light, multiplied by alpha. A pixel is
/// covered in proportion to the distance of its center from the border of the line. Throws Interrupted.
/// @param picture  settings.size pixels wide and high
void draw_uv_picture(const UvDrawing& drawing, const UvPictureSettings& settings, Picture& picture);

/// The lines in an SVG file, cut at the border of the tile; a path a color. Throws Interrupted.
std::string print_uv_svg(const UvDrawing& drawing, const UvPictureSettings& settings);

/// A color that is seen on white and on black, different from those of other numbers; linear.
Color get_line_color(uint number);
