#pragma once
#include "tools/vqgas/source/scene_source.h"

/// Puts the objects whose shape several objects of the scene, or of one group, show into one bundle, as its instances:
/// the same scene with one object instead of many. Their order is kept; the bundle becomes the last object. An object
/// whose file moves it follows its keys.
/// @param frame  of the matrices at rest
void bundle_objects(SceneSource& scene, double frame);
