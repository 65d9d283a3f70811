#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "fuzz/fuzz_seeds.h"

namespace {

/// What the accessors of the glTF seeds read: a square, its normals and texture coordinates, a morph target, bones and
/// their weights, key times, key values.
std::string make_gltf_buffer() {
  std::string bytes;
  const auto add = [&](std::initializer_list<float> values) {
    for (const float value : values) append_bytes(bytes, value);
  };
  add({-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0});                                               // 0
  add({0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1});                                                   // 48
  add({0, 0, 1, 0, 1, 1, 0, 1});                                                               // 96
  add({0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0});                                                   // 128
  add({1, 0, 0, 0, 0.5f, 0.5f, 0, 0, 0.5f, 0.5f, 0, 0, 0, 1, 0, 0});                           // 176
  for (int vertex = 0; vertex < 4; ++vertex) bytes.append("\0\1\0\0", 4);                      // 240
  for (const std::uint16_t corner : {0, 1, 2, 0, 2, 3}) append_bytes(bytes, corner);           // 256
  add({0, 1});                                                                                 // 268
  add({0, 0, 0, 2, 0, 0});                                                                     // 276
  add({0, 0, 0, 1, 0, 0, 1, 0});                                                               // 300
  add({0, 1});                                                                                 // 332
  for (int bone = 0; bone < 2; ++bone) add({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});  // 340
  return bytes;
}

/// @param buffer  members of the buffer
std::string make_gltf(const std::string& buffer) {
  std::string views, accessors;
  const auto add = [&](int offset, int size, int component, int count, const std::string& type) {
    views += (views.empty() ? "" : ",\n") + std::string("{\"buffer\": 0, \"byteOffset\": ") + std::to_string(offset) +
             ", \"byteLength\": " + std::to_string(size) + "}";
    const std::string number = std::to_string(accessors.empty() ? 0 : std::count(views.begin(), views.end(), '\n'));
    accessors += (accessors.empty() ? "" : ",\n") + std::string("{\"bufferView\": ") + number +
                 ", \"componentType\": " + std::to_string(component) + ", \"count\": " + std::to_string(count) +
                 ", \"type\": \"" + type + "\"}";
  };
  constexpr int u8_type = 5121, u16_type = 5123, float_type = 5126;
  add(0, 48, float_type, 4, "VEC3");
  add(48, 48, float_type, 4, "VEC3");
  add(96, 32, float_type, 4, "VEC2");
  add(128, 48, float_type, 4, "VEC3");
  add(176, 64, float_type, 4, "VEC4");
  add(240, 16, u8_type, 4, "VEC4");
  add(256, 12, u16_type, 6, "SCALAR");
  add(268, 8, float_type, 2, "SCALAR");
  add(276, 24, float_type, 2, "VEC3");
  add(300, 32, float_type, 2, "VEC4");
  add(332, 8, float_type, 2, "SCALAR");
  add(340, 128, float_type, 2, "MAT4");
  return R"({"asset": {"version": "2.0"}, "scene": 0,
"scenes": [{"nodes": [0, 2]}],
"nodes": [{"name": "moved", "mesh": 0, "children": [1]},
{"name": "tip", "mesh": 1, "translation": [3, 0, 0], "rotation": [0, 0, 0, 1], "scale": [1, 2, 1]},
{"name": "root", "children": [3], "matrix": [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1]},
{"name": "skinned", "mesh": 2, "skin": 0}],
"materials": [{"name": "red", "pbrMetallicRoughness": {"baseColorFactor": [1, 0, 0, 1]}}],
"meshes": [
{"primitives": [{"attributes": {"POSITION": 0, "NORMAL": 1, "TEXCOORD_0": 2}, "indices": 6, "material": 0}]},
{"primitives": [{"attributes": {"POSITION": 0}, "indices": 6, "targets": [{"POSITION": 3}]}],
"weights": [0.5]},
{"primitives": [{"attributes": {"POSITION": 0, "WEIGHTS_0": 4, "JOINTS_0": 5}, "indices": 6}]}],
"skins": [{"joints": [0, 2], "inverseBindMatrices": 11}],
"animations": [{"samplers": [{"input": 7, "output": 8},
{"input": 7, "output": 9, "interpolation": "STEP"}, {"input": 7, "output": 10}],
"channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}},
{"sampler": 1, "target": {"node": 2, "path": "rotation"}},
{"sampler": 2, "target": {"node": 1, "path": "weights"}}]}],
"buffers": [{)" +
         buffer + "}],\n\"bufferViews\": [" + views + "],\n\"accessors\": [" + accessors + "]}\n";
}

std::string encode_base64(const std::string& bytes) {
  constexpr const char* letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t word = 0;
    for (std::size_t k = 0; k < 3; ++k)
      word = word << 8 | (at + k < bytes.size() ? static_cast<unsigned char>(bytes[at + k]) : 0u);
    for (const std::uint32_t shift : {18, 12, 6, 0}) text += letters[word >> shift & 63];
    for (std::size_t k = bytes.size() - at; k < 3; ++k) text[text.size() + k - 3] = '=';
  }
  return text;
}

