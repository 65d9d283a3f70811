#include "tools/vqgas/import/scatter_file.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/vqgas/support/input_error.h"
#include "tools/vqgas/support/input_file.h"
#include "tools/vqgas/support/interrupt.h"
#include "tools/vqgas/support/memory_limit.h"
#include "tools/vqgas/support/output_file.h"
#include "tools/vqgas/support/quote.h"
#include "vq_geometry/displaced_mesh.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr const char* scatter_format = "vqgas scatter 1";
constexpr std::size_t numbers_per_matrix = 12;

bool is_built_in(const std::string& name) { return name.starts_with("demo:"); }

bool has_control(const std::string& name) {
  return std::any_of(name.begin(), name.end(),
                     [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

/// Without links: ".." behind one leads elsewhere.
fs::path find_folder(const std::string& path) {
  const fs::path folder = fs::absolute(path).parent_path();
  std::error_code error;
  const fs::path found = fs::weakly_canonical(folder, error);
  return error ? folder : found;
}

/// For errors. Printing lists within lists is recursive, and their depth is the file's.
std::string print(const Json& value) {
  return value.is_structured() ? value.type_name() : make_one_line(value.dump()).substr(0, 60);
}

class ScatterReader {
 public:
  explicit ScatterReader(const std::string& path) : path_(path), folder_(fs::path(path).parent_path()) {}

  ScatterFile read() {
    const Json root = parse();
    if (!root.is_object() || root.value("format", Json()) != scatter_format)
      fail(std::string("is not a scatter file: its \"format\" is not \"") + scatter_format + "\"");
    if (root.contains("ground")) file_.ground = read_name(root["ground"], "\"ground\"");
    if (root.contains("displacement")) read_displacement(root["displacement"]);
    read_geometries(get(root, "geometries"));
    if (root.contains("sway")) read_sway(root["sway"]);
    read_instances(get(root, "instances"));
    return std::move(file_);
  }

 private:
  [[noreturn]] void fail(const std::string& fault) const { throw InputError(path_, fault); }

  Json parse() const {
    try {
      std::ifstream stream(path_, std::ios::binary);
      return Json::parse(stream);
    } catch (const Json::exception& error) {
      const std::string text = error.what();  // "[json.exception.parse_error.101] parse error at line 1, column 2: ..."
      const std::size_t end = text.find("] ");
      fail("is not JSON: " + make_one_line(end == std::string::npos ? text : text.substr(end + 2)));
    }
  }

  const Json& get(const Json& parent, const char* key) const {
    const auto found = parent.find(key);
    if (found == parent.end()) fail(std::string("has no \"") + key + "\"");
    return *found;
  }

  std::string read_name(const Json& value, const std::string& what) const {
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) fail(what + " is not the name of a file");
    const auto& name = value.get_ref<const std::string&>();
    if (has_control(name)) fail(what + " has a control character in its name");
    return is_built_in(name) ? name : (folder_ / name).string();
  }

  void read_geometries(const Json& list) {
    if (!list.is_array() || list.empty()) fail("\"geometries\" is not a list of names");
    for (const Json& name : list)
      file_.geometries.push_back(read_name(name, "geometry " + std::to_string(file_.geometries.size())));
  }

  /// The number `parent`[key], where `parent` is called `name`.
  double read_number(const Json& parent, const char* name, const char* key, double low, double high) const {
    const Json value = parent.is_object() ? parent.value(key, Json()) : Json();
    const double number = value.is_number() ? value.get<double>() : -1.0;
    if (!(number >= low && number <= high)) fail(std::string("\"") + name + "\" has no valid \"" + key + "\"");
    return number;
  }

  void read_displacement(const Json& displacement) {
    constexpr const char* name = "displacement";
    if (file_.ground.empty()) fail("\"displacement\" has no ground");
    if (!displacement.is_object()) fail("\"displacement\" is not an object");
    DisplaceOptions& options = file_.displacement;
    const Json height = displacement.value("height", Json());
    options.height = height == "noise" ? "noise" : read_name(height, "the height of \"displacement\"");
    if (displacement.contains("bound")) options.bound = read_number(displacement, name, "bound", DBL_TRUE_MIN, DBL_MAX);
    if (!displacement.value("rate", Json()).is_number_integer()) fail("\"displacement\" has no valid \"rate\"");
    options.rate = static_cast<uint>(read_number(displacement, name, "rate", 1.0, DisplacedMeshSettings::most_rate));
  }

  void read_sway(const Json& sway) {
    file_.sway_degrees = read_number(sway, "sway", "degrees", 0.0, 90.0);
    file_.sway_period = read_number(sway, "sway", "period", 1e-6, 1e12);
  }

  void read_instances(const Json& instances) {
    const auto get_list = [&](const char* key) -> const Json& {
      const Json& list = get(instances, key);
      if (!list.is_array()) fail(std::string("\"") + key + "\" of the instances is not a list");
      return list;
    };
    if (!instances.is_object()) fail("\"instances\" is not an object");
    const Json &geometries = get_list("geometry"), &numbers = get_list("matrix");
    const std::size_t count = geometries.size();
    if (count == 0) fail("holds no instance");
    if (numbers.size() != numbers_per_matrix * count)
      fail("has " + std::to_string(numbers.size()) + " numbers of matrices, not 12 for each of " +
           std::to_string(count) + " instances");
    for (std::size_t k = 0; k < count; ++k) {
      if (k % 4096 == 0) throw_if_interrupted();
      file_.instance_geometries.push_back(read_index(geometries[k], k));
      file_.matrices.push_back(read_matrix(numbers, k));
    }
  }

  uint read_index(const Json& value, std::size_t instance) const {
    if (!value.is_number_unsigned() || value.get<u64>() >= file_.geometries.size())
      fail("instance " + std::to_string(instance) + ": " + print(value) + " is not the number of one of the " +
           std::to_string(file_.geometries.size()) + " geometries");
    return value.get<uint>();
  }

  GMathMatrix4x4<double> read_matrix(const Json& numbers, std::size_t instance) const {
    GMathMatrix4x4<double> matrix;
    for (std::size_t k = 0; k < numbers_per_matrix; ++k) {
      const Json& value = numbers[instance * numbers_per_matrix + k];
      if (!value.is_number() || !std::isfinite(value.get<float>()))
        fail("instance " + std::to_string(instance) + ": " + print(value) + " in its matrix is not a finite number");
      matrix.m[k / 4][k % 4] = value.get<double>();
    }
    return matrix;
  }

  const std::string& path_;
  const fs::path folder_;
  ScatterFile file_;
};

/// The shortest text that is read back as this float, or double.
template <class T>
void append_number(std::string& text, T number) {
  char digits[32];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), number).ptr;
  text.append(digits, end);
}

}  // namespace

