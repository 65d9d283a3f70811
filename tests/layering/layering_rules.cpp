// tests/layering/layering_rules.cpp
#include "layering/layering_rules.h"

#include <string_view>

namespace {

// A library may include the groups before its own; the members of one group are blind to each other.
const std::vector<std::set<std::string>> host_groups{{"vq_core"},
                                                     {"vq_simd"},
                                                     {"vq_sys", "vq_gmath", "vq_event"},
                                                     {"vq_resource", "vq_app_base"},
                                                     {"vq_of"},
                                                     {"vq_ctx", "vq_shading_variable"},
                                                     {"vq_geometry"},
                                                     {"vq_curve"},
                                                     {"vq_gas_base"},
                                                     {"vq_module"}};

// The folders of the program. One may include the groups before its own; the members of one group are blind to each
// other. main.cpp stands above them all.
const std::vector<std::set<std::string>> program_groups{{"support"}, {"image"},  {"source"},   {"demo", "import"},
                                                        {"scene"},   {"render"}, {"commands"}, {"main.cpp"}};

// The stages inside gas/bvh, by rank. A file belongs to the stage of its longest matching name; stages of one rank are
// blind to each other.
struct BvhStage {
  std::string_view prefix;
  int rank;
  std::string_view stage;
};
constexpr BvhStage bvh_stages[] = {
    {"bvh_layout", 0, "layout"},        {"bvh_quantize", 0, "layout"},  {"bvh_oriented", 0, "layout"},
    {"bvh_start", 1, "tree"},           {"gas_bvh", 1, "tree"},         {"gas_bvh_motion", 2, "motion"},
    {"bvh_build", 3, "builder"},        {"bvh_finalize", 3, "builder"}, {"bvh_node_pool", 3, "builder"},
    {"bvh_cluster", 3, "clustering"},   {"bvh_kernel", 3, "kernels"},   {"bvh_frustum", 3, "kernels"},
    {"bvh_statistics", 3, "statistics"}};

const BvhStage* find_stage(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const BvhStage* best = nullptr;
  for (const BvhStage& stage : bvh_stages)
    if (name.starts_with(stage.prefix) && (!best || stage.prefix.size() > best->prefix.size())) best = &stage;
  return best;
}

// Position of the group that holds the part of `path` behind `start`, or -1 for one that the table does not know.
int find_group(const std::vector<std::set<std::string>>& groups, const std::string& path, std::string_view start) {
  const std::string name = path.substr(start.size(), path.find('/', start.size()) - start.size());
  for (std::size_t group = 0; group < groups.size(); ++group)
    if (groups[group].contains(name)) return static_cast<int>(group);
  return -1;
}

std::string get_folder(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }
std::string get_top(const std::string& path) { return path.substr(0, path.find('/')); }

std::string find_host_fault(const std::string& from, const std::string& to) {
  if (!to.starts_with("host/")) return "the host knows only the host";
  const int own = find_group(host_groups, from, "host/"), other = find_group(host_groups, to, "host/");
  if (own < 0 || other < 0) return "a host library that is not in the layering table";
  if (get_folder(from) == get_folder(to) || other < own) return {};
  return "the host includes only the groups before its own";
}

std::string find_program_fault(const std::string& from, const std::string& to) {
  constexpr std::string_view start = "tools/vqgas/";
  const int own = find_group(program_groups, from, start), other = find_group(program_groups, to, start);
  if (own < 0 || other < 0) return "a folder of the program that is not in the layering table";
  if (get_folder(from) == get_folder(to) || other < own) return {};
  return "a folder of the program includes only the groups before its own";
}

std::string find_bvh_fault(const std::string& from, const std::string& to) {
  const BvhStage *own = find_stage(from), *other = find_stage(to);
  if (own && (to.starts_with("host/") || to.starts_with("gas/frame/"))) return {};
  if (!to.starts_with("gas/bvh/")) return "gas/bvh knows neither structures nor programs";
  if (!own || !other) return "a file of gas/bvh that no stage of the layering table names";
  if (other->stage == own->stage || other->rank < own->rank) return {};
  return std::string(own->stage) + " may not include " + std::string(other->stage);
}

// The names are cut in two, so that this file passes its own rule.
bool is_outside_line(const std::string& line) {
  static const std::regex words(
      "\\b(the|this|our) spec\\b|spec"
      "ification|spec\\.md",
      std::regex::icase);
  static const std::regex numbers("\\bPart [0-9]+\\.[0-9]+\\b|\\bC-[0-9]{3}\\b");
  static const std::regex places("(^|[^A-Za-z0-9_.$}<*/-])/(work|root|home|tmp)(/|\\b)");
  const auto has = [&](const char* part) { return line.find(part) != std::string::npos; };
  // The searches are slow and nearly every line holds none of these.
  if ((has("pec") || has("PEC")) && std::regex_search(line, words)) return true;
  if ((has("Part ") || has("C-")) && std::regex_search(line, numbers)) return true;
  return has("/") && std::regex_search(line, places);
}

}  // namespace

std::string find_layer_fault(const std::string& from, const std::string& to) {
  const std::string own = get_top(from), other = get_top(to);
  if (own == "host") return find_host_fault(from, to);
  if (from.starts_with("gas/bvh/")) return find_bvh_fault(from, to);
  if (from.starts_with("gas/frame/"))
    return other == "host" || to.starts_with("gas/frame/") ? "" : "gas/frame knows only the host";
  if (own == "examples")
    return other == "host" || other == own || is_structure_header(to) ? "" : "examples use public headers only";
  if (own != "gas" && own != "tools" && own != "bench" && own != "tests")
    return "a folder that the layering table does not know";
  if (own == "tools" && other == "tools") return find_program_fault(from, to);
  return is_library_path(to) || own == other || (own == "tests" && other == "tools") ? "" : "nobody includes a program";
}

bool is_base_or_helper(const std::string& code, const std::string& other) {
  static const std::regex derived(R"(\b(?:class|struct) (\w+)(?: final)? : public )");
  bool is_structure = false;
  for (std::sregex_iterator found(other.begin(), other.end(), derived), end; found != end; ++found) {
    const std::string name = (*found)[1].str();
    // A class nested in it but defined apart makes the file a part of it.
    if (std::regex_search(code, std::regex("\\b(public|class|struct) " + name + "( |,|::)"))) return true;
    is_structure = true;
  }
  return !is_structure;
}

std::string find_intrinsic(const ScanFile& file) {
  for (const ScanInclude& include : file.includes)
    if (is_intrinsics_header(include.name)) return include.name;
  static const std::regex name(R"(\b(_mm\d*_\w+|__m(64|128|256|512)[id]?|__builtin_ia32_\w+)\b)");
  std::smatch match;
  return std::regex_search(file.code, match, name) ? match.str() : "";
}

std::vector<std::string> find_outside_words(const std::string& text) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (is_outside_line(line)) found.push_back(std::to_string(number) + ": " + line);
  }
  return found;
}