std::string make_glb(const std::string& buffer) {
  std::string json = make_gltf("\"byteLength\": " + std::to_string(buffer.size()));
  json.resize((json.size() + 3) / 4 * 4, ' ');
  std::string bytes = "glTF";
  for (const std::size_t word : {std::size_t{2}, 28 + json.size() + buffer.size(), json.size()})
    append_bytes(bytes, static_cast<std::uint32_t>(word));
  bytes += "JSON" + json;
  append_bytes(bytes, static_cast<std::uint32_t>(buffer.size()));
  return bytes + std::string("BIN\0", 4) + buffer;
}

constexpr const char* collada = R"(<?xml version="1.0" encoding="utf-8"?>
<COLLADA xmlns="http://www.collada.org/2005/11/COLLADASchema" version="1.4.1">
<asset><unit name="meter" meter="1"/><up_axis>Y_UP</up_axis></asset>
<library_geometries><geometry id="g" name="g"><mesh>
<source id="p"><float_array id="pa" count="12">-1 -1 0 1 -1 0 1 1 0 -1 1 0</float_array>
<technique_common><accessor source="#pa" count="4" stride="3"><param name="X" type="float"/>
<param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<source id="t"><float_array id="ta" count="8">0 0 1 0 1 1 0 1</float_array>
<technique_common><accessor source="#ta" count="4" stride="2"><param name="S" type="float"/>
<param name="T" type="float"/></accessor></technique_common></source>
<vertices id="v"><input semantic="POSITION" source="#p"/></vertices>
<polylist count="2" material="m"><input semantic="VERTEX" source="#v" offset="0"/>
<input semantic="TEXCOORD" source="#t" offset="1" set="0"/>
<vcount>4 3</vcount>
<p>0 0 1 1 2 2 3 3 0 0 1 1 2 2</p></polylist>
<triangles count="1"><input semantic="VERTEX" source="#v" offset="0"/><p>0 1 3</p></triangles>
</mesh></geometry></library_geometries>
<library_controllers><controller id="c"><skin source="#g">
<source id="j"><Name_array id="ja" count="2">bone tip</Name_array>
<technique_common><accessor source="#ja" count="2" stride="1"><param name="JOINT" type="Name"/></accessor>
</technique_common></source>
<source id="b"><float_array id="ba" count="32">1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1</float_array>
<technique_common><accessor source="#ba" count="2" stride="16"><param name="M" type="float4x4"/></accessor>
</technique_common></source>
<source id="w"><float_array id="wa" count="2">1 0.5</float_array>
<technique_common><accessor source="#wa" count="2" stride="1"><param name="W" type="float"/></accessor>
</technique_common></source>
<joints><input semantic="JOINT" source="#j"/><input semantic="INV_BIND_MATRIX" source="#b"/></joints>
<vertex_weights count="4"><input semantic="JOINT" source="#j" offset="0"/>
<input semantic="WEIGHT" source="#w" offset="1"/>
<vcount>1 2 1 1</vcount><v>0 0 0 1 1 1 1 0 0 0</v></vertex_weights></skin></controller></library_controllers>
<library_animations><animation id="a"><source id="i"><float_array id="ia" count="2">0 1</float_array>
<technique_common><accessor source="#ia" count="2" stride="1"><param name="TIME" type="float"/></accessor>
</technique_common></source>
<source id="o"><float_array id="oa" count="6">0 0 0 3 0 0</float_array>
<technique_common><accessor source="#oa" count="2" stride="3"><param name="X" type="float"/>
<param name="Y" type="float"/><param name="Z" type="float"/></accessor></technique_common></source>
<sampler id="s"><input semantic="INPUT" source="#i"/><input semantic="OUTPUT" source="#o"/></sampler>
<channel source="#s" target="bone/move"/></animation></library_animations>
<library_visual_scenes><visual_scene id="scene">
<node id="bone" sid="bone" name="bone" type="JOINT"><translate sid="move">0 0 0</translate>
<node id="tip" sid="tip" name="tip" type="JOINT"><rotate sid="turn">0 0 1 45</rotate></node></node>
<node id="n" name="n"><matrix>1 0 0 0 0 1 0 0 0 0 1 5 0 0 0 1</matrix><scale>1 2 1</scale>
<instance_geometry url="#g"/></node>
<node id="k" name="k"><instance_controller url="#c"><skeleton>#bone</skeleton></instance_controller></node>
</visual_scene></library_visual_scenes>
<scene><instance_visual_scene url="#scene"/></scene>
</COLLADA>
)";

