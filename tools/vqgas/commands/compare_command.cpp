// tools/vqgas/commands/compare_command.cpp
#include <algorithm>
#include <cstdio>

#include "tools/vqgas/commands/command_line.h"
#include "tools/vqgas/commands/json_text.h"
#include "tools/vqgas/image/bitmap_font.h"
#include "tools/vqgas/scene/scene_compare.h"
#include "tools/vqgas/support/held_messages.h"
#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/progress_display.h"
#include "tools/vqgas/support/random.h"

namespace {

/// By RayAgreement.
constexpr const char* agreement_names[] = {"both_miss", "same", "other_distance", "only_a", "only_b"};
constexpr const char* agreement_labels[] = {"both miss", "same hit", "other distance", "only A hits", "only B hits"};
constexpr Color agreement_colors[] = {
    {0.05f, 0.05f, 0.06f}, {0.35f, 0.37f, 0.40f}, {0.95f, 0.85f, 0.20f}, {0.95f, 0.35f, 0.15f}, {0.20f, 0.55f, 1.0f}};

std::unique_ptr<QueryScene> build(OfApp& application, const CompareOptions& options, const std::string& file,
                                  const ShapeSettings& shapes) {
  HeldMessages messages;
  SceneSource source =
      load_scene(options, {file}, {options.frame, options.frame, {}, options.frames_per_second}, application);
  if (options.first == options.second) check_effects(shapes, source);
  auto scene = std::make_unique<QueryScene>(application, std::move(source), shapes, options.frame);
  if (!options.quiet) messages.release();
  if (!scene->has_surfaces()) throw InputError(file, "has no surface or hair to compare");
  return scene;
}

std::vector<CompareRay> make_camera_rays(const CompareOptions& options, const Camera& camera) {
  const CameraRays picture(camera, options.width, options.height);
  std::vector<CompareRay> rays;
  rays.reserve(std::size_t{options.width} * options.height);
  for (uint y = 0; y < options.height; ++y)
    for (uint x = 0; x < options.width; ++x)
      rays.push_back({picture.get_eye(), picture.get_direction(x + 0.5, y + 0.5)});
  return rays;
}

/// Each from a point of the box towards another.
std::vector<CompareRay> make_random_rays(const CompareOptions& options, const GMathBbox3<double>& box) {
  std::vector<CompareRay> rays;
  rays.reserve(options.rays);
  for (uint ray = 0; ray < options.rays; ++ray) {
    GMathVec3<double> ends[2];
    for (uint k = 0; k < 6; ++k) {
      const uint axis = k % 3;
      ends[k / 3][axis] =
          box.min[axis] + random_unit(ray ^ hash_bits(options.seed), 40 + k) * (box.max[axis] - box.min[axis]);
    }
    rays.push_back({ends[0], ends[1] - ends[0]});
  }
  return rays;
}

/// What one scene costs.
struct SideReport {
  std::string file, settings;
  double build_seconds;
  u64 bytes;
  RayAnswers camera, random;
};

SideReport measure(const QueryScene& scene, const std::string& file, const ShapeSettings& shapes, const char* title,
                   const std::vector<CompareRay>& camera, const std::vector<CompareRay>& random) {
  SideReport side = {file, print_shape_settings(shapes), scene.get_build_seconds(), 0, {}, {}};
  side.camera = answer_rays(scene, camera, title);
  if (!random.empty()) side.random = answer_rays(scene, random, title);
  side.bytes = get_structure_bytes(scene);  // of a grid with the parts that the rays have built
  return side;
}

double get_mrays(const RayAnswers& answers) {
  return answers.seconds > 0.0 ? 1e-6 * static_cast<double>(answers.distances.size()) / answers.seconds : 0.0;
}

nlohmann::ordered_json make_agreement_json(const AnswerComparison& found) {
  nlohmann::ordered_json json = {{"rays", found.rays.size()}};
  for (uint kind = 0; kind < 5; ++kind) json[agreement_names[kind]] = found.counts[kind];
  json["largest_difference"] = found.largest_difference;
  return json;
}

nlohmann::ordered_json make_side_json(const SideReport& side) {
  nlohmann::ordered_json json = {
      {"file", side.file}, {"settings", side.settings}, {"build_seconds", side.build_seconds}, {"bytes", side.bytes}};
  const auto add = [&](const char* name, const RayAnswers& answers) {
    json[name] = {{"mrays_per_second", get_mrays(answers)},
                  {"nodes_per_ray", answers.nodes},
                  {"primitives_per_ray", answers.leaves}};
  };
  add("camera", side.camera);
  if (!side.random.distances.empty()) add("random", side.random);
  return json;
}

void print_agreement(const char* name, const AnswerComparison& found) {
  std::printf("%s rays %36zu\n", name, found.rays.size());
  for (uint kind = 0; kind < 5; ++kind)
    std::printf("  %-20s %20u %9.4f%%\n", agreement_labels[kind], found.counts[kind],
                100.0 * found.counts[kind] / static_cast<double>(std::max<std::size_t>(found.rays.size(), 1)));
  std::printf("  %-20s %20.6g\n", "largest difference", found.largest_difference);
}

void print_sides(const SideReport& a, const SideReport& b) {
  std::printf("%-26s %16s %16s\n", "", "A", "B");
  const auto print = [](const char* name, double first, double second) {
    std::printf("  %-24s %16.4g %16.4g\n", name, first, second);
  };
  print("build, seconds", a.build_seconds, b.build_seconds);
  print("structures, MB", 1e-6 * double(a.bytes), 1e-6 * double(b.bytes));
  const auto print_rays = [&](const std::string& name, const RayAnswers& first, const RayAnswers& second) {
    print((name + ": Mrays/s").c_str(), get_mrays(first), get_mrays(second));
    print((name + ": nodes/ray").c_str(), first.nodes, second.nodes);
    print((name + ": primitives/ray").c_str(), first.leaves, second.leaves);
  };
  print_rays("camera", a.camera, b.camera);
  if (!a.random.distances.empty()) print_rays("random", a.random, b.random);
}

/// Each pixel in the color of its agreement; below it what the colors mean.
ScreenImage draw_difference(const CompareOptions& options, const AnswerComparison& found) {
  const uint scale = std::max(1u, options.width / 400), row = 2 * get_text_height(scale);
  ScreenImage image{options.width, options.height + 5 * row, {}};
  image.pixels.assign(std::size_t{image.width} * image.height, Color(0.0f, 0.0f, 0.0f));
  for (std::size_t pixel = 0; pixel < found.rays.size(); ++pixel)
    image.pixels[pixel] = agreement_colors[static_cast<uint>(found.rays[pixel])];
  for (uint kind = 0; kind < 5; ++kind) {
    const uint top = options.height + kind * row;
    for (uint y = top + 2; y + 2 < top + row; ++y)
      for (uint x = 2; x < std::min(2 * row, image.width); ++x) image.at(x, y) = agreement_colors[kind];
    draw_text(image, 2 * row + 4, top + row / 4, scale, Color(0.92f, 0.92f, 0.94f), agreement_labels[kind]);
  }
  return image;
}

}  // namespace