bool is_scatter_file(const std::string& path) { return get_extension(path) == ".json"; }

ScatterFile read_scatter(const std::string& path) {
  check_input_file(path);
  try {
    const MemoryLimit limit;
    return ScatterReader(path).read();
  } catch (const std::bad_alloc&) {
    throw InputError(path, "asks for more memory than there is");
  }
}

std::string print_scatter_name(const std::string& path, const std::string& name) {
  if (is_built_in(name)) return Json(name).dump();
  const fs::path file = find_folder(name) / fs::path(name).filename();
  std::string stored = file.lexically_proximate(find_folder(path)).string();
  if (stored == "noise" || is_built_in(stored)) stored = "./" + stored;
  try {
    if (!has_control(stored)) return Json(stored).dump();
  } catch (const Json::exception&) {
    // not UTF-8
  }
  throw InputError(quote(stored), "a name with control characters or other bytes than UTF-8 cannot stand in a file");
}

void write_scatter(const std::string& path, const ScatterFile& file) {
  const auto print_name = [&](const std::string& name) { return print_scatter_name(path, name); };
  std::string text = std::string("{\"format\": \"") + scatter_format + "\",\n";
  if (!file.ground.empty()) text += " \"ground\": " + print_name(file.ground) + ",\n";
  const DisplaceOptions& displacement = file.displacement;
  if (!file.ground.empty() && !displacement.height.empty()) {
    text +=
        " \"displacement\": {\"height\": " + (displacement.is_file() ? print_name(displacement.height) : "\"noise\"");
    if (displacement.bound) {
      text += ", \"bound\": ";
      append_number(text, *displacement.bound);
    }
    text += ", \"rate\": " + std::to_string(displacement.rate) + "},\n";
  }
  text += " \"geometries\": [";
  for (const std::string& name : file.geometries)
    text += (&name == file.geometries.data() ? "" : ", ") + print_name(name);
  text += "],\n";
  if (file.sway_degrees > 0.0) {
    text += " \"sway\": {\"degrees\": ";
    append_number(text, file.sway_degrees);
    text += ", \"period\": ";
    append_number(text, file.sway_period);
    text += "},\n";
  }
  text += " \"instances\": {\n  \"geometry\": [";
  for (std::size_t k = 0; k < file.instance_geometries.size(); ++k)
    text += (k == 0 ? "" : k % 32 == 0 ? ",\n   " : ",") + std::to_string(file.instance_geometries[k]);
  text += "],\n  \"matrix\": [";
  for (std::size_t k = 0; k < file.matrices.size() * numbers_per_matrix; ++k) {
    if (k > 0) text += k % numbers_per_matrix == 0 ? ",\n   " : ",";
    append_number(text, static_cast<float>(file.matrices[k / numbers_per_matrix].m[k % numbers_per_matrix / 4][k % 4]));
  }
  write_text_file(path, text + "]}}\n");
}
