#include "tools/vqgas/import/gltf_check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tools/vqgas/support/base64.h"
#include "tools/vqgas/support/input_error.h"
#include "vq_core/core_types.h"

namespace {

using Json = nlohmann::json;

/// Of the elements of an accessor: FLOAT is 5126, and so on.
u64 get_component_bytes(u64 type) {
  switch (type) {
    case 5120:
    case 5121:
      return 1;
    case 5122:
    case 5123:
      return 2;
    case 5125:
    case 5126:
      return 4;
    default:
      return 0;
  }
}

u64 get_component_count(const std::string& type) {
  constexpr std::array<std::string_view, 7> types = {"SCALAR", "VEC2", "VEC3", "VEC4", "MAT2", "MAT3", "MAT4"};
  constexpr std::array<u64, 7> counts = {1, 2, 3, 4, 4, 9, 16};
  const auto found = std::find(types.begin(), types.end(), type);
  return found == types.end() ? 0 : counts[static_cast<std::size_t>(found - types.begin())];
}

class GltfChecker {
 public:
  explicit GltfChecker(const std::string& path) : path_(path) { parse(); }

  void check() const {
    if (!root_.is_object()) fail("is not a glTF file");
    for_each("bufferViews", [&](const Json& view, const std::string& what) { check_view(view, what); });
    for_each("accessors", [&](const Json& accessor, const std::string& what) { check_accessor(accessor, what); });
    for_each("nodes", [&](const Json& node, const std::string& what) {
      if (node.is_object() && node.contains("skin")) check_skin(find("skins", node["skin"], what), "skin of " + what);
    });
  }

  /// The file with identity matrices for the skins that have none; empty if there is no such skin.
  std::string complete_skins() {
    const auto skins = root_.find("skins");
    if (skins == root_.end() || !skins->is_array()) return {};
    std::size_t most_joints = 0;
    for (Json& skin : *skins) {
      if (!skin.is_object() || !skin.contains("joints") || skin.contains("inverseBindMatrices")) continue;
      most_joints = std::max(most_joints, skin["joints"].size());
      skin["inverseBindMatrices"] = get_list("accessors").size();
    }
    if (most_joints == 0) return {};
    std::vector<float> matrices(16 * most_joints, 0.0f);
    for (std::size_t k = 0; k < matrices.size(); ++k) matrices[k] = k % 16 % 5 == 0 ? 1.0f : 0.0f;
    const std::size_t bytes = matrices.size() * sizeof(float);
    get_list("accessors")
        .push_back({{"bufferView", get_list("bufferViews").size()},
                    {"componentType", 5126},
                    {"count", most_joints},
                    {"type", "MAT4"}});
    get_list("bufferViews").push_back({{"buffer", get_list("buffers").size()}, {"byteLength", bytes}});
    get_list("buffers").push_back(
        {{"byteLength", bytes}, {"uri", "data:application/octet-stream;base64," + print_base64(matrices)}});
    return print();
  }

 private:
  [[noreturn]] void fail(const std::string& fault) const { throw InputError(path_, fault); }

  /// The binary form has 20 bytes before the JSON text, their last but one word its length.
  void parse() {
    std::ifstream file(path_, std::ios::binary);
    std::string text(20, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file && text.starts_with("glTF")) {
      u32 size = 0;
      std::memcpy(&size, text.data() + 12, sizeof(size));
      header_ = text;
      text.assign(std::istreambuf_iterator<char>(file), {});
      if (size > text.size()) fail("is cut off");
      body_ = text.substr(size);
      text.resize(size);
    } else {
      text.resize(static_cast<std::size_t>(file.gcount()));
      text.append(std::istreambuf_iterator<char>(file), {});
    }
    root_ = Json::parse(text, nullptr, false);
    if (root_.is_discarded()) fail("is not a glTF file: its text is not JSON");
  }

  /// Made if there is none.
  Json& get_list(const char* key) {
    Json& list = root_[key];
    if (!list.is_null() && !list.is_array()) fail(std::string("its ") + key + " are no list");
    return list;
  }

