// bench/bench_mesh_file.h
//
// Reads mesh files.
#pragma once
#include "bench/bench_mesh.h"

/// Reads all triangles of a mesh file (OBJ, PLY and every other format that Assimp reads) into one mesh; polygons are
/// triangulated. False, with a sentence in `fault`, if there are none.
bool bench_load_mesh(const std::string& path, BenchMesh& mesh, std::string& fault);
