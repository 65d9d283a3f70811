// tools/vqgas/scene/scene_load.h
#pragma once
#include <string>
#include <vector>

#include "tools/vqgas/source/scene_source.h"

class OfApp;

/// What loading may use.
struct SceneLoading {
  OfApp* application = nullptr;  ///< for progress, and for threads to make large built-in scenes; or null
  bool is_quiet = true;          ///< does not say on standard error how much memory a large cloud will take
};

/// Loads mesh, scene, hair, point and scatter files, and built-in scenes by names that begin with "demo:", as one
/// scene. Objects are in the order of the names; moving files are sampled for the given times. Throws InputError,
/// Interrupted.
SceneSource load_scene(const std::vector<std::string>& names, const SceneTimes& times,
                       const SceneLoading& loading = {});

/// The same for one name; unnamed shapes and objects stay so.
SceneSource load_file(const std::string& name, const SceneTimes& times, const SceneLoading& loading = {});
/// Appends all that a scene holds but its files.
void append_scene(SceneSource& scene, SceneSource&& more);
