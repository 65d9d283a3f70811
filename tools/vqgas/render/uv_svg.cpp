#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "tools/vqgas/render/uv_picture.h"
#include "tools/vqgas/support/interrupt.h"

namespace {

/// Hundredths of a pixel, without zeros at the end.
void print_short(double value, std::string& text) {
  std::array<char, 32> digits;
  const double rounded = std::round(value * 100.0) / 100.0 + 0.0;
  text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), rounded).ptr);
}

std::string print_color(const Color& color) {
  const auto channel = [](float value) { return static_cast<uint>(std::lround(encode_srgb(value) * 255.0f)); };
  std::array<char, 8> text;
  std::snprintf(text.data(), text.size(), "#%02x%02x%02x", channel(color.x), channel(color.y), channel(color.z));
  return text.data();
}

std::string escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (static_cast<unsigned char>(c) < ' ' || static_cast<unsigned char>(c) > '~') {
      escaped += '?';  // names in files have any encoding
    } else {
      escaped += c;
    }
  }
  return escaped;
}

/// Cuts a segment at a square from -margin to size + margin (Liang, Barsky 1984, "A New Concept and Method for Line
/// Clipping"). False if nothing is left.
bool clip(UvPoint& a, UvPoint& b, double size, double margin) {
  double from = 0.0, to = 1.0;
  const UvPoint step{b.x - a.x, b.y - a.y};
  const auto cut = [&](double speed, double room) {  // keeps where speed * t <= room
    if (speed == 0.0) return room >= 0.0;
    const double t = room / speed;
    if (speed > 0.0) {
      to = std::min(to, t);
    } else {
      from = std::max(from, t);
    }
    return from <= to;
  };
  if (!cut(-step.x, a.x + margin) || !cut(step.x, size + margin - a.x)) return false;
  if (!cut(-step.y, a.y + margin) || !cut(step.y, size + margin - a.y)) return false;
  const UvPoint origin = a;
  if (to < 1.0) b = {origin.x + step.x * to, origin.y + step.y * to};
  if (from > 0.0) a = {origin.x + step.x * from, origin.y + step.y * from};
  return true;
}

void print_edges(const GasUvTree& tree, const UvPictureSettings& settings, std::string& text) {
  const double size = settings.size;
  for (const GeometryUvMapData& map : tree.get_uv_maps()) {
    const auto get = [&](uint index) {
      const GMathVec3<float>& uv = map.uvs[index];
      return UvPoint{(double{uv.x} - settings.tile.u) * size, (1.0 - (double{uv.y} - settings.tile.v)) * size};
    };
    uint number = 0;
    for (const GeometryUvEdge& edge : map.edges) {
      if (number++ % 65536 == 0) throw_if_interrupted();
      UvPoint a = get(edge.first), b = get(edge.second);
      if (!clip(a, b, size, 0.5 * settings.line_width)) continue;
      text += 'M', print_short(a.x, text), text += ' ', print_short(a.y, text);
      text += 'L', print_short(b.x, text), text += ' ', print_short(b.y, text);
      text += '\n';
    }
  }
}

}  // namespace

std::string print_uv_svg(const UvDrawing& drawing, const UvPictureSettings& settings) {
  const std::string size = std::to_string(settings.size);
  std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" height=\"" + size +
                     "\" viewBox=\"0 0 " + size + " " + size +
                     "\" fill=\"none\" stroke-linecap=\"round\" stroke-width=\"";
  print_short(settings.line_width, text);
  text += "\">\n";
  for (const UvStroke& stroke : drawing.get_strokes()) {
    text += "<g stroke=\"" + print_color(stroke.color) + "\"><title>" + escape(stroke.name) + "</title>\n<path d=\"";
    print_edges(stroke.tree, settings, text);
    text += "\"/></g>\n";
  }
  return text + "</svg>\n";
}
