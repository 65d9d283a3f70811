// tools/vqgas/scene/scene_load.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/source/scene_source.h"

/// Loads mesh, scene and hair files, and built-in scenes by names that begin with "demo:", as one scene. Objects are in
/// the order of the names; moving files are sampled for the given times. Throws InputError, Interrupted.
SceneSource load_scene(const std::vector<std::string>& names, const SceneTimes& times);
