#pragma once
#include "tools/vqgas/scene/scene_load.h"

/// The mesh or hair of a file or built-in scene, for instances: its only shape, or all its meshes joined as they are
/// at the time at which the shutter opens. Throws InputError when it holds several hairs, or hair and meshes.
ShapeSource load_instanced_shape(const std::string& name, const SceneTimes& times);

/// Loads a scatter file: the objects of its ground, then one object that shows the bundle of all instances. Throws
/// InputError, Interrupted.
SceneSource load_scatter(const std::string& name, const SceneTimes& times, const SceneLoading& loading);