constexpr const char* text_fbx = R"(; FBX 7.3.0 project file
FBXHeaderExtension:  {
	FBXHeaderVersion: 1003
	FBXVersion: 7300
}
GlobalSettings:  {
	Version: 1000
	Properties70:  {
		P: "UpAxis", "int", "Integer", "",1
		P: "UnitScaleFactor", "double", "Number", "",1
	}
}
Definitions:  {
	Version: 100
	Count: 2
}
Objects:  {
	Geometry: 100, "Geometry::", "Mesh" {
		Vertices: *12 {
			a: -1,-1,0,1,-1,0,1,1,0,-1,1,0
		}
		PolygonVertexIndex: *7 {
			a: 0,1,2,-4,0,1,-3
		}
		GeometryVersion: 124
		LayerElementUV: 0 {
			Version: 101
			Name: "map"
			MappingInformationType: "ByPolygonVertex"
			ReferenceInformationType: "IndexToDirect"
			UV: *8 {
				a: 0,0,1,0,1,1,0,1
			}
			UVIndex: *7 {
				a: 0,1,2,3,0,1,2
			}
		}
		LayerElementMaterial: 0 {
			Version: 101
			Name: ""
			MappingInformationType: "AllSame"
			ReferenceInformationType: "IndexToDirect"
			Materials: *1 {
				a: 0
			}
		}
		Layer: 0 {
			Version: 100
			LayerElement:  {
				Type: "LayerElementUV"
				TypedIndex: 0
			}
			LayerElement:  {
				Type: "LayerElementMaterial"
				TypedIndex: 0
			}
		}
	}
	Model: 200, "Model::square", "Mesh" {
		Version: 232
		Properties70:  {
			P: "Lcl Translation", "Lcl Translation", "", "A",1,0,0
			P: "Lcl Rotation", "Lcl Rotation", "", "A",0,0,30
			P: "Lcl Scaling", "Lcl Scaling", "", "A",1,2,1
		}
		Shading: T
		Culling: "CullingOff"
	}
	Material: 300, "Material::red", "" {
		Version: 102
		ShadingModel: "phong"
		Properties70:  {
			P: "DiffuseColor", "Color", "", "A",1,0,0
		}
	}
	AnimationStack: 400, "AnimStack::take", "" {
		Properties70:  {
			P: "LocalStop", "KTime", "Time", "",46186158000
		}
	}
	AnimationLayer: 500, "AnimLayer::base", "" {
	}
	AnimationCurveNode: 600, "AnimCurveNode::T", "" {
		Properties70:  {
			P: "d|X", "Number", "", "A",0
		}
	}
	AnimationCurve: 700, "AnimCurve::", "" {
		Default: 0
		KeyVer: 4008
		KeyTime: *2 {
			a: 0,46186158000
		}
		KeyValueFloat: *2 {
			a: 0,3
		}
	}
}
Connections:  {
	C: "OO",200,0
	C: "OO",100,200
	C: "OO",300,200
	C: "OO",500,400
	C: "OO",600,500
	C: "OP",600,200, "Lcl Translation"
	C: "OP",700,600, "d|X"
}
)";

}  // namespace

std::vector<FuzzSeed> make_scene_seeds() {
  const std::string buffer = make_gltf_buffer();
  const std::string embedded = "\"byteLength\": " + std::to_string(buffer.size()) +
                               ",\n\"uri\": \"data:application/octet-stream;base64," + encode_base64(buffer) + "\"";
  return {{"gltf", make_gltf(embedded), true},
          {"glb", make_glb(buffer), false},
          {"dae", collada, true},
          {"fbx", text_fbx, true}};
}
