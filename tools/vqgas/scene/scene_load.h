// tools/vqgas/scene/scene_load.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/source/scene_source.h"

/// Reads mesh, scene and hair files, and makes built-in scenes where a name begins with "demo:". The objects of the
/// files follow each other in the order of the names. What deforms is read for the given times. Throws InputError.
SceneSource load_scene(const std::vector<std::string>& names, const SceneTimes& times);