  /// In the form that was parsed.
  std::string print() const {
    std::string text = root_.dump();
    if (header_.empty()) return text;
    text.resize((text.size() + 3) / 4 * 4, ' ');
    std::string header = header_;
    const u32 size = static_cast<u32>(text.size()), whole = static_cast<u32>(header.size() + size + body_.size());
    std::memcpy(header.data() + 8, &whole, sizeof(whole));
    std::memcpy(header.data() + 12, &size, sizeof(size));
    return header + text + body_;
  }

  /// Members of a list, or of an object in version 1.
  template <class Visit>
  void for_each(const char* key, const Visit& visit) const {
    const auto list = root_.find(key);
    if (list == root_.end() || !list->is_structured()) return;
    std::size_t number = 0;
    for (const Json& member : *list) visit(member, std::string(key) + " " + std::to_string(number++));
  }

  /// The member of a list by its number, or by its name in version 1.
  const Json& find(const char* key, const Json& at, const std::string& what) const {
    const auto list = root_.find(key);
    if (list != root_.end() && list->is_array() && at.is_number_unsigned() && at.get<u64>() < list->size())
      return (*list)[at.get<std::size_t>()];
    if (list != root_.end() && list->is_object() && at.is_string() && list->contains(at.get_ref<const std::string&>()))
      return (*list)[at.get_ref<const std::string&>()];
    fail(what + " names one of the " + key + " that does not exist");
  }

  /// A whole number below 2^40, so that sums and products with a stride stay exact.
  u64 get_number(const Json& object, const char* key, const std::string& what) const {
    const auto found = object.find(key);
    if (found == object.end()) return 0;
    if (!found->is_number_unsigned() || found->get<u64>() >> 40 != 0) fail(what + " has an invalid " + key);
    return found->get<u64>();
  }

  const Json& get(const Json& object, const char* key, const std::string& what) const {
    if (!object.is_object()) fail(what + " is not an object");
    const auto found = object.find(key);
    if (found == object.end()) fail(what + " has no " + key);
    return *found;
  }

  void check_view(const Json& view, const std::string& what) const {
    const Json& buffer = find("buffers", get(view, "buffer", what), what);
    const u64 size = buffer.is_object() ? get_number(buffer, "byteLength", "its buffer") : 0;
    if (get_number(view, "byteOffset", what) + get_number(view, "byteLength", what) > size)
      fail(what + " reaches beyond its buffer");
  }

  void check_accessor(const Json& accessor, const std::string& what) const {
    const Json& type = get(accessor, "type", what);
    const u64 width = type.is_string() ? get_component_count(type.get_ref<const std::string&>()) : 0;
    const u64 bytes = width * get_component_bytes(get_number(accessor, "componentType", what));
    if (bytes == 0) fail(what + " has an unknown type");
    const u64 count = get_number(accessor, "count", what);
    if (!accessor.contains("bufferView") || count == 0) return;
    const Json& view = find("bufferViews", accessor["bufferView"], what);
    u64 stride = std::max(get_number(view, "byteStride", what), get_number(accessor, "byteStride", what));
    if (stride == 0) stride = bytes;
    constexpr u64 most_stride = 65535;
    if (stride < bytes || stride > most_stride) fail(what + " has an invalid byteStride");
    const u64 size = get_number(view, "byteLength", what), offset = get_number(accessor, "byteOffset", what);
    if (offset + bytes > size || (count - 1) > (size - offset - bytes) / stride)
      fail(what + " reaches beyond its buffer view");
  }

  void check_skin(const Json& skin, const std::string& what) const {
    if (!skin.is_object()) fail(what + " is not an object");
    const auto joints = skin.find(root_["skins"].is_array() ? "joints" : "jointNames");
    if (joints == skin.end() || !joints->is_array()) fail(what + " has no joints");
    if (!skin.contains("inverseBindMatrices")) {
      if (root_["skins"].is_array()) return;
      fail(what + " has no inverse bind matrices");
    }
    const Json& matrices = find("accessors", skin["inverseBindMatrices"], what);
    if (matrices.value("type", Json()) != "MAT4" || get_number(matrices, "count", what) < joints->size())
      fail(what + " has less matrices than joints");
  }

  const std::string& path_;
  std::string header_, body_;  ///< binary form: what is before and after the text
  Json root_;
};

}  // namespace

std::string check_gltf(const std::string& path) {
  GltfChecker checker(path);
  checker.check();
  return checker.complete_skins();
}
