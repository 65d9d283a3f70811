// bench/bench_mesh_file.h
//
// Real meshes.
#pragma once
#include "bench/bench_mesh.h"

/// All triangles of a mesh file (OBJ, PLY and what else Assimp reads) in one mesh; polygons are cut into triangles.
/// False, with a sentence in `fault`, when there are none.
bool bench_load_mesh(const std::string& path, BenchMesh& mesh, std::string& fault);
