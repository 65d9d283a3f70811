#include "tools/vqgas/import/gltf_check.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

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
  explicit GltfChecker(const std::string& path) : path_(path), root_(parse()) {}

  void check() const {
    if (!root_.is_object()) fail("is not a glTF file");
    for_each("bufferViews", [&](const Json& view, const std::string& what) { check_view(view, what); });
    for_each("accessors", [&](const Json& accessor, const std::string& what) { check_accessor(accessor, what); });
    for_each("nodes", [&](const Json& node, const std::string& what) {
      if (node.is_object() && node.contains("skin")) check_skin(find("skins", node["skin"], what), "skin of " + what);
    });
  }

 private:
  [[noreturn]] void fail(const std::string& fault) const { throw InputError(path_, fault); }

  /// The binary form has 20 bytes before the JSON text, their last but one word its length.
  Json parse() const {
    std::ifstream file(path_, std::ios::binary);
    std::string text(20, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file && text.starts_with("glTF")) {
      u32 size = 0;
      std::memcpy(&size, text.data() + 12, sizeof(size));
      text.assign(std::istreambuf_iterator<char>(file), {});
      if (size > text.size()) fail("is cut off");
      text.resize(size);
    } else {
      text.resize(static_cast<std::size_t>(file.gcount()));
      text.append(std::istreambuf_iterator<char>(file), {});
    }
    Json root = Json::parse(text, nullptr, false);
    if (root.is_discarded()) fail("is not a glTF file: its text is not JSON");
    return root;
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
    if (!skin.contains("inverseBindMatrices") || joints == skin.end())
      fail(what + " has no joints or no inverse bind matrices, without which it cannot be read");
    const Json& matrices = find("accessors", skin["inverseBindMatrices"], what);
    if (matrices.value("type", Json()) != "MAT4" || get_number(matrices, "count", what) < joints->size())
      fail(what + " has less matrices than joints");
  }

  const std::string& path_;
  const Json root_;
};

}  // namespace

void check_gltf(const std::string& path) { GltfChecker(path).check(); }