void run_compare(const CompareOptions& options) {
  check_outputs({options.output, options.json}, list_inputs(options, {options.first, options.second}));
  StoppableApplication application(options.threads);
  ProgressDisplay display(application, !options.quiet);
  const auto first = build(application, options, options.first, options.shapes);
  const auto second = build(application, options, options.second, options.other_shapes);
  std::vector<GMathBbox3<double>> boxes = first->get_tight_boxes();
  const std::vector<GMathBbox3<double>> more = second->get_tight_boxes();
  boxes.insert(boxes.end(), more.begin(), more.end());
  GMathBbox3<double> box = first->get_bbox();
  box.add(second->get_bbox());
  const std::vector<CompareRay> camera_rays = make_camera_rays(options, options.choose_camera(boxes)),
                                random = make_random_rays(options, box);

  display.set_unit("rays");
  const SideReport a = measure(*first, options.first, options.shapes, "Trace A", camera_rays, random);
  const SideReport b = measure(*second, options.second, options.other_shapes, "Trace B", camera_rays, random);
  const double tolerance = options.tolerance * (box.max - box.min).get_length();
  const AnswerComparison seen = compare_answers(a.camera, b.camera, tolerance);
  const AnswerComparison inside = compare_answers(a.random, b.random, tolerance);
  if (!options.output.empty()) write_png(options.output, draw_difference(options, seen));
  if (!options.json.empty()) {
    nlohmann::ordered_json report = begin_report("compare");
    report["a"] = make_side_json(a);
    report["b"] = make_side_json(b);
    report["tolerance"] = tolerance;
    report["camera"] = make_agreement_json(seen);
    report["random"] = make_agreement_json(inside);
    write_text_file(options.json, print_json_text(report));
  }
  if (options.json == "-") return;
  std::printf("A  %s  %s\nB  %s  %s\n", a.file.c_str(), a.settings.c_str(), b.file.c_str(), b.settings.c_str());
  print_agreement("camera", seen);
  if (!random.empty()) print_agreement("random", inside);
  print_sides(a, b);
}
